#include "platform/console.h"

namespace platform {

// A terminal here takes UTF-8 and escape sequences as it is.

utf8_console::utf8_console() = default;
utf8_console::~utf8_console() = default;

std::uint32_t enable_error_console_sequences()
{
    return 0;
}

void restore_error_console_mode(std::uint32_t) {}

bool set_standard_input_binary()
{
    return true;
}

} // namespace platform
