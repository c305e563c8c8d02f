#include "front/entry_turns.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace front {

namespace {

// Bytes, beside what stands in them.
constexpr std::size_t entry_itself = 1024;
constexpr std::size_t message_itself = 64;
constexpr std::size_t first_block = 0x1000;
constexpr std::size_t later_block = 0x10000;

} // namespace

entry_turns::entry_turns(const input_output& to, bool is_prompt)
    : to_(to), is_prompt_(is_prompt), state_(to.place.state_before())
{}

entry_turns::~entry_turns()
{
    to_.place.go_on_from(state_);
}

// A thread that waits leaves its place to another.
template <typename condition>
void entry_turns::wait(std::unique_lock<std::mutex>& lock, condition&& is_met)
{
    const auto may_go_on = [&] { return is_stopped_ || is_met(); };
    if (!may_go_on()) {
        to_.threads.end_work();
        changed_.wait(lock, may_go_on);
        to_.threads.begin_work();
    }
}

void entry_turns::charge(entry_output& entry, std::size_t bytes) noexcept
{
    waiting_ += bytes;
    entry.charged_ += bytes;
}

void entry_turns::release(entry_output& entry) noexcept
{
    waiting_ -= std::exchange(entry.charged_, 0);
    changed_.notify_all();
}

void entry_turns::wait_for_room()
{
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return is_stopped_ || waiting_ < most_waiting; });
}

entry_output& entry_turns::add(std::string path)
{
    auto made = std::make_unique<entry_output>(*this, std::move(path));
    const std::scoped_lock lock(mutex_);
    entry_output& entry = *entries_.emplace_back(std::move(made));
    entry.number_ = ++added_;
    if (entries_.size() == 1) {
        begin_turn(entry);
    } else {
        charge(entry, entry_itself + entry.path().size());
    }
    return entry;
}

// Its messages come at once: they tell what is in work.
void entry_turns::begin_turn(entry_output& entry)
{
    entry.messages_.say_all();
    entry.has_turn_ = true;
    changed_.notify_all();
}

void entry_turns::end_turn(entry_output& entry)
{
    if (entry.state_after_) {
        state_ = *entry.state_after_;
    }
    if (entry.messages_.failed()) {
        to_.notices.note_failure();
    }
    was_any_of_use_ |= entry.was_of_use_;
    release(entry);
    entries_.pop_front();
}

// Whoever ends a turn hands on, too, what was done ahead.
void entry_turns::finish(entry_output& entry)
{
    std::unique_lock lock(mutex_);
    entry.is_done_ = true;
    entry_output* first = entry.has_turn_ ? &entry : nullptr;
    while (first != nullptr && first->is_done_ && !is_stopped_) {
        lock.unlock();
        first->hand_on();
        lock.lock();
        end_turn(*first);
        first = entries_.empty() ? nullptr : entries_.front().get();
        if (first != nullptr && !is_stopped_) {
            begin_turn(*first);
        }
    }
    if (entries_.empty() && is_prompt_) {
        to_.console.flush();
        is_stopped_ = is_stopped_ || !to_.console.good();
    }
}

void entry_turns::stop()
{
    const std::scoped_lock lock(mutex_);
    is_stopped_ = true;
    changed_.notify_all();
}

bool waiting_text::good() const noexcept
{
    return !entry_.turns_.is_stopped();
}

void waiting_text::pass(std::string_view text)
{
    to_.long_text(text);
    was_handed_on_ |= !text.empty();
    if (!to_.good()) {
        entry_.turns_.stop();
    }
}

void waiting_text::hand_on()
{
    for (; !blocks_.empty(); blocks_.pop_front()) {
        pass(blocks_.front().view());
    }
    pass(view());
    text_buffer::note_handed_on(view().size());
    clear();
}

void waiting_text::set_aside()
{
    if (!view().empty()) {
        uni::text_buffer& block = blocks_.emplace_back();
        text_buffer::note_handed_on(view().size());
        swap(block);
    }
}

void waiting_text::drop() noexcept
{
    blocks_.clear();
    clear();
}

void waiting_text::pass_text(std::string_view text)
{
    if (text.size() < worth_no_copy || !entry_.has_turn_) {
        text_buffer::pass_text(text);
        return;
    }
    hand_on();
    pass(text);
    text_buffer::note_handed_on(text.size());
    entry_.note_handed_on();
}

void waiting_text::make_room(std::size_t count)
{
    if (!good()) {
        clear(); // it is not wanted any more
    } else if (entry_.has_turn_) {
        hand_on();
        entry_.note_handed_on();
    } else {
        set_aside();
    }
    const std::size_t wanted = std::max(count, total() == 0 ? first_block : later_block);
    if (capacity() < wanted) {
        entry_.reserve(wanted);
        grow(wanted);
    }
}

entry_output::entry_output(entry_turns& turns, std::string path)
    : turns_(turns), path_(std::move(path)), report_(*this, turns.to_.report),
      console_(*this, turns.to_.console), messages_(*this), streams_(make_streams())
{}

input_output entry_output::make_streams()
{
    const bool is_one = &turns_.to_.console == &turns_.to_.report;
    return {report_, is_one ? report_ : console_, messages_,         log_,
            *this,   turns_.to_.threads,          turns_.to_.counts, kept_};
}

void entry_output::messages::say(const std::string& message)
{
    entry_.turns_.to_.notices.say("%s", message.c_str());
    said_.push_back(message);
}

void entry_output::messages::say_all()
{
    for (const std::string& message : kept_) {
        say(message);
    }
    kept_.clear();
}

void entry_output::messages::take(std::string_view message)
{
    std::string text(message);
    const std::scoped_lock lock(entry_.turns_.mutex_);
    if (const auto again = std::ranges::find(to_skip_, text); again != to_skip_.end()) {
        to_skip_.erase(again);
    } else if (entry_.has_turn_) {
        say(text);
    } else {
        entry_.turns_.charge(entry_, message_itself + text.size());
        kept_.push_back(std::move(text));
    }
}

// Of what was written and cannot be forgotten names stay taken.
std::string entry_output::next_name()
{
    std::string name = "s" + std::to_string(number_);
    return names_++ == 0 ? name : name + "-" + std::to_string(names_);
}

form::stream_state entry_output::state_before()
{
    std::unique_lock lock(turns_.mutex_);
    turns_.wait(lock, [this] { return has_turn_ || turns_.state_.is_settled(); });
    return turns_.state_;
}

void entry_output::unfollow(const form::writer& form) noexcept
{
    state_after_ = form.state();
    form_ = nullptr;
}

// Waits for room for so many bytes, or the entry's turn.
void entry_output::reserve(std::size_t bytes)
{
    std::unique_lock lock(turns_.mutex_);
    turns_.wait(lock, [&] { return has_turn_ || turns_.waiting_ + bytes <= turns_.most_waiting; });
    if (!has_turn_) {
        turns_.charge(*this, bytes);
    }
}

// The state of the stream may be settled long before this entry is done.
void entry_output::note_handed_on()
{
    const std::scoped_lock lock(turns_.mutex_);
    turns_.release(*this);
    if (form_ != nullptr) {
        turns_.state_ = form_->state();
    }
}

void entry_output::hand_on()
{
    try {
        report_.hand_on();
        console_.hand_on();
        turns_.to_.log.take(log_);
        if (!kept_.text().empty()) {
            turns_.to_.kept.add(kept_.text());
        }
    } catch (const std::exception&) {
        say_exception();
    }
}

void entry_output::say_exception()
{
    messages_.fail("exception caught on file %s\n", path_.c_str());
}

bool entry_output::begin_anew()
{
    std::unique_lock lock(turns_.mutex_);
    turns_.wait(lock, [this] { return has_turn_.load(); });
    if (turns_.is_stopped_ || report_.was_handed_on() || console_.was_handed_on()) {
        return false;
    }
    report_.drop();
    console_.drop();
    log_.clear();
    kept_.clear();
    state_after_.reset();
    messages_.skip_said();
    turns_.release(*this);
    names_ = 0;
    return true;
}

} // namespace front
