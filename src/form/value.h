#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "uni/time.h"

// Values as a report hands them to a form, which makes text of them.
namespace form {

struct moment {
    std::uint64_t raw = 0;
    uni::time_kind kind = uni::time_kind::filetime;
};

// A stored dword that is a time is signed.
constexpr moment unix_moment(std::uint32_t seconds) noexcept
{
    const std::int64_t extended = static_cast<std::int32_t>(seconds);
    return {static_cast<std::uint64_t>(extended), uni::time_kind::unix_seconds};
}

// A dword's value, as a tag that holds it is shown.
struct dword_value {
    std::uint32_t number = 0;
};

// In decimal.
struct count {
    std::uint64_t number = 0;
};

// In hexadecimal, whatever the base of the run.
struct hex_number {
    std::uint64_t number = 0;
};

// How many there are of what stands under a tag.
struct tag_count {
    std::uint16_t tag = 0;
    std::uint64_t number = 0;
};

// A tag, by its name.
struct tag_word {
    std::uint16_t tag = 0;
};

// What the tag at an offset of the document's database shows.
struct stored_value {
    std::uint32_t offset = 0;
};

// A number, as a tag would show it if it were stored there.
struct tag_number {
    std::uint16_t tag = 0;
    std::uint64_t number = 0;
};

// What holds or does not.
struct truth {
    bool holds = false;
};

// Several texts, parted where one text stands for them all.
struct texts {
    std::vector<std::string> all;
    std::string_view separator = ", ";
};

using value = std::variant<std::monostate, std::string, moment, dword_value, count, hex_number,
                           tag_count, tag_word, stored_value, tag_number, truth, texts>;

// How much a row asks to be looked at.
enum class emphasis { none, medium, high };

// Functions for the kinds of a value, as std::visit takes them.
template <typename... handlers>
struct overloaded : handlers... {
    using handlers::operator()...;
};
template <typename... handlers>
overloaded(handlers...) -> overloaded<handlers...>;

// A cell of a row, under the name that it has where cells have names.
struct cell {
    std::string_view name;
    value shown = {};
    bool is_named_only = false;       // shown only there
    bool names_document = false;      // left out where each line tells its path anyway
    emphasis weighs = emphasis::none; // of the row in which it stands
};

// The cells of a table with those names; without values they are its head.
template <std::size_t count>
std::array<cell, count> cells_of_table(const std::array<std::string_view, count>& names,
                                       std::array<value, count> values = {})
{
    std::array<cell, count> cells;
    for (std::size_t i = 0; i < count; ++i) {
        cells[i].name = names[i];
        cells[i].shown = std::move(values[i]);
    }
    return cells;
}

// What is no value where a text is empty.
inline value text_or_none(std::string_view text)
{
    return text.empty() ? value() : value(std::string(text));
}

} // namespace form
