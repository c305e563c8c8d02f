#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace io {

// Wipes a progress line on the error stream.
inline constexpr std::string_view progress_wipe = "\x1b[2K\r                           \r";

// Writes bytes to the error stream at once.
void write_error_text(std::string_view text);

// Where messages for the user go: the one way in which anything is said to them.
class notices {
public:
    virtual ~notices() = default;

    // Says the text made from `format` as printf would. A text of more than 4096 characters is not
    // said at all. The user's own text is only ever an argument, never a format.
    void say(const char* format, ...);

protected:
    // Takes a whole message, line end and all.
    virtual void take(std::string_view message) = 0;
};

// Says everything on the error stream at once; wipes a progress line first.
notices& error_stream();

// Keeps the messages of one input until they may be said.
class kept_notices : public notices {
public:
    void say_all(notices& to);

private:
    void take(std::string_view message) override { messages_.emplace_back(message); }

    std::vector<std::string> messages_;
};

} // namespace io
