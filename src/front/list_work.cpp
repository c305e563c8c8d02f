#include "front/list_work.h"

#include <utility>

#include "front/filter.h"
#include "platform/console.h"
#include "platform/redirection.h"

namespace front {

list_work::list_work(const request::sdb_opts& options, files::file_tree& tree, outputs& files,
                     const input_output& out, action work, failure_teller tell_failure)
    : options_(options), tree_(tree), files_(files), out_(out), work_(std::move(work)),
      tell_failure_(std::move(tell_failure)),
      // Progress is told of a number of files; what comes through a pipe may be long in coming.
      holds_list_(files.speaks_to_files() || (options.draws_progress && !options.pipe)),
      turns_(out, options.pipe && !holds_list_), progress_(options, out.notices),
      list_(options, tree, heard_)
{}

bool list_work::open()
{
    return options_.pipe ? platform::set_standard_input_binary()
                         : list_.start_walk(options_.enumdir_path, options_.num_subdirs,
                                            options_.filter_list);
}

// Takes the list, or as much of it as may be held, before a byte is written to a stream that may be one
// of its entries; false, and nothing is written, if it is.
bool list_work::take_list_ahead()
{
    constexpr std::size_t most_held = 0x1000000; // bytes
    std::string path;
    for (std::size_t held = 0; held < most_held && !is_all_held_;) {
        is_all_held_ = !list_.stdin_list_next(path);
        if (!is_all_held_) {
            held_.push_back(path);
            held += sizeof(std::string) + path.size();
        }
    }
    const outputs::stream_kind stream = files_.examined_stream(held_);
    if (stream == outputs::stream_kind::none) {
        progress_.set_total(is_all_held_ ? held_.size() : 0);
        heard_.say_all(out_.notices);
        return true;
    }
    out_.report.clear();
    files_.spoil_results();
    if (stream == outputs::stream_kind::output) {
        out_.notices.fail("standard output is examined by this run, aborting\n");
    }
    out_.notices.note_failure();
    return false;
}

list_work::outcome list_work::do_all(std::size_t threads)
{
    is_at_end_ = !open();
    if (holds_list_ && !is_at_end_ && !take_list_ahead()) {
        return outcome::refused;
    }
    most_threads_ = threads;
    do_share();
    for (std::thread& thread : threads_) {
        thread.join();
    }
    if (failure_) {
        std::rethrow_exception(failure_);
    }
    if (turns_.is_stopped()) {
        return outcome::ended_early;
    }
    heard_.say_all(out_.notices);
    return turns_.was_any_of_use() ? outcome::some_of_use : outcome::none_of_use;
}

bool list_work::read_next(std::string& path)
{
    if (taken_ != held_.size()) {
        path = std::move(held_[taken_++]);
        return true;
    }
    return !is_all_held_ && list_.stdin_list_next(path);
}

// The next entry, which knows what was said while it was looked for; null where there is none. If that
// fails the entries before it are still worked on.
entry_output* list_work::take_next()
{
    turns_.wait_for_room();
    const std::scoped_lock lock(mutex_);
    try {
        std::string path;
        is_at_end_ = is_at_end_ || turns_.is_stopped() || !read_next(path);
        if (is_at_end_) {
            return nullptr;
        }
        entry_output& entry = turns_.add(std::move(path));
        heard_.say_all(entry.streams().notices);
        start_another();
        return &entry;
    } catch (...) {
        is_at_end_ = true;
        failure_ = std::current_exception();
        return nullptr;
    }
}

// Where there was an entry there may be more.
void list_work::start_another()
{
    if (threads_.size() + 1 < most_threads_) {
        try {
            threads_.emplace_back([this] { do_share(); });
        } catch (const std::exception&) {
            // Those that could be started do it all.
        }
    }
}

void list_work::do_share() noexcept
{
    try {
        const platform::wow64_redirect_adt redirection; // of this thread
        while (entry_output* const entry = take_next()) {
            work_on(*entry);
            turns_.finish(*entry);
        }
    } catch (...) {
        turns_.stop();
        const std::scoped_lock lock(mutex_);
        is_at_end_ = true;
        failure_ = std::current_exception();
    }
}

void list_work::work_on(entry_output& entry)
{
    const uni::busy_thread busy(out_.threads);
    // Side by side with others there may be too little memory for what there is enough for alone.
    const bool is_done =
        try_work(entry) || (most_threads_ > 1 && entry.begin_anew() && try_work(entry));
    if (!is_done) {
        entry.say_exception();
        tell_failure_(entry.path(), "exception caught", entry.streams());
    }
    progress_.note_done(entry.path());
}

bool list_work::try_work(entry_output& entry)
{
    try {
        if (is_accepted(entry) && work_(entry.path(), entry.streams())) {
            entry.note_use();
        }
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

bool list_work::is_accepted(entry_output& entry)
{
    // A walk has asked the filter already.
    bool open_failed = false;
    const bool passes =
        !options_.pipe ||
        filter_accepts(options_, tree_, open_failed, entry.path(), options_.filter_list) ||
        open_failed;
    if (!passes) {
        return false;
    }
    const outputs::entry kind = files_.check_entry(entry.path(), entry.streams().notices);
    if (kind == outputs::entry::examined) {
        tell_failure_(entry.path(), "is examined by this run", entry.streams());
    }
    return kind == outputs::entry::other && !is_own_stream(entry);
}

// An entry of a list that is too long to be held may turn out late to be what the run writes to. It is
// not read.
bool list_work::is_own_stream(entry_output& entry) const
{
    if (!holds_list_ || is_all_held_) {
        return false;
    }
    const outputs::stream_kind stream = files_.examined_stream({entry.path()});
    if (stream == outputs::stream_kind::output) {
        entry.streams().notices.fail("standard output is examined by this run, aborting\n");
    } else if (stream == outputs::stream_kind::error) {
        entry.streams().notices.note_failure();
    }
    return stream != outputs::stream_kind::none;
}

} // namespace front
