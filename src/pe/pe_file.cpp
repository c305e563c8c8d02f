#include "pe/pe_file.h"

#include <algorithm>

namespace pe {

namespace {

constexpr std::uint16_t dos_magic = 0x5a4d;
constexpr std::uint32_t pe_magic = 0x4550;
constexpr std::uint16_t magic_of_64 = 0x20b;
constexpr std::uint64_t dos_header_size = 64;
// PE signature and file header.
constexpr std::uint64_t optional_header_place = 24;
constexpr std::uint64_t section_header_size = 40;

std::string section_name(uni::byte_view header)
{
    std::string name;
    for (std::uint64_t i = 0; i < 8 && header.u8(i) != 0; ++i) {
        name += static_cast<char>(header.u8(i));
    }
    return name;
}

} // namespace

PE_FILE_UTIL::PE_FILE_UTIL(std::unique_ptr<io::byte_source> source) : FILE_STATS(std::move(source))
{
    parse();
}

void PE_FILE_UTIL::parse()
{
    valid_ = read_dos_header() && read_pe_headers() && read_sections();
    if (!valid_) {
        headers_ = {};
        return;
    }
    find_entry_point();
    read_resources();
}

bool PE_FILE_UTIL::read_dos_header()
{
    if (!read_at(headers_.dos, 0) || dos_header().u16(0) != dos_magic) {
        return false;
    }
    const auto place = static_cast<std::int32_t>(dos_header().u32(60));
    const auto stub_size = std::int64_t{place} - static_cast<std::int64_t>(dos_header_size);
    // A PE signature right behind the DOS header leaves no stub to read, and such files have always
    // been refused.
    if (stub_size <= 0 || !contains(0, static_cast<std::uint64_t>(place))) {
        return false;
    }
    headers_.pe_offset = static_cast<std::uint64_t>(place);
    return true;
}

bool PE_FILE_UTIL::read_pe_headers()
{
    const std::uint64_t start = headers_.pe_offset;
    const uni::byte_view signature = peek(start, 4);
    if (signature.empty() || signature.u32(0) != pe_magic || !read_at(headers_.file, start + 4) ||
        !read_at(headers_.optional32, start + optional_header_place)) {
        return false;
    }
    headers_.is_64 = optional_header32().u16(0) == magic_of_64;
    const auto whole = std::span(headers_.optional64).first(optional_header_size());
    if (!read_at(whole, start + optional_header_place)) {
        return false;
    }
    headers_.entry_rva = optional_header64().u32(16);
    headers_.image_base =
        headers_.is_64 ? optional_header64().u64(24) : optional_header64().u32(28);
    return true;
}

bool PE_FILE_UTIL::read_sections()
{
    const std::uint64_t count = file_header().u16(2);
    io::byte_vector table;
    if (!read_into(table, count * section_header_size,
                   headers_.pe_offset + optional_header_place + optional_header_size())) {
        return false;
    }
    headers_.sections.resize(static_cast<std::size_t>(count));
    for (std::size_t i = 0; i < headers_.sections.size(); ++i) {
        const uni::byte_view header =
            uni::byte_view(table).slice(i * section_header_size, section_header_size);
        pe_section& section = headers_.sections[i];
        section.name = section_name(header);
        std::ranges::copy(header.bytes(), section.header.begin());
    }
    return true;
}

void PE_FILE_UTIL::find_entry_point()
{
    for (const pe_section& section : headers_.sections) {
        const std::uint64_t start = section.virtual_address();
        const bool holds_it =
            headers_.entry_rva >= start && headers_.entry_rva < start + section.virtual_size();
        if (holds_it && headers_.entry_file_offset == 0) {
            headers_.entry_file_offset =
                headers_.entry_rva - section.virtual_address() + section.raw_offset();
        }
    }
}

const pe_section* PE_FILE_UTIL::find_section_rsrc() const noexcept
{
    const auto found = std::ranges::find(headers_.sections, ".rsrc", &pe_section::name);
    return found == headers_.sections.end() ? nullptr : &*found;
}

void PE_FILE_UTIL::read_resources()
{
    if (const pe_section* section = find_section_rsrc()) {
        headers_.resources_at = {section->raw_offset(), section->virtual_address()};
        headers_.resources = pe::read_resources(*this, *headers_.resources_at);
        std::stable_sort(
            headers_.resources.begin(), headers_.resources.end(),
            [](const pe_resource& a, const pe_resource& b) { return a.offset < b.offset; });
    }
}

std::string PE_FILE_UTIL::resource_name(const pe_resource& resource)
{
    return headers_.resources_at ? pe::resource_name(*this, *headers_.resources_at, resource)
                                 : std::string();
}

} // namespace pe
