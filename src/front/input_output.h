#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "form/writer.h"
#include "front/diag_log.h"
#include "io/notice.h"
#include "uni/text_buffer.h"
#include "uni/thread_allowance.h"

namespace front {

// The place of an input in the stream of all.
class stream_place {
public:
    virtual ~stream_place() = default;

    // How the inputs before it leave the stream; waits until that is known.
    virtual form::stream_state state_before() = 0;
    // A name that no other writer of the stream has, the same however many threads work.
    virtual std::string next_name() = 0;
    // The writer of this input, which is asked for the state of the stream as long as it is followed.
    virtual void follow(const form::writer& form) = 0;
    // What comes behind begins in that state of the stream.
    virtual void go_on_from(form::stream_state) noexcept {}
    // It ends.
    virtual void unfollow(const form::writer& form) noexcept = 0;
};

// The place of inputs that come one after the other.
class one_by_one : public stream_place {
public:
    explicit one_by_one(form::stream_state state) : state_(state) {}

    form::stream_state state_before() override { return state_; }
    std::string next_name() override { return "s" + std::to_string(++names_); }
    void follow(const form::writer&) override {}
    void go_on_from(form::stream_state state) noexcept override { state_ = state; }
    void unfollow(const form::writer& form) noexcept override { state_ = form.state(); }

private:
    form::stream_state state_;
    std::uint64_t names_ = 0;
};

// How many inputs were told about, and how many could not be, on however many threads.
struct input_counts {
    std::atomic<std::uint64_t> databases = 0;
    std::atomic<std::uint64_t> programs = 0;
    std::atomic<std::uint64_t> caught = 0; // of these
    std::atomic<std::uint64_t> failed = 0;
    std::atomic<std::uint64_t> records = 0; // that were said of them
};

// What the writers of inputs keep for the end of the stream, in the order of these, as far as there is room.
class kept_texts {
public:
    void add(std::string_view text)
    {
        constexpr std::size_t most = 0x400000;
        if (text_.view().size() + text.size() > most) {
            ++left_out_;
        } else {
            text_.text(text);
        }
    }
    void clear() noexcept { text_.clear(); }
    std::string_view text() const noexcept { return text_.view(); }
    std::uint64_t left_out() const noexcept { return left_out_; }

private:
    uni::text_buffer text_;
    std::uint64_t left_out_ = 0;
};

// What one input writes to, and who may help with it.
struct input_output {
    uni::text_buffer& report;
    uni::text_buffer& console; // standard output, which may be the report's buffer
    io::notices& notices;
    diag_log& log;
    stream_place& place;
    uni::thread_allowance& threads;
    input_counts& counts;
    kept_texts& kept;
};

} // namespace front
