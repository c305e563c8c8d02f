#include "front/cmdline_ctx.h"

#include <cstdio>

#include "io/notice.h"
#include "platform/host.h"
#include "uni/time.h"

namespace front {

cmdline_ctx::cmdline_ctx()
    : has_standard_output_(platform::hold_standard_streams()),
      saved_console_mode_(platform::enable_error_console_sequences())
{}

cmdline_ctx::~cmdline_ctx()
{
    if (clear_progress_) {
        io::wipe_progress_line();
    }
    if (saved_console_mode_ != 0) { // in which the wipe may show as it stands
        platform::restore_error_console_mode(saved_console_mode_);
    }
    if (report_elapsed_) {
        io::write_error_text(elapsed_text() + "\n");
    }
    if (!signal_name_.empty()) {
        platform::raise_named_event(signal_name_);
    }
}

void cmdline_ctx::bind_options(const request::cmd_params& params)
{
    clear_progress_ = params.show_progress;
    report_elapsed_ = params.profile;
    start_time_ = uni::now_filetime();
    signal_name_ = params.signal_name;
}

std::string cmdline_ctx::elapsed_text() const
{
    char text[64];
    const int length = std::snprintf(text, sizeof text, "->%g secs",
                                     uni::seconds_between(start_time_, uni::now_filetime()));
    return {text, static_cast<std::size_t>(length)};
}

} // namespace front
