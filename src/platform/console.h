#pragma once

#include <cstddef>
#include <cstdint>

namespace platform {

// Sets the console's output code page to UTF-8 while it lives and gives the saved pages back at its
// end. Nothing to do where text is UTF-8 anyway.
class utf8_console {
public:
    utf8_console();
    // NOLINTNEXTLINE(performance-trivially-destructible): it is not on both systems
    ~utf8_console();
    utf8_console(const utf8_console&) = delete;
    utf8_console& operator=(const utf8_console&) = delete;

private:
    // Pages to give back; 0 where there are none.
    [[maybe_unused]] std::uint32_t output_page_ = 0;
    [[maybe_unused]] std::uint32_t input_page_ = 0;
};

// Turns on processed output, wrapping and terminal sequences for the error stream's console and
// gives the mode it had before; 0 when that is not known (no console, or no such modes here).
std::uint32_t enable_error_console_sequences();
void restore_error_console_mode(std::uint32_t mode);

// Whether the error stream is a terminal that takes escape sequences.
bool error_stream_takes_sequences();

// The same of standard output.
bool standard_output_takes_sequences();

// Whether another program reads standard output as it is written.
bool standard_output_is_pipe();

// The width of the terminal behind standard output or the error stream; 0 where there is none.
std::size_t output_columns();
std::size_t error_columns();

// Opens each standard stream that is closed on the null device, so that no file that the run opens
// takes its place. Answers whether standard output was open.
bool hold_standard_streams();

// Lets standard input give its bytes, and standard output take them, untranslated; false on failure.
bool set_standard_input_binary();
bool set_standard_output_binary();

} // namespace platform
