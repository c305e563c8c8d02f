#include "platform/console.h"

#include <csignal>
#include <cstdlib>
#include <string_view>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace platform {

namespace {

bool takes_sequences(int stream)
{
    const char* const terminal = std::getenv("TERM");
    return ::isatty(stream) == 1 && (terminal == nullptr || std::string_view(terminal) != "dumb");
}

std::size_t columns_of(int stream)
{
    winsize size = {};
    return ::ioctl(stream, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

} // namespace

// A terminal here takes UTF-8 and escape sequences as it is.

utf8_console::utf8_console() = default;
utf8_console::~utf8_console() = default;

std::uint32_t enable_error_console_sequences()
{
    return 0;
}

void restore_error_console_mode(std::uint32_t) {}

bool error_stream_takes_sequences()
{
    return takes_sequences(STDERR_FILENO);
}

bool standard_output_takes_sequences()
{
    return takes_sequences(STDOUT_FILENO);
}

bool standard_output_is_pipe()
{
    struct stat status = {};
    return ::fstat(STDOUT_FILENO, &status) == 0 &&
           (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode));
}

std::size_t output_columns()
{
    return columns_of(STDOUT_FILENO);
}

std::size_t error_columns()
{
    return columns_of(STDERR_FILENO);
}

bool hold_standard_streams()
{
    // A reader that has gone is told by the write that fails.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN); // so is a file that may not grow
    const bool has_output = ::fcntl(STDOUT_FILENO, F_GETFD) != -1;
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        // A descriptor that is opened is the lowest free one, which is this stream's.
        if (::fcntl(stream, F_GETFD) == -1 &&
            ::open("/dev/null", stream == STDIN_FILENO ? O_RDONLY : O_WRONLY) < 0) {
            std::_Exit(255); // without it the streams are not safe to use
        }
    }
    return has_output;
}

bool set_standard_input_binary()
{
    return true;
}

bool set_standard_output_binary()
{
    return true;
}

} // namespace platform
