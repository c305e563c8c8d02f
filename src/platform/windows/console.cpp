#include "platform/console.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include "platform/files.h"

namespace platform {

namespace {

constexpr DWORD terminal_sequences = 0x4; // the name is missing from older headers

// A stream that was closed at the start has a descriptor, but nothing below it.
bool is_open(int descriptor)
{
    const auto handle = reinterpret_cast<HANDLE>(_get_osfhandle(descriptor));
    constexpr std::intptr_t no_stream = -2;
    if (handle == INVALID_HANDLE_VALUE || handle == reinterpret_cast<HANDLE>(no_stream)) {
        return false;
    }
    ::SetLastError(NO_ERROR);
    return ::GetFileType(handle) != FILE_TYPE_UNKNOWN || ::GetLastError() == NO_ERROR;
}

bool takes_sequences(DWORD stream)
{
    DWORD mode = 0;
    const char* const terminal = std::getenv("TERM");
    return ::GetConsoleMode(::GetStdHandle(stream), &mode) != 0 &&
           (mode & terminal_sequences) != 0 &&
           (terminal == nullptr || std::string_view(terminal) != "dumb");
}

std::size_t columns_of(DWORD stream)
{
    CONSOLE_SCREEN_BUFFER_INFO facts = {};
    return ::GetConsoleScreenBufferInfo(::GetStdHandle(stream), &facts) != 0
               ? static_cast<std::size_t>(facts.srWindow.Right - facts.srWindow.Left + 1)
               : 0;
}

} // namespace

utf8_console::utf8_console() : output_page_(::GetConsoleOutputCP()), input_page_(::GetConsoleCP())
{
    ::SetConsoleOutputCP(CP_UTF8);
}

utf8_console::~utf8_console()
{
    ::SetConsoleOutputCP(output_page_);
    ::SetConsoleCP(input_page_);
}

std::uint32_t enable_error_console_sequences()
{
    constexpr DWORD wanted =
        ENABLE_PROCESSED_OUTPUT | ENABLE_WRAP_AT_EOL_OUTPUT | terminal_sequences;
    const HANDLE console = ::GetStdHandle(STD_ERROR_HANDLE);
    DWORD mode = 0;
    if (!::GetConsoleMode(console, &mode)) {
        mode = 0;
    }
    // Set even when the old mode could not be read.
    ::SetConsoleMode(console, mode | wanted);
    return mode;
}

void restore_error_console_mode(std::uint32_t mode)
{
    ::SetConsoleMode(::GetStdHandle(STD_ERROR_HANDLE), mode);
}

bool error_stream_takes_sequences()
{
    return takes_sequences(STD_ERROR_HANDLE);
}

bool standard_output_takes_sequences()
{
    return takes_sequences(STD_OUTPUT_HANDLE);
}

bool standard_output_is_pipe()
{
    return ::GetFileType(::GetStdHandle(STD_OUTPUT_HANDLE)) == FILE_TYPE_PIPE;
}

std::size_t output_columns()
{
    return columns_of(STD_OUTPUT_HANDLE);
}

std::size_t error_columns()
{
    return columns_of(STD_ERROR_HANDLE);
}

bool hold_standard_streams()
{
    const bool has_output = is_open(standard_output_descriptor);
    for (int descriptor = 0; descriptor <= standard_error_descriptor; ++descriptor) {
        if (is_open(descriptor)) {
            continue;
        }
        const int nothing = _wopen(L"NUL", _O_RDWR | _O_TEXT);
        if (nothing >= 0 && nothing != descriptor) {
            _dup2(nothing, descriptor);
            _close(nothing);
        }
    }
    return has_output;
}

bool set_standard_input_binary()
{
    return _setmode(_fileno(stdin), _O_BINARY) != -1;
}

bool set_standard_output_binary()
{
    return _setmode(standard_output_descriptor, _O_BINARY) != -1;
}

} // namespace platform
