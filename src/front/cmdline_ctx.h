#pragma once

#include <cstdint>
#include <string>

#include "platform/console.h"
#include "request/cmd_params.h"

namespace front {

// Ties a run to its console. At the end of the run it restores the console's mode, wipes a progress
// line, reports the time that the run took and raises the event of -signal, in this order.
class cmdline_ctx {
public:
    cmdline_ctx();
    ~cmdline_ctx();
    cmdline_ctx(const cmdline_ctx&) = delete;
    cmdline_ctx& operator=(const cmdline_ctx&) = delete;

    // Whether there is a standard output to write to.
    bool has_standard_output() const noexcept { return has_standard_output_; }
    // Takes what it needs at the end out of the parsed options.
    void bind_options(const request::cmd_params& params);
    // The time that the run took so far, as its last line tells it.
    std::string elapsed_text() const;

private:
    bool has_standard_output_;
    platform::utf8_console console_;
    std::uint32_t saved_console_mode_;
    bool clear_progress_ = false;
    std::uint64_t start_time_ = 0; // FILETIME ticks
    bool report_elapsed_ = false;
    std::string signal_name_;
};

} // namespace front
