#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "support/sdb_builder.h"

// Portable Executables for tests, made of what a test cares about. Nothing is checked, so that
// malformed ones are made in the same way.
namespace test_support {

struct pe_section_plan {
    std::string name;
    std::uint32_t raw_offset, raw_size;
    std::uint32_t virtual_address = 0, virtual_size = 0;
    bytes contents = {}; // at raw_offset, as far as the file goes
};

struct pe_plan {
    bool is_64 = false;
    std::uint32_t pe_offset = 128;
    std::uint16_t optional_size = 0xe0; // as the file header tells it
    std::uint32_t time_stamp = 0x5f5e1000, checksum = 0x12345, entry_rva = 0;
    std::uint64_t image_base = 0x400000;
    std::uint16_t image_version[2] = {2, 5};
    std::vector<pe_section_plan> sections = {};
    std::size_t file_size = 4096;

    bytes build() const;
};

// A directory of a resource tree or, without entries, a leaf.
struct resource_node {
    std::uint32_t id = 0;
    std::u16string name = {}; // takes the place of the id
    std::vector<resource_node> entries = {};
    bytes data = {};
};

// A tree with one resource: type, name 1, language 0x409.
resource_node lone_resource(std::uint32_t type, bytes data);

// One block of a version resource. A text's length is counted in characters, its zero unit included.
bytes version_block(std::u16string_view key, const bytes& value,
                    const std::vector<bytes>& children);
bytes version_text(std::u16string_view key, std::u16string_view text);
// The 52 bytes of the fixed block.
bytes fixed_version(std::uint32_t flags, std::uint32_t os, std::uint32_t type,
                    std::uint32_t subtype);

// A file with one section ".rsrc", which holds this tree.
pe_plan pe_with_resources(const resource_node& root);

// An ordinary program: a version resource of two string tables and a Translation, in `is_64`.
bytes sample_program(bool is_64);

} // namespace test_support
