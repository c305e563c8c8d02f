#include "front/stdin_stream_ex.h"

#include <string_view>
#include <utility>

#include "front/discovery.h"
#include "front/filter.h"
#include "platform/directories.h"
#include "uni/text.h"
#include "uni/utf.h"

namespace front {

namespace {

constexpr std::string_view long_prefix = "\\\\?\\";
constexpr std::string_view long_share_prefix = "\\\\?\\UNC\\";

// Whether a path that begins with the long prefix names a device, such as that of a snapshot.
bool is_device_path(std::string_view path)
{
    constexpr std::string_view device_word = "global";
    constexpr std::size_t longest_plain = 46; // units of UTF-16
    return uni::equal_ignoring_case(path.substr(long_prefix.size(), device_word.size()),
                                    device_word) &&
           uni::utf16_from_utf8(path).size() > longest_plain;
}

} // namespace

bool stdin_stream_ex::start_walk(const std::string& path, std::uint32_t depth,
                                 const std::vector<request::filter_entry>& filters)
{
    if (path.empty()) {
        return false;
    }
    forget_walk();
    max_depth_ = depth;
    filters_ = filters;
    directory_mode_ = true;
    std::string root = tree_.walkable_path(path);
    say_copies(tree_, root, notices_);
    accept_path(root, true);
    if (options_ != nullptr && options_->deleted) {
        const std::vector<std::string> volumes = tree_.volumes_at(path);
        for (auto volume = volumes.rbegin(); volume != volumes.rend(); ++volume) {
            pending_dirs_.push_back({folder_of_deleted(*volume), 0, true});
        }
        if (volumes.empty()) {
            notices_.say("not used here: %s\n", "-deleted");
        }
    }
    pending_dirs_.push_back({std::move(root), 0});
    return true;
}

void stdin_stream_ex::reset()
{
    forget_walk();
    options_ = nullptr;
}

void stdin_stream_ex::forget_walk()
{
    pending_dirs_.clear();
    ready_files_.clear();
    max_depth_ = 1;
    filters_.clear();
    directory_mode_ = false;
}

bool stdin_stream_ex::stdin_list_next(std::string& out)
{
    return directory_mode_ ? next_entry(out) : stdin_stream::stdin_list_next(out);
}

bool stdin_stream_ex::next_entry(std::string& out)
{
    out.clear();
    while (ready_files_.empty()) {
        if (pending_dirs_.empty()) {
            return false;
        }
        const pending_directory directory = std::move(pending_dirs_.back());
        pending_dirs_.pop_back();
        enter(directory);
    }
    out = std::move(ready_files_.back());
    ready_files_.pop_back();
    return true;
}

// Links to folders are said, and neither entered nor given out.
void stdin_stream_ex::enter(const pending_directory& directory)
{
    for (const platform::directory_entry& entry : list_in_order(tree_, directory.path, notices_)) {
        std::string path = platform::join_path(directory.path, entry.name);
        if (entry.kind == platform::entry_kind::directory) {
            take_streams(path);
            if (directory.depth < max_depth_ || directory.is_of_deleted) {
                pending_dirs_.push_back(
                    {std::move(path), directory.depth + 1, directory.is_of_deleted});
            }
        } else if (entry.kind == platform::entry_kind::directory_link) {
            say_linked_folder(path, notices_);
        } else if (entry.kind == platform::entry_kind::file_link) {
            say_linked_file(path, notices_);
        } else {
            take_streams(path);
            take_file(std::move(path));
        }
    }
}

void stdin_stream_ex::take_file(std::string path)
{
    if (accept_path(path, false) && holds_database(path)) {
        ready_files_.push_back(std::move(path));
    }
}

void stdin_stream_ex::take_streams(const std::string& path)
{
    if (options_ != nullptr && options_->by_content) {
        std::vector<std::string> streams;
        if (!tree_.list_streams(path, streams)) {
            notices_.fail("Prob reading streams of %s: its record is damaged\n", path.c_str());
        }
        for (std::string& stream : streams) {
            take_file(std::move(stream));
        }
    }
}

// One that cannot be read may be one.
bool stdin_stream_ex::holds_database(const std::string& path) const
{
    return options_ == nullptr || !options_->by_content ||
           begins_as_database(tree_, path).value_or(true);
}

// Asks the filters about a file, not about the root of a walk, and takes the long prefix away, so
// that lists show plain paths; the paths of devices stay whole.
bool stdin_stream_ex::accept_path(std::string& path, bool is_root) const
{
    if (!is_root) {
        bool open_failed = false;
        const bool accepted = options_ != nullptr
                                  ? filter_accepts(*options_, tree_, open_failed, path, filters_)
                                  : filters_.empty();
        if (!accepted && !open_failed) {
            return false;
        }
    }
    if (path.size() > long_prefix.size() && path.starts_with(long_prefix) &&
        !is_device_path(path)) {
        const bool is_share =
            uni::equal_ignoring_case(path.substr(0, long_share_prefix.size()), long_share_prefix);
        path.replace(0, is_share ? long_share_prefix.size() : long_prefix.size(),
                     is_share ? "\\\\" : "");
    }
    return true;
}

} // namespace front
