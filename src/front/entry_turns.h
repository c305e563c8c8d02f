#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "front/input_output.h"

namespace front {

class entry_output;

// The turns of the entries of a list, which several threads work on: whatever these do first, what the
// entries write comes out in the order of the list. The entry whose turn it is writes straight to where
// all go; what others write waits, so many bytes of it in all: then whoever writes waits himself.
class entry_turns {
public:
    static constexpr std::size_t most_waiting = 0x4000000;

    // With `is_prompt` standard output gets at once what was written to it, when no entry is left.
    entry_turns(const input_output& to, bool is_prompt);
    ~entry_turns();
    entry_turns(const entry_turns&) = delete;
    entry_turns& operator=(const entry_turns&) = delete;

    // Waits until one entry more may be begun.
    void wait_for_room();
    // Gives the entry that comes next in the list a place.
    entry_output& add(std::string path);
    // To be called when the work on an entry is done, which is gone then.
    void finish(entry_output& entry);
    // Lets no further entry have its turn: nothing more is wanted.
    void stop();
    bool is_stopped() const noexcept { return is_stopped_; }

    // Whether an entry that had its turn was of use.
    bool was_any_of_use() const noexcept { return was_any_of_use_; }

private:
    friend class entry_output;

    template <typename condition>
    void wait(std::unique_lock<std::mutex>& lock, condition&& is_met);
    void charge(entry_output& entry, std::size_t bytes) noexcept;
    void release(entry_output& entry) noexcept;
    void begin_turn(entry_output& entry);
    void end_turn(entry_output& entry);

    const input_output& to_;
    const bool is_prompt_;
    std::atomic<bool> is_stopped_ = false;
    bool was_any_of_use_ = false;

    std::mutex mutex_; // holds together what stands below, and all messages
    std::condition_variable changed_;
    std::deque<std::unique_ptr<entry_output>> entries_; // the first has its turn
    std::uint64_t added_ = 0;
    form::stream_state state_; // that the first one begins in, or has come to
    std::size_t waiting_ = 0;  // bytes
};

// A text of one entry on its way to where all go.
class waiting_text : public uni::text_buffer {
public:
    waiting_text(entry_output& entry, uni::text_buffer& to) : entry_(entry), to_(to) {}

    bool good() const noexcept final;

    // Hands on what waits; in the entry's turn alone.
    void hand_on();
    bool was_handed_on() const noexcept { return was_handed_on_; }
    // Forgets what waits.
    void drop() noexcept;

private:
    void pass_text(std::string_view text) final;
    void make_room(std::size_t count) final;
    void set_aside();
    void pass(std::string_view text);

    entry_output& entry_;
    uni::text_buffer& to_;
    std::deque<uni::text_buffer> blocks_; // in front of what the buffer holds
    bool was_handed_on_ = false;
};

// What one entry of a list writes to. It is used by one thread, but for what its turns do with it.
class entry_output final : private stream_place {
public:
    entry_output(entry_turns& turns, std::string path);

    const std::string& path() const noexcept { return path_; }
    const input_output& streams() const noexcept { return streams_; }
    // That it was what the list is made for.
    void note_use() noexcept { was_of_use_ = true; }

    // Tells that an exception ended the work on it.
    void say_exception();
    // Forgets what it wrote, and waits for its turn to write that again. False if it cannot be forgotten any
    // more.
    bool begin_anew();

private:
    friend class entry_turns;
    friend class waiting_text;

    // Its messages, which wait like its texts.
    class messages : public io::notices {
    public:
        explicit messages(entry_output& entry) : entry_(entry) {}
        void say_all();
        // What was said is not said again.
        void skip_said() noexcept { to_skip_.swap(said_); }

    private:
        void take(std::string_view message) override;
        void say(const std::string& message);

        entry_output& entry_;
        std::vector<std::string> kept_;
        std::vector<std::string> said_;
        std::vector<std::string> to_skip_;
    };

    input_output make_streams();
    form::stream_state state_before() override;
    std::string next_name() override;
    void follow(const form::writer& form) override { form_ = &form; }
    void unfollow(const form::writer& form) noexcept override;

    void reserve(std::size_t bytes);
    void note_handed_on();
    void hand_on();

    entry_turns& turns_;
    const std::string path_;
    std::uint64_t number_ = 0; // in the list, from 1
    std::uint64_t names_ = 0;
    waiting_text report_;
    waiting_text console_;
    messages messages_;
    diag_log log_;
    kept_texts kept_;
    const input_output streams_;
    const form::writer* form_ = nullptr;
    std::optional<form::stream_state> state_after_;
    bool was_of_use_ = false;
    std::atomic<bool> has_turn_ = false;
    bool is_done_ = false;
    std::size_t charged_ = 0; // bytes that wait
};

} // namespace front
