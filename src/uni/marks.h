#pragma once

#include <string>
#include <string_view>

namespace uni {

// Stored texts, file names and messages must not act on the reader's screen, nor begin a line of
// their own. What could is shown by a mark in its place:
//
//   CR LF, LF CR, LF, CR                      [CRLF] [LFCR] [LF] [CR]
//   other C0 controls but TAB, DEL, C1        [x1b]
//   U+061C, 200E, 200F, 202A-202E, 2066-2069  [U+202E]: they turn the order of a line around
//   a byte that is no UTF-8                   [xff]
//   U+FFFE, U+FFFF                            U+FFFD, as no XML may hold them
//
// An LF that opens a text is [LF] whatever follows it.

// Whether a character turns the order of a line around.
constexpr bool turns_order(char32_t c) noexcept
{
    return c == 0x61c || c == 0x200e || c == 0x200f || (c >= 0x202a && c <= 0x202e) ||
           (c >= 0x2066 && c <= 0x2069);
}

// Whether there is anything to mark.
bool needs_marks(std::string_view text);

std::string marked(std::string_view text);

// The same in place.
void mark(std::string& text);

} // namespace uni
