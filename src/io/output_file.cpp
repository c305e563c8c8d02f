#include "io/output_file.h"

#include <utility>

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

bool output_file::open(const place& where, output_mode mode, std::string& reason)
{
    where_ = where;
    mode_ = mode;
    const bool is_direct = where.partial.empty();
    const auto existing = is_direct                            ? platform::existing_file::keep
                          : mode == output_mode::replace_fresh ? platform::existing_file::refuse
                                                               : platform::existing_file::renew;
    platform::opened_file opened =
        platform::open_for_writing(is_direct ? where.target.path : where.partial, existing);
    descriptor_ = opened.descriptor;
    reason = std::move(opened.reason);
    if (!is_open()) {
        return false;
    }
    if (is_direct) {
        old_length_ = platform::file_length(descriptor_);
        // What has no places is written where it is.
        if ((!platform::seek_end(descriptor_) || old_length_ < 0) && !where.target.is_special) {
            reason = "its end is not to be found";
            close();
            return false;
        }
    }
    return true;
}

bool output_file::write_block(std::string_view block)
{
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
        platform::cut_file(descriptor_, old_length_);
    }
    close();
}

} // namespace io
