#pragma once

#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace io {

// Wipes a progress line on the error stream, if that is a terminal.
void wipe_progress_line();

// Writes bytes to the error stream at once.
void write_error_text(std::string_view text);

// Where messages for the user go: the one way in which anything is said to them, and in which what
// went wrong reaches the exit value.
class notices {
public:
    virtual ~notices() = default;

    // Says the text made from `format` as printf would, and that the run goes on as if nothing were
    // wrong. A text of more than 4096 bytes is cut to its first 4092, to a whole character, and
    // "...". The user's own text is only ever an argument, never a format; what in it could act on a
    // screen is marked (see uni/marks.h).
    void say(const char* format, ...);
    // The same, and notes that something that was asked for was not done whole.
    void fail(const char* format, ...);
    // Notes just that, where it has been said or nobody is left to hear it.
    void note_failure() noexcept { failed_ = true; }
    bool failed() const noexcept { return failed_; }
    // Draws how far the work is, where a terminal shows that, in place of what was drawn before.
    virtual void draw(std::string_view) {}

protected:
    // Takes a whole message, line end and all.
    virtual void take(std::string_view message) = 0;

private:
    bool failed_ = false;
};

// Says everything on the error stream at once; wipes a progress line first. Several threads may draw while one
// says something.
class error_notices : public notices {
public:
    void draw(std::string_view text) override;

private:
    void take(std::string_view message) override;

    std::mutex mutex_;
};

// Keeps the messages of one input until they may be said.
class kept_notices : public notices {
public:
    void say_all(notices& to);

private:
    void take(std::string_view message) override { messages_.emplace_back(message); }

    std::vector<std::string> messages_;
};

} // namespace io
