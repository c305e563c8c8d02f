#include "platform/console.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include <fcntl.h>
#include <io.h>
#include <windows.h>

namespace platform {

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
        ENABLE_PROCESSED_OUTPUT | ENABLE_WRAP_AT_EOL_OUTPUT | 0x4 /* terminal sequences */;
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
    DWORD mode = 0;
    const char* const terminal = std::getenv("TERM");
    return ::GetConsoleMode(::GetStdHandle(STD_ERROR_HANDLE), &mode) != 0 &&
           (terminal == nullptr || std::string_view(terminal) != "dumb");
}

bool hold_standard_streams()
{
    // A closed stream has no descriptor below it.
    const bool has_output = _fileno(stdout) >= 0;
    for (std::FILE* const stream : {stdin, stdout, stderr}) {
        if (_fileno(stream) < 0) {
            static_cast<void>(std::freopen("NUL", stream == stdin ? "r" : "w", stream));
        }
    }
    return has_output;
}

bool set_standard_input_binary()
{
    return _setmode(_fileno(stdin), _O_BINARY) != -1;
}

} // namespace platform
