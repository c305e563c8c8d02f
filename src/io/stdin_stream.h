#pragma once

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>

#include "io/notice.h"

namespace io {

// Standard input as a list of entries, one a line. It is UTF-8, or UTF-16 with a byte order mark of
// either order; the mark is no part of an entry.
class stdin_stream {
public:
    // Without a stream every read answers false.
    explicit stdin_stream(io::notices& notices, std::FILE* input = stdin) noexcept
        : notices_(notices), input_(input)
    {}
    virtual ~stdin_stream() = default;

    // The next line without any CR and LF at its end, and without a pair of double quotes around
    // it. A line of more than 4095 bytes of UTF-8 comes in several entries, and of one that holds a
    // NUL nothing behind that is given; both are said to be failures, as is an input that cannot be
    // read. False at the end of the input.
    virtual bool stdin_list_next(std::string& out);

protected:
    io::notices& notices_;

private:
    enum class encoding { unknown, utf8, utf16_little, utf16_big };

    void find_encoding();
    int next_byte();
    bool read_character();
    std::optional<char16_t> read_unit();
    void skip_behind_nul();

    std::FILE* input_;
    encoding encoding_ = encoding::unknown;
    std::string waiting_; // bytes of UTF-8, of which `taken_` were taken
    std::size_t taken_ = 0;
    std::optional<char16_t> unit_; // that was read too early
    std::uint64_t line_ = 1;
    bool continues_line_ = false; // what comes next is no whole line
    bool is_long_line_told_ = false;
};

} // namespace io
