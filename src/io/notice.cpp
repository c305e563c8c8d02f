#include "io/notice.h"

#include <cstdarg>
#include <cstdio>

namespace io {

namespace {

constexpr int longest_notice = 4096;

class error_notices : public notices {
    void take(std::string_view message) override
    {
        write_error_text(progress_wipe);
        write_error_text(message);
    }
};

} // namespace

void write_error_text(std::string_view text)
{
    std::fwrite(text.data(), 1, text.size(), stderr);
    std::fflush(stderr);
}

void notices::say(const char* format, ...)
{
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
        text.pop_back();
    }
    va_end(again);
    take(text);
}

notices& error_stream()
{
    static error_notices stream;
    return stream;
}

void kept_notices::say_all(notices& to)
{
    for (const std::string& message : messages_) {
        to.say("%s", message.c_str());
    }
    messages_.clear();
}

} // namespace io
