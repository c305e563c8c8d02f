#include "io/output_file.h"

#include <utility>
#include <vector>

#include "uni/byte_view.h"

namespace io {

namespace {

constexpr std::string_view partial_ending = ".partial";

} // namespace

output_file::~output_file()
{
    give_up();
}

output_file::place output_file::find(const std::string& path, output_mode mode)
{
    const std::size_t last = path.find_last_not_of("/\\");
    place where{platform::find_output(path.substr(0, last + 1)), {}};
    if (mode != output_mode::append && !where.target.is_special) {
        where.partial = where.target.path + std::string(partial_ending);
    }
    return where;
}

bool output_file::open(const place& where, output_mode mode, std::string& reason, line_ends ends)
{
    ends_ = ends;
    where_ = where;
    mode_ = mode;
    const bool is_direct = where.partial.empty();
    const auto existing = is_direct                      ? platform::existing_file::keep
                          : mode == output_mode::replace ? platform::existing_file::renew
                                                         : platform::existing_file::refuse;
    platform::opened_file opened =
        platform::open_for_writing(is_direct ? where.target.path : where.partial, existing);
    descriptor_ = opened.descriptor;
    reason = std::move(opened.reason);
    if (!is_open()) {
        return false;
    }
    if (!where.target.is_special && !platform::hold_file(descriptor_)) {
        reason = "another run writes it";
        close();
        return false;
    }
    return !is_direct || begin_append(reason);
}

bool output_file::begin_append(std::string& reason)
{
    old_length_ = platform::file_length(descriptor_);
    // What has no places is written where it is.
    if (where_.target.is_special) {
        return true;
    }
    if (!platform::seek_end(descriptor_) || old_length_ < 0) {
        reason = "its end is not to be found";
    } else if (end_last_line()) {
        return true;
    } else {
        reason = "its last line could not be ended";
        cut_back();
    }
    close();
    return false;
}

// What was cut off there before does not begin the first line of this run.
bool output_file::end_last_line()
{
    if (old_length_ == 0) {
        return true;
    }
    const std::string_view line_end = ends_ == line_ends::with_return ? "\r\n" : "\n";
    std::uint8_t last = 0;
    const platform::opened_file written = platform::open_for_reading(where_.target.path);
    const platform::read_result got =
        platform::read_file(written.descriptor, {&last, 1}, old_length_ - 1);
    if (written.descriptor >= 0) {
        platform::close_file(written.descriptor);
    }
    return got.count == 1 &&
           (last == '\n' || platform::write_file(descriptor_, uni::bytes_of(line_end)));
}

// Takes what stands in the partial file, which is held, to the end of the file itself.
bool output_file::append_partial()
{
    std::vector<std::uint8_t> block(buffer_bytes);
    platform::opened_file partial = platform::open_for_reading(where_.partial);
    const int written = std::exchange(descriptor_, -1);
    std::string reason;
    platform::opened_file target =
        platform::open_for_writing(where_.target.path, platform::existing_file::keep);
    descriptor_ = target.descriptor;
    bool is_whole = partial.descriptor >= 0 && is_open() && platform::hold_file(descriptor_) &&
                    begin_append(reason);
    for (std::int64_t at = 0; is_whole;) {
        const platform::read_result got = platform::read_file(partial.descriptor, block, at);
        at += static_cast<std::int64_t>(got.count);
        is_whole =
            !got.failed && platform::write_file(descriptor_, std::span(block).first(got.count));
        if (got.count < block.size()) {
            break;
        }
    }
    if (is_open()) {
        if (!is_whole) {
            cut_back();
        }
        is_whole &= close();
    }
    if (partial.descriptor >= 0) {
        platform::close_file(partial.descriptor);
    }
    is_whole &= platform::close_file(written);
    return is_whole && platform::remove_file(where_.partial);
}

// Takes what this run appended from the file again, and nothing else.
void output_file::cut_back()
{
    if (old_length_ >= 0 && platform::file_length(descriptor_) > old_length_) {
        platform::cut_file(descriptor_, old_length_);
    }
}

bool output_file::write_block(std::string_view block)
{
    if (ends_ == line_ends::as_they_are) {
        return is_open() && platform::write_file(descriptor_, uni::bytes_of(block));
    }
    translated_.clear();
    while (!block.empty()) {
        const std::size_t line = block.find('\n');
        translated_.append(block.substr(0, line));
        if (line == std::string_view::npos) {
            break;
        }
        translated_.append("\r\n");
        block.remove_prefix(line + 1);
    }
    return is_open() && platform::write_file(descriptor_, uni::bytes_of(translated_));
}

bool output_file::close()
{
    return platform::close_file(std::exchange(descriptor_, -1));
}

bool output_file::finish()
{
    flush();
    if (!good()) {
        give_up();
        return false;
    }
    if (where_.partial.empty()) {
        return close();
    }
    if (mode_ == output_mode::append_late) {
        return append_partial();
    }
    if (!platform::is_file_at(descriptor_, where_.partial)) {
        close(); // it is another's by now
        return false;
    }
    if (where_.target.exists) {
        platform::take_rights(descriptor_, where_.target.path);
    }
    return close() && platform::replace_file(where_.partial, where_.target.path);
}

void output_file::give_up()
{
    if (!is_open()) {
        return;
    }
    set_bad();
    flush(); // drops what is left
    if (mode_ == output_mode::append && !where_.target.is_special) {
        cut_back();
    }
    close();
}

} // namespace io
