#pragma once

#include <string>
#include <string_view>

namespace io {

// Wipes a progress line on the error stream.
inline constexpr std::string_view progress_wipe = "\x1b[2K\r                           \r";

// Writes bytes to the error stream at once.
void write_error_text(std::string_view text);

// The one way in which a message reaches the error stream: wipes a progress line, then writes the
// text made from `format` as printf would. Gives the number of characters written; a text of more
// than 4096 characters is not written at all, and the result is 0. The user's own text is only ever
// an argument, never a format.
int print_notice(const char* format, ...);

} // namespace io
