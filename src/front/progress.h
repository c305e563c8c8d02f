#pragma once

#include <chrono>
#include <cstddef>
#include <mutex>
#include <string>
#include <string_view>

#include "io/notice.h"
#include "request/cmd_params.h"

namespace front {

// How far a run over many files is: how many are done, how many a second, and what time is left, in one line of the
// terminal, where there is one. Several threads may tell of what they did.
class progress {
public:
    progress(const request::cmd_params& params, io::notices& to);

    // That there are so many files in all.
    void set_total(std::size_t total);
    // That the work on a file has ended.
    void note_done(std::string_view path);

private:
    using clock = std::chrono::steady_clock;

    const bool is_drawn_;
    io::notices& to_;
    const clock::time_point begin_ = clock::now();
    std::mutex mutex_; // holds together what stands below
    clock::time_point drawn_ = {};
    std::size_t total_ = 0; // 0 while that is not known
    std::size_t done_ = 0;
};

// The line: "412 of 1000 files, 35.0 a second, 17 s left: path", cut to that many columns.
std::string progress_text(std::size_t done, std::size_t total, double seconds,
                          std::string_view path, std::size_t columns);

} // namespace front
