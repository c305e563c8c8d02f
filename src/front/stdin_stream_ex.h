#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "files/file_tree.h"
#include "io/notice.h"
#include "io/stdin_stream.h"
#include "request/cmd_params.h"

namespace front {

// The entries that a list form works on: the lines of standard input or, once a walk was started,
// the files below a folder. Paths are UTF-8.
class stdin_stream_ex : public io::stdin_stream {
public:
    // Reads lines of `input`. `options` must outlive the stream or its next reset(), and `tree` the
    // stream.
    stdin_stream_ex(const request::cmd_params& options, files::file_tree& tree,
                    io::notices& notices, std::FILE* input = stdin) noexcept
        : stdin_stream(notices, input), tree_(tree), options_(&options)
    {}

    // From now on the entries are the files below `path` that the filters accept. `depth` is the
    // number of levels of subfolders that are entered; 0 for the files of `path` alone. What an
    // earlier walk left is dropped. Where the options tell databases by their content these alone are
    // given, and the streams beside a file that are some. Files that were deleted come last, where the options want them. False,
    // and no walk, for an empty path.
    bool start_walk(const std::string& path, std::uint32_t depth,
                    const std::vector<request::filter_entry>& filters);

    // Back to the lines of the input; a walk, its filters and the options are forgotten.
    void reset();

    // The next line, as the base gives it, or the next path of the walk, as it is. A walk goes into
    // the last folder first, and through the files of each folder from the last to the first.
    bool stdin_list_next(std::string& out) override;

private:
    struct pending_directory {
        std::string path;
        std::uint32_t depth = 0;    // 0 for the walk's root
        bool is_of_deleted = false; // whose folders are entered in any case
    };

    void forget_walk();
    bool next_entry(std::string& out);
    void enter(const pending_directory& directory);
    void take_file(std::string path);
    void take_streams(const std::string& path);
    bool holds_database(const std::string& path) const;
    bool accept_path(std::string& path, bool is_root) const;

    files::file_tree& tree_;
    std::vector<pending_directory> pending_dirs_; // taken from the end, as are the files
    std::vector<std::string> ready_files_;
    std::uint32_t max_depth_ = 1;
    std::vector<request::filter_entry> filters_;
    bool directory_mode_ = false;
    const request::cmd_params* options_;
};

} // namespace front
