#include "sdb/vocabulary.h"

#include <array>
#include <cstddef>

namespace sdb {

namespace {

consteval auto make_names()
{
    struct known_tag {
        std::uint16_t tag;
        std::string_view name;
    };
    constexpr known_tag known_tags[] = {
#define SDB_TAG(number, name) {number, #name},
#include "sdb/tag_list.inc"
    };
    std::array<std::string_view, tag_slots> names{};
    for (const known_tag& known : known_tags) {
        const std::size_t slot = tag_slot(known.tag);
        if (slot == tag_slots - 1 || !names[slot].empty()) {
            throw "a tag that the table has no room for, or that is listed twice";
        }
        names[slot] = known.name;
    }
    return names;
}

constexpr auto names = make_names();

constexpr std::array<std::string_view, slots::types> type_names = {
    "null", "byte", "word", "dword", "qword", "stringref", "list", "string", "binary"};

std::string numbered(std::uint16_t number)
{
    return "tag_" + std::to_string(number);
}

} // namespace

std::string_view known_tag_name(std::uint16_t tag) noexcept
{
    return names[tag_slot(tag)];
}

std::string tag_name(std::uint16_t tag)
{
    if (const std::string_view name = known_tag_name(tag); !name.empty()) {
        return std::string(name);
    }
    if (tag_type(tag) == type::byte_) {
        return "byte";
    }
    return is_known_type(tag_type(tag)) ? numbered(tag) : "unk";
}

std::string_view known_type_name(std::uint16_t type_bits) noexcept
{
    return is_known_type(type_bits) ? type_names[(type_bits >> 12) - 1u] : std::string_view();
}

} // namespace sdb
