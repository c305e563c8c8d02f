#pragma once

#include <cstddef>
#include <string_view>

#include "uni/text_buffer.h"

namespace io {

// The stream that every report writes to. Text gathers in a buffer of `buffer_bytes` and goes out
// in large blocks. Once a block cannot be written the sink is bad: what follows is dropped, and
// whoever writes a report asks good() and stops.
class output_sink : public uni::text_buffer {
public:
    static constexpr std::size_t buffer_bytes = 0x40000;

    bool good() const noexcept final { return good_; }
    void flush() final;

protected:
    // Long text goes out as it is, without a way through the buffer.
    void pass_text(std::string_view text) final;
    // Writes the whole block; false on failure.
    virtual bool write_block(std::string_view block) = 0;
    void make_room(std::size_t count) final;
    void set_bad() noexcept { good_ = false; }

private:
    bool good_ = true;
};

// Standard output, in the platform's text mode.
class standard_output : public output_sink {
public:
    ~standard_output() override;

    // Whether it went bad because nobody reads any more.
    bool reader_is_gone() const noexcept { return reader_is_gone_; }
    // Whether anything was written to it.
    bool was_written_to() const noexcept { return was_written_to_; }

private:
    bool write_block(std::string_view block) override;

    bool reader_is_gone_ = false;
    bool was_written_to_ = false;
};

// Drops everything: for code that must be handed a stream when nothing is wanted.
class null_out_stream : public output_sink {
private:
    bool write_block(std::string_view) override { return true; }
};

} // namespace io
