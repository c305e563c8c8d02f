// Names for the numbers of the shim database format.
//
// A tag is a 16-bit word: the top four bits are its type, the low twelve tell it apart within the
// type. The type says how the value behind the tag word is stored.
#pragma once

#include <cstdint>

namespace sdb {

// The types, as whole tag words with the low bits clear.
namespace type {
inline constexpr std::uint16_t null_ = 0x1000;     // no value: the tag's presence says it all
inline constexpr std::uint16_t byte_ = 0x2000;     // 8 bits
inline constexpr std::uint16_t word = 0x3000;      // 16 bits
inline constexpr std::uint16_t dword = 0x4000;     // 32 bits
inline constexpr std::uint16_t qword = 0x5000;     // 64 bits
inline constexpr std::uint16_t stringref = 0x6000; // 32 bits: offset within the string table
inline constexpr std::uint16_t list = 0x7000;      // 32-bit size, then tags
inline constexpr std::uint16_t string = 0x8000;    // 32-bit size, then UTF-16
inline constexpr std::uint16_t binary_ = 0x9000;   // 32-bit size, then bytes
inline constexpr std::uint16_t pseudo = 0xe000;    // never stored: rows that reports add
} // namespace type

// Every known tag under its display text, as in tag::matching_file for 0x7008.
namespace tag {
#define SDB_TAG(number, name) inline constexpr std::uint16_t name = number;
#include "sdb/tag_list.inc"

// A reference to a tag like shim_tagid and its kin, but without a display text.
inline constexpr std::uint16_t unnamed_tagid_4888 = 0x4888;
} // namespace tag

// Keys of the rows that the statistics add for an installed database.
namespace pseudo_tag {
inline constexpr std::uint16_t install_time = 0xe003;
inline constexpr std::uint16_t registry_modtime = 0xe004;
inline constexpr std::uint16_t database_description = 0xe005;
inline constexpr std::uint16_t database_types = 0xe006;
inline constexpr std::uint16_t database_path = 0xe007;
} // namespace pseudo_tag

} // namespace sdb
