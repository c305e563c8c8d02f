// What tags and tag types are called, and which kinds of tag need special care.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "sdb/tags.h"

namespace sdb {

// The type bits of a tag: one of the constants in namespace type, or an unknown type.
constexpr std::uint16_t tag_type(std::uint16_t tag) noexcept
{
    return tag & 0xf000;
}

// Whether the type bits are one of the nine types that a database stores.
constexpr bool is_known_type(std::uint16_t type_bits) noexcept
{
    return type_bits >= type::null_ && type_bits <= type::binary_ && (type_bits & 0x0fff) == 0;
}

// Bytes from a tag word to the next tag, by the type's top four bits; for strings and binaries
// without their payload. An unknown type is stepped over by its tag word alone.
inline constexpr std::array<std::uint8_t, 16> bytes_to_next = {2, 2, 3, 4, 6, 10, 6, 6,
                                                               6, 6, 2, 2, 2, 2,  2, 2};

// Hexadecimal digits of a number of the tag's type.
constexpr unsigned hex_digits_of(std::uint16_t tag) noexcept
{
    return (bytes_to_next[tag >> 12] - 2u) * 2;
}

// A tag that stands in no database but is made up by a report for a row of its own.
constexpr bool is_pseudo_tag(std::uint16_t tag) noexcept
{
    return tag_type(tag) == type::pseudo;
}

// A dword whose value is the offset of another tag, which listings expand.
constexpr bool is_expanded_dword_tag(std::uint16_t tag) noexcept
{
    switch (tag) {
    case tag::shim_tagid:
    case tag::patch_tagid:
    case tag::layer_tagid:
    case tag::msi_transform_tagid:
    case tag::flag_tagid:
    case tag::context_tagid:
    case tag::quirk_tagid:
    case tag::migration_data_tagid:
    case tag::tagid:
    case tag::unnamed_tagid_4888:
        return true;
    default:
        return false;
    }
}

// A list that stands for a reference to another record.
// The names are no guide: layer and matching_reg count as references, kflag_ref does not.
constexpr bool is_reference_list_tag(std::uint16_t tag) noexcept
{
    switch (tag) {
    case tag::shim_ref:
    case tag::patch_ref:
    case tag::layer:
    case tag::msi_transform_ref:
    case tag::flag_ref:
    case tag::context_ref:
    case tag::kshim_ref:
    case tag::quirk_ref:
    case tag::migration_data_ref:
    case tag::matching_reg:
    case tag::migration_shim_ref:
        return true;
    default:
        return false;
    }
}

// Tables over known tags are dense: a block of slots for each type, in a block first the low
// numbers, then the few from 0x801 on. Every other tag has the last slot, which stays empty.
namespace slots {
inline constexpr std::size_t types = 9;
inline constexpr std::size_t low = 0x60;
inline constexpr std::size_t high_base = 0x800;
inline constexpr std::size_t high = 4;
} // namespace slots
inline constexpr std::size_t tag_slots = slots::types * (slots::low + slots::high) + 1;

constexpr std::size_t tag_slot(std::uint16_t tag) noexcept
{
    const std::size_t type = (tag >> 12) - std::size_t{1};
    const std::size_t number = tag & 0x0fffu;
    if (type >= slots::types) {
        return tag_slots - 1;
    }
    const std::size_t start = type * (slots::low + slots::high);
    if (number < slots::low) [[likely]] {
        return start + number;
    }
    return number - slots::high_base < slots::high ? start + slots::low + number - slots::high_base
                                                   : tag_slots - 1;
}

// The tag of a slot but the last.
constexpr std::uint16_t tag_of_slot(std::size_t slot) noexcept
{
    const std::size_t number = slot % (slots::low + slots::high);
    const std::size_t type = slot / (slots::low + slots::high) + 1;
    return static_cast<std::uint16_t>(
        type << 12 | (number < slots::low ? number : number - slots::low + slots::high_base));
}

// The display text of a known tag, in constant time; empty for every other tag, all tags of the
// byte type included. The view stays good for the whole run.
std::string_view known_tag_name(std::uint16_t tag) noexcept;

// The display text of any tag: that of known_tag_name, "byte" for the byte type, "unk" for an
// unknown type, and "tag_" with the tag word in decimal for the rest.
std::string tag_name(std::uint16_t tag);

// The display text of one of the nine types, given as type bits; empty for anything else.
std::string_view known_type_name(std::uint16_t type_bits) noexcept;

} // namespace sdb
