#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace front {

// Reads hexadecimal bytes parted by blanks, else by commas, else by colons, else by hyphens, with
// or without "x" prefixes. A text without any of these is one byte if it has two characters, or up
// to four with an "x" among them. A pair of braces around it all is taken off. Empty when no byte
// came out, or when an item is none.
std::vector<std::uint8_t> read_pattern_text(std::string_view text);

// Reads a GUID as 16 pattern bytes or as GUID text, in braces or without; gives its lower-case text,
// nothing for a value of fewer than 22 characters or anything else.
std::optional<std::string> read_guid_argument(std::string_view argument);

} // namespace front
