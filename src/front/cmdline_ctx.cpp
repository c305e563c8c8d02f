#include "front/cmdline_ctx.h"

#include <cstdio>

#include "io/fileio.h"
#include "io/notice.h"
#include "platform/host.h"
#include "uni/time.h"

namespace front {

namespace {

std::string elapsed_text(std::uint64_t start)
{
    char text[64];
    const int length = std::snprintf(text, sizeof text, "->%g secs",
                                     uni::seconds_between(start, uni::now_filetime()));
    return {text, static_cast<std::size_t>(length)};
}

void append_text(const std::string& path, const std::string& text)
{
    io::fileio file;
    if (file.open_write(path, true, false, false)) {
        file.output_stream()->text(text);
    }
}

} // namespace

cmdline_ctx::cmdline_ctx() : saved_console_mode_(platform::enable_error_console_sequences()) {}

cmdline_ctx::~cmdline_ctx()
{
    if (saved_console_mode_ != 0) {
        platform::restore_error_console_mode(saved_console_mode_);
    }
    if (clear_progress_) {
        io::write_error_text(io::progress_wipe);
    }
    if (start_time_ != 0) {
        const std::string text = elapsed_text(start_time_);
        if (report_elapsed_) {
            io::write_error_text(text + "\n");
        }
        if (!diag_path_.empty()) {
            append_text(diag_path_, text);
        }
    }
    if (!signal_name_.empty()) {
        platform::raise_named_event(signal_name_);
    }
}

void cmdline_ctx::bind_options(const request::cmd_params& params)
{
    clear_progress_ = params.show_progress;
    diag_path_ = params.log_path;
    report_elapsed_ = params.profile;
    if (params.profile || !diag_path_.empty()) {
        start_time_ = uni::now_filetime();
    }
    signal_name_ = params.signal_name;
}

} // namespace front
