#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "uni/byte_view.h"

namespace uni {

// Text is UTF-8 in narrow strings everywhere inside the program. These are the conversions at its
// edges: strict ones for arguments and paths, where one bad unit fails the whole, and a lenient one
// for texts stored in files, which must not vanish from a report because of one bad unit.

// The character that a text begins with, and the bytes that it takes; a byte that begins none stands for
// itself.
struct utf8_character {
    char32_t character = 0;
    std::size_t length = 1;
    bool is_valid = false;
};
utf8_character decode_utf8(std::string_view text);

// UTF-16 to UTF-8. A high surrogate without its partner fails: the result is empty. A lone low one
// passes as three bytes, and utf16_from_utf8 gives it back.
std::string utf8_from_utf16(std::u16string_view text);

// UTF-8 to UTF-16. A byte that is no lead byte, a missing continuation byte or a value above
// 0x10ffff fails: the result is empty. Overlong forms pass.
std::u16string utf16_from_utf8(std::string_view text);

// Appends stored UTF-16LE text to `out` as UTF-8, up to the first zero unit or the last whole unit;
// a surrogate without its partner becomes U+FFFD. `out` must have stored_text_room().
// Gives the end of what was written.
constexpr std::size_t stored_text_room(std::uint64_t stored_bytes) noexcept
{
    return static_cast<std::size_t>(stored_bytes / 2 * 3);
}
char* put_stored_utf16(char* out, byte_view stored);
// The same, which also tells whether the text is plain: nothing but printable ASCII without "<",
// ">", "&" and the double quote. It may answer no for a text that is.
char* put_stored_utf16(char* out, byte_view stored, bool& plain);

// As much of stored text as makes more than `longest` bytes, if there is more.
inline byte_view beginning_of(byte_view stored, std::size_t longest)
{
    return stored.slice(0, (std::uint64_t{longest} + 1) * 2);
}

// The same into a string that is replaced. Gives the number of stored bytes that the text took, its
// terminating zero unit included where there is one; 0 for no text.
std::uint64_t utf16_to_text(byte_view stored, std::string& text);

} // namespace uni
