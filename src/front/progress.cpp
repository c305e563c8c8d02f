#include "front/progress.h"

#include <cstdint>
#include <cstdio>
#include <string>

#include "platform/console.h"
#include "uni/marks.h"
#include "uni/text.h"

namespace front {

namespace {

constexpr std::chrono::milliseconds between_drawings(100);

std::string time_text(double seconds)
{
    const auto whole = static_cast<std::uint64_t>(seconds + 0.5);
    const auto in_two = [](std::uint64_t first, const char* unit, std::uint64_t second,
                           const char* part) {
        return std::to_string(first) + unit + std::to_string(second) + part;
    };
    if (whole < 60) {
        return std::to_string(whole) + " s";
    }
    return whole < 3600 ? in_two(whole / 60, " min ", whole % 60, " s")
                        : in_two(whole / 3600, " h ", whole / 60 % 60, " min");
}

} // namespace

progress::progress(const request::cmd_params& params, io::notices& to)
    : is_drawn_(params.draws_progress), to_(to)
{}

void progress::set_total(std::size_t total)
{
    const std::scoped_lock lock(mutex_);
    total_ = total;
}

void progress::note_done(std::string_view path)
{
    if (!is_drawn_) {
        return;
    }
    const std::scoped_lock lock(mutex_);
    ++done_;
    const clock::time_point now = clock::now();
    if (now - drawn_ < between_drawings) {
        return;
    }
    drawn_ = now;
    const std::chrono::duration<double> passed = now - begin_;
    to_.draw(progress_text(done_, total_, passed.count(), path, platform::error_columns()));
}

std::string progress_text(std::size_t done, std::size_t total, double seconds,
                          std::string_view path, std::size_t columns)
{
    std::string text = std::to_string(done);
    if (total != 0) {
        text += " of " + std::to_string(total);
    }
    text += done == 1 && total == 0 ? " file" : " files";
    if (seconds > 0) {
        const double rate = static_cast<double>(done) / seconds;
        char number[32];
        std::snprintf(number, sizeof number, ", %.1f a second", rate);
        text += number;
        if (total > done) {
            text += ", " + time_text(static_cast<double>(total - done) / rate) + " left";
        }
    }
    text += ": " + uni::marked(path);
    // The last column would bring some terminals to the next line.
    return columns == 0 ? text : std::string(uni::first_columns(text, columns - 1));
}

} // namespace front
