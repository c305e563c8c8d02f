#pragma once

#include <cstdio>
#include <string>

namespace io {

// Standard input as a list of entries, one a line.
class stdin_stream {
public:
    // Without a stream every read answers false.
    explicit stdin_stream(std::FILE* input = stdin) noexcept : input_(input) {}
    virtual ~stdin_stream() = default;

    // The next line without any CR and LF at its end. A line of more than 4095 bytes comes in
    // several entries. False at the end of the input.
    virtual bool stdin_list_next(std::string& out);

private:
    std::FILE* input_;
};

} // namespace io
