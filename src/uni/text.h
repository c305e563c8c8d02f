// Exact text conversions shared by options and reports.
//
// All text is narrow UTF-8. Case is folded for the ASCII letters alone, byte by byte, and never
// depends on a locale. None of these functions fails.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "uni/text_buffer.h"

namespace uni {

constexpr bool is_letter_or_digit(char c) noexcept // of ASCII
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

constexpr char lower_ascii(char c) noexcept
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// Lower-cases in place.
void lower_text(std::string& text);

// The lower-cased copy of a text.
std::string lowered(std::string_view text);

// Whether both texts are the same when ASCII case does not count.
bool equal_ignoring_case(std::string_view a, std::string_view b);

// The part of the text without the blanks and tabs at both ends; a view into the argument.
std::string_view trimmed(std::string_view text);

// The same in place.
void trim(std::string& text);

// The beginning of the text that takes no more than so many columns of a terminal, or all of it. What some
// terminals show wider than others counts as wide: TAB 8 columns, East Asian characters and those beyond the
// first plane 2.
std::string_view first_columns(std::string_view text, std::size_t columns) noexcept;
// How many it takes at the most.
std::size_t columns_of(std::string_view text) noexcept;

// Replaces every `from` by `to`.
void replace_char(std::string& text, char from, char to);

// Takes out every `c`; answers how many there were.
std::size_t remove_char(std::string& text, char c);

// A copy of the text with every `from` replaced by `to`, left to right, without looking again at
// what was put in. `from` must not be empty.
std::string replace_all(std::string_view text, std::string_view from, std::string_view to);

// The items between the separators. Empty items are dropped; with `trim_items` the items are
// trimmed first, so that items of blanks alone are dropped too.
std::vector<std::string> split(std::string_view text, char separator, bool trim_items);

// What stands in XML for a character that may not: "<", ">", "&" and the double quote; nothing for others.
std::string_view xml_entity(char c) noexcept;
// The text as an XML attribute can hold it.
std::string xml_escape(std::string_view text);
void write_xml_escaped(text_buffer& out, std::string_view text);

} // namespace uni
