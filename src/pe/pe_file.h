// A Portable Executable, taken apart. All numbers are little-endian.
//
//   offset             width  field
//   0                  64     DOS header: "MZ" at 0, e_lfanew (u32) at 60
//   64                        DOS stub, up to e_lfanew
//   e_lfanew           4      "PE", two zero bytes
//   e_lfanew + 4       20     file header: section count (u16) at 2, time stamp (u32) at 4
//   e_lfanew + 24      224    optional header; 240 if its first u16, the magic, is 0x20b (64-bit)
//   behind that        40 n   section table; its place does not depend on the optional header's
//                             size as the file header tells it
//
//   optional header    32-bit 64-bit
//   entry point RVA    16     16     u32
//   image base         28     24     u32, u64
//   OS version         40     40     major, minor u16
//   image version      44     44     major, minor u16
//   checksum           64     64     u32
//   data directories   96     112    16 pairs of u32: address, size
//
//   section header: name 8 bytes, at 8 virtual size, 12 virtual address, 16 size of the raw data,
//   20 their place in the file, all u32
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "pe/file_stats.h"
#include "pe/resources.h"

namespace pe {

struct pe_section {
    std::string name; // up to the first zero byte, as it is
    std::array<std::uint8_t, 40> header;

    std::uint32_t virtual_size() const noexcept { return word(8); }
    std::uint32_t virtual_address() const noexcept { return word(12); }
    std::uint32_t raw_size() const noexcept { return word(16); }
    std::uint32_t raw_offset() const noexcept { return word(20); }

private:
    std::uint32_t word(std::uint64_t at) const noexcept { return uni::byte_view(header).u32(at); }
};

// Reads one file. A file is refused, and everything stays empty, at the first header that cannot be
// read; nothing else is refused for being strange.
class PE_FILE_UTIL : public FILE_STATS {
public:
    explicit PE_FILE_UTIL(std::unique_ptr<io::byte_source> source);

    bool valid() const noexcept { return valid_; }
    bool is_64() const noexcept { return headers_.is_64; }
    uni::byte_view dos_header() const noexcept { return {headers_.dos}; }
    uni::byte_view file_header() const noexcept { return {headers_.file}; }
    // The first 224 bytes of the optional header, as if it were a 32-bit one; up to the image base
    // and from the section alignment to the checksum both kinds are laid out alike.
    uni::byte_view optional_header32() const noexcept { return {headers_.optional32}; }
    // The optional header in its true size.
    uni::byte_view optional_header64() const noexcept
    {
        return uni::byte_view(headers_.optional64).slice(0, optional_header_size());
    }
    std::uint32_t optional_header_size() const noexcept { return headers_.is_64 ? 240 : 224; }

    std::uint32_t entry_rva() const noexcept { return headers_.entry_rva; }
    // The entry point's place in the file; 0 when no section holds it.
    std::uint32_t entry_file_offset() const noexcept { return headers_.entry_file_offset; }
    std::uint64_t image_base() const noexcept { return headers_.image_base; }
    // In the order of the section table.
    const std::vector<pe_section>& sections() const noexcept { return headers_.sections; }
    // The first section of the name ".rsrc"; null if there is none.
    const pe_section* find_section_rsrc() const noexcept;

    // The resources, ascending by their place in the file.
    const std::vector<pe_resource>& resources() const noexcept { return headers_.resources; }
    // "TYPE : name : language" of a resource.
    std::string resource_name(const pe_resource& resource);

private:
    struct parsed_headers {
        std::array<std::uint8_t, 64> dos{};
        std::array<std::uint8_t, 20> file{};
        std::array<std::uint8_t, 224> optional32{};
        std::array<std::uint8_t, 240> optional64{};
        std::uint64_t pe_offset = 0;
        bool is_64 = false;
        std::uint32_t entry_rva = 0;
        std::uint32_t entry_file_offset = 0;
        std::uint64_t image_base = 0;
        std::vector<pe_section> sections;
        std::optional<resource_place> resources_at; // the section of the resources
        std::vector<pe_resource> resources;
    };

    void parse();
    bool read_dos_header();
    bool read_pe_headers();
    bool read_sections();
    void find_entry_point();
    void read_resources();

    bool valid_ = false;
    parsed_headers headers_;
};

} // namespace pe
