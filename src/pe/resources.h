// The resource tree of a PE file. Its places count from the tree's first byte, which is that of the
// section ".rsrc".
//
//   directory   16 bytes: at 12 the count of named entries, at 14 that of numbered ones, both u16;
//               then the entries, 8 bytes each: u32 name, u32 place
//   name        the number itself, or with its high bit set the place of a string: u16 length in
//               characters, then UTF-16
//   place       with its high bit set a directory of the next level, else a leaf: u32 address of
//               the data in memory, u32 size
//
// The three levels name type, resource and language.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "pe/file_stats.h"

namespace pe {

// One leaf of the tree. The names stay in the file until somebody asks for them.
struct pe_resource {
    std::array<std::uint32_t, 3> names{}; // name words by level
    unsigned levels = 0;                  // how many of them it has
    std::uint32_t offset = 0;             // of its data in the file
    std::uint32_t size = 0;
};

// Where a resource tree lies.
struct resource_place {
    std::uint32_t file_offset = 0;     // of its first byte
    std::uint32_t virtual_address = 0; // of the same
};

// The leaves in the order of the tree. The walk ends at the first thing that cannot be read, at the
// first leaf whose data lie beyond the file, and after 100,000 leaves or as many directories.
std::vector<pe_resource> read_resources(FILE_STATS& file, const resource_place& place);

// "TYPE : name : language", as far as the leaf has these. Numbers are "0x" and four hexadecimal
// digits or more; a type's number is the type's name, "<unk>" if it has none.
std::string resource_name(FILE_STATS& file, const resource_place& place,
                          const pe_resource& resource);

} // namespace pe
