#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "uni/text_buffer.h"

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

// Whether a TAB is marked too, as [x09]: in rows whose fields TABs part.
enum class tab_marking : bool { none, marked };

// Whether there is anything to mark.
bool needs_marks(std::string_view text, tab_marking tabs = tab_marking::none);

// A text in pieces: as it is, or a mark. A text of marks takes four times as many bytes as it had in its
// file, and is not held whole.
class marked_pieces {
public:
    // `text` must outlive it.
    explicit marked_pieces(std::string_view text, tab_marking tabs = tab_marking::none)
        : text_(text), tabs_(tabs)
    {}

    // Good until the next is made; empty at the end.
    std::string_view next();

private:
    std::string_view next_mark();

    std::string_view text_;
    tab_marking tabs_;
    std::size_t at_ = 0;
    std::array<char, 8> mark_;
};

void write_marked(text_buffer& out, std::string_view text, tab_marking tabs = tab_marking::none);
std::string marked(std::string_view text, tab_marking tabs = tab_marking::none);

// The same in place.
void mark(std::string& text, tab_marking tabs = tab_marking::none);

} // namespace uni
