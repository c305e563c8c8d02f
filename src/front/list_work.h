#pragma once

#include <cstddef>
#include <exception>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "front/entry_turns.h"
#include "front/outputs.h"
#include "front/progress.h"
#include "front/stdin_stream_ex.h"
#include "io/notice.h"
#include "request/sdb_opts.h"

namespace front {

// The entries of the list that the options name, which the filter accepts, and the work on each of them.
// Several threads take an entry each; what they write comes out as if one had worked. What flies out of
// the work on an entry ends that, not the list.
class list_work {
public:
    // Does the work on one entry; answers whether that was what the list is made for. Several threads may
    // be in it.
    using action = std::function<bool(const std::string& path, const input_output& out)>;
    // Takes note of an entry that could not be worked on, which was said.
    using failure_teller = std::function<void(const std::string& path, const std::string& reason,
                                              const input_output& out)>;

    list_work(const request::sdb_opts& options, files::file_tree& tree, outputs& files,
              const input_output& out, action work, failure_teller tell_failure);

    // `refused` where nothing may be written, which was said.
    enum class outcome { some_of_use, none_of_use, ended_early, refused };
    // Works with so many threads at the most, the caller's among them.
    outcome do_all(std::size_t threads);

private:
    bool open();
    bool take_list_ahead();
    bool read_next(std::string& path);
    entry_output* take_next();
    void start_another();
    void do_share() noexcept;
    void work_on(entry_output& entry);
    bool try_work(entry_output& entry);
    bool is_accepted(entry_output& entry);
    bool is_own_stream(entry_output& entry) const;

    const request::sdb_opts& options_;
    files::file_tree& tree_;
    outputs& files_;
    const input_output& out_;
    const action work_;
    const failure_teller tell_failure_;
    const bool holds_list_; // it is read ahead before anything is written
    entry_turns turns_;
    progress progress_;
    std::size_t most_threads_ = 1;

    std::mutex mutex_;       // holds together what stands below
    io::kept_notices heard_; // of the list, until the next entry's messages
    stdin_stream_ex list_;
    std::vector<std::string> held_;
    std::size_t taken_ = 0; // of these
    bool is_all_held_ = false;
    bool is_at_end_ = false;
    std::vector<std::thread> threads_; // beside the caller's
    std::exception_ptr failure_;       // that ends the run
};

} // namespace front
