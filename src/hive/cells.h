// Keys and values of a hive.
//
// Offsets from the start of a cell; every reference is counted from the first bin.
//
//   key "nk"                        value "vk"                      lists
//   8   u64    last write time      6   u16    length of the name   "lf" "lh" "li" "ri"
//   20  u32    parent               8   u32    size of the data; top  6  u16  number of entries
//   24  u32    number of subkeys               bit: data stands next  8  entries: a reference,
//   32  u32    subkey list          12  u32    data or its cell            in "lf" and "lh" with
//   40  u32    number of values     16  u32    type                        a u32 hash behind it
//   44  u32    value list           24  name                        value list
//   48  u32    security "sk"                                          4  references
//   52  u32    class name           big value "db"                  list of a big value
//   76  u16    length of the name   6   u16    number of segments     4  references
//   80  name                        8   u32    list
//
// Names of keys are the bytes that stand there. A value's name whose second byte is zero is UTF-16.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "hive/hive_image.h"
#include "uni/byte_view.h"

namespace hive {

constexpr std::uint16_t letters(char first, char second)
{
    return static_cast<std::uint16_t>(static_cast<std::uint8_t>(first) |
                                      static_cast<std::uint8_t>(second) << 8);
}

inline constexpr std::uint16_t key_mark = letters('n', 'k');
inline constexpr std::uint16_t value_mark = letters('v', 'k');
inline constexpr std::uint16_t security_mark = letters('s', 'k');
inline constexpr std::uint16_t big_mark = letters('d', 'b');
inline constexpr std::uint16_t lf_list = letters('l', 'f');
inline constexpr std::uint16_t lh_list = letters('l', 'h');
inline constexpr std::uint16_t li_list = letters('l', 'i');
inline constexpr std::uint16_t ri_list = letters('r', 'i');

inline constexpr std::uint64_t mark_at = 4;
inline constexpr std::uint64_t contents_at = 4;
inline constexpr std::uint64_t list_count_at = 6;
inline constexpr std::uint64_t list_entries_at = 8;

namespace key_field {
inline constexpr std::uint64_t last_write = 8;
inline constexpr std::uint64_t parent = 20;
inline constexpr std::uint64_t subkey_count = 24;
inline constexpr std::uint64_t subkey_list = 32;
inline constexpr std::uint64_t value_count = 40;
inline constexpr std::uint64_t value_list = 44;
inline constexpr std::uint64_t security = 48;
inline constexpr std::uint64_t name_length = 76;
inline constexpr std::uint64_t name = 80;
} // namespace key_field

namespace value_field {
inline constexpr std::uint64_t name_length = 6;
inline constexpr std::uint64_t data_size = 8;
inline constexpr std::uint64_t data = 12;
inline constexpr std::uint64_t type = 16;
inline constexpr std::uint64_t name = 24;
} // namespace value_field

inline constexpr std::uint64_t key_head = key_field::name;
inline constexpr std::uint64_t value_head = value_field::name;
inline constexpr std::uint64_t entry_size = sizeof(std::uint32_t); // of a list but "lf" and "lh"
// Of a key; a registry takes 255 characters.
inline constexpr std::uint64_t longest_usual_name = 512;

std::string bytes_as_text(uni::byte_view bytes);

// A key's cell up to the end of its name, as far as it exists.
uni::byte_view key_at(const hive_image& image, std::uint64_t offset);

// The name of a good key: one with its mark, a name, a parent and a time, whole in the image.
std::optional<uni::byte_view> good_key_name(uni::byte_view key);

// The entries of a list, which stand behind its head: at most `most` bytes, and no more than the
// cell says that it has.
uni::byte_view entries_at(const hive_image& image, std::uint64_t offset, std::uint64_t head,
                          std::uint64_t most);

// The beginning of the cell that a reference leads to.
inline uni::byte_view referred(const hive_image& image, std::uint32_t reference,
                               std::uint64_t count)
{
    return image.cell_at(image.offset_of(reference), count);
}

} // namespace hive
