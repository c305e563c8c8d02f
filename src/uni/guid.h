// GUIDs as bytes and as text.
//
// In memory and in files a GUID has 16 bytes:
//
//   offset  width  field
//   0       4      first group, little-endian
//   4       2      second group, little-endian
//   6       2      third group, little-endian
//   8       2      fourth group, bytes in order of the text
//   10      6      fifth group, bytes in order of the text
//
// The text is "33221100-5544-7766-8899-aabbccddeeff": lower-case, 36 characters, no braces.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace uni {

inline constexpr std::size_t guid_size = 16;
inline constexpr std::size_t guid_text_length = 36;

// Writes the 36 characters of the text without a terminator; answers their end.
char* put_guid(char* out, std::span<const std::uint8_t, guid_size> bytes);

// Turns bytes in their stored order into the order in which the text shows them, and back: the first
// three groups are reversed. Bytes in shown order sort as the texts do.
void swap_guid_order(std::span<std::uint8_t, guid_size> bytes);

// The text of the first 16 bytes; empty when there are fewer.
std::string guid_text(std::span<const std::uint8_t> bytes);

// The bytes of a GUID text. A group may have fewer digits than usual but at least one, and the one
// character between two groups may be any. Text behind the fifth group is not looked at. A text of
// fewer than 22 characters, or one with a group missing, gives nothing.
std::optional<std::array<std::uint8_t, guid_size>> guid_from_text(std::string_view text);

} // namespace uni
