#pragma once

#include <cstddef>
#include <string_view>

#include "uni/text_buffer.h"

// What lines for people look like on a terminal.
namespace form {

// Beginnings of colours, and their end.
namespace shade {
constexpr std::string_view heading = "\x1b[1m";
constexpr std::string_view high = "\x1b[1;31m";
constexpr std::string_view medium = "\x1b[33m";
constexpr std::string_view end = "\x1b[0m";
} // namespace shade

// Writes a text, in a colour or as it is.
void write_in(uni::text_buffer& out, std::string_view begin, std::string_view text,
              bool has_colors);

// Writes a text that begins in column `begin`, going on below in column `hanging` where a line of so many columns
// ends: behind a blank where there is one, further left where few columns are left there. As it is where there
// are no columns, or hardly any.
void write_wrapped(uni::text_buffer& out, std::string_view text, std::size_t begin,
                   std::size_t hanging, std::size_t columns);

} // namespace form
