#include "io/notice.h"

#include <cstdarg>
#include <cstdio>

#include "platform/console.h"
#include "platform/files.h"
#include "uni/byte_view.h"
#include "uni/marks.h"

namespace io {

namespace {

constexpr std::size_t longest_notice = 4096;
constexpr std::size_t longest_kept = 4092;
constexpr std::string_view line_wipe = "\x1b[2K\r";
constexpr std::string_view progress_wipe = "\x1b[2K\r                           \r";

std::string formatted(const char* format, std::va_list arguments)
{
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    std::string text;
    if (length > 0) {
        text.resize(static_cast<std::size_t>(length) + 1);
        std::vsnprintf(text.data(), text.size(), format, again);
        text.pop_back();
    }
    va_end(again);
    return text;
}

// The message as it may be shown: on one line, and not too long.
std::string shown(std::string message)
{
    const bool ends_line = message.ends_with('\n');
    if (ends_line) {
        message.pop_back();
    }
    uni::mark(message);
    if (message.size() + (ends_line ? 1 : 0) > longest_notice) {
        std::size_t end = longest_kept;
        while ((static_cast<unsigned char>(message[end]) & 0xc0) == 0x80) {
            --end;
        }
        message.resize(end);
        message += "...";
    }
    return ends_line ? message + '\n' : message;
}

} // namespace

void wipe_progress_line()
{
    static const bool is_terminal = platform::error_stream_takes_sequences();
    if (is_terminal) {
        write_error_text(progress_wipe);
    }
}

void write_error_text(std::string_view text)
{
    // Where this fails nobody can be told, but by the exit value that the message comes with.
    static_cast<void>(
        platform::write_file(platform::standard_error_descriptor, uni::bytes_of(text)));
}

void notices::say(const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    const std::string message = shown(formatted(format, arguments));
    va_end(arguments);
    take(message);
}

void notices::fail(const char* format, ...)
{
    failed_ = true;
    std::va_list arguments;
    va_start(arguments, format);
    const std::string message = shown(formatted(format, arguments));
    va_end(arguments);
    take(message);
}

void error_notices::draw(std::string_view text)
{
    const std::scoped_lock lock(mutex_);
    write_error_text(std::string(line_wipe).append(text));
}

void error_notices::take(std::string_view message)
{
    const std::scoped_lock lock(mutex_);
    wipe_progress_line();
    write_error_text(message);
}

void kept_notices::say_all(notices& to)
{
    for (const std::string& message : messages_) {
        to.say("%s", message.c_str());
    }
    messages_.clear();
    if (failed()) {
        to.note_failure();
    }
}

} // namespace io
