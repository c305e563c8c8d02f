// The version resource of a PE file: a tree of blocks, all numbers little-endian.
//
//   offset  width  field
//   0       u16    wLength: bytes of the block, children included
//   2       u16    wValueLength: length of the value, in characters for text, else in bytes
//   4       u16    wType: 1 for text, anything else for a binary value
//   6              szKey: UTF-16, ended by a zero unit
//   then           the value, at x + x mod 4, where x is the key's end; children likewise
//
//   VS_VERSION_INFO             value: the fixed block
//     StringFileInfo
//       040904b0                a string table: language and code page, eight hexadecimal digits
//         CompanyName           value: text
//     VarFileInfo
//       Translation             value: a language and a code page, u16 each
//
//   fixed block, 52 bytes
//   0       u32    signature
//   4       u32    version of the structure, major in the high word
//   8       2 u32  file version, most significant first
//   16      2 u32  product version, the same
//   24      u32    mask of the flags
//   28      u32    flags
//   32      u32    operating system
//   36      u32    type of the file
//   40      u32    subtype
//   44      2 u32  date, most significant first
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "uni/byte_view.h"

namespace pe {

struct version_value {
    std::string name; // the key as it is stored
    std::string text;
    std::uint64_t number = 0;
    std::uint64_t language = 0; // of a string: its table's
    std::uint64_t offset = 0;   // in the resource
    std::uint64_t size = 0;     // bytes
};

// Values by their lower-cased key: "fileversion" and the like for the fixed block,
// "stringfileinfo_040904b0_companyname" for a string. Of two values of one key the first stays.
using version_map = std::map<std::string, version_value>;

// Whether bytes begin as a version resource does; its first `version_head` bytes tell.
bool is_version_resource(uni::byte_view head);
inline constexpr std::uint64_t version_head = 40;

// Adds what a version resource holds; answers whether `result` then holds anything. A block that
// claims more than there is ends the walk, and what came before it stays.
bool decode_version_resource(version_map& result, uni::byte_view bytes);

} // namespace pe
