#include "io/notice.h"

#include <cstdarg>
#include <cstdio>

namespace io {

namespace {

constexpr int longest_notice = 4096;

} // namespace

void write_error_text(std::string_view text)
{
    std::fwrite(text.data(), 1, text.size(), stderr);
    std::fflush(stderr);
}

int print_notice(const char* format, ...)
{
    write_error_text(progress_wipe);
    std::va_list arguments;
    va_start(arguments, format);
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    va_end(arguments);
    std::string text;
    if (length > 0 && length <= longest_notice) {
        text.resize(static_cast<std::size_t>(length) + 1);
        std::vsnprintf(text.data(), text.size(), format, again);
        text.resize(static_cast<std::size_t>(length));
        write_error_text(text);
    }
    va_end(again);
    return static_cast<int>(text.size());
}

} // namespace io
