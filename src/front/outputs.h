#pragma once

#include <atomic>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "files/file_tree.h"
#include "front/diag_log.h"
#include "io/notice.h"
#include "io/output_file.h"
#include "platform/files.h"
#include "request/sdb_opts.h"

namespace front {

// The files that a run writes: its results and its log. They are opened when it is known what the
// run reads, and take their places when it ends.
class outputs {
public:
    // `last_of_log` gives the text that ends the log.
    outputs(const request::sdb_opts& options, files::file_tree& tree, diag_log& log,
            std::function<std::string()> last_of_log);

    // A standard stream that is one of these files, to which not a byte may be written, not of a
    // message either.
    enum class stream_kind { none, output, error };
    stream_kind examined_stream(const std::vector<std::string>& inputs) const;
    // Whether a standard stream is a file at all, which may be an entry of a list.
    bool speaks_to_files() const noexcept { return output_ || error_; }

    // Whether the run would read what it is to write, or write one file as two; says so. The paths
    // are those that are known before the run begins.
    bool are_in_the_way(const std::vector<std::string>& inputs, io::notices& notices);
    // Opens what was asked for; false, and said, if the results cannot be written.
    bool open(io::line_ends ends_of_results, io::notices& notices);

    // The results file; null for standard output.
    io::output_sink* results() noexcept { return results_.is_open() ? &results_ : nullptr; }

    // What an entry of a list is to the run's own files.
    enum class entry { other, examined, own_partial };
    // An entry that is one of the files is refused, and the files are not put in their places. Several
    // threads may ask.
    entry check_entry(const std::string& path, io::notices& notices);

    // Leaves the results beside their place at the end.
    void spoil_results() noexcept { results_are_spoilt_ = true; }

    // Puts the log in its place, behind which nothing is written to it; the other puts everything there.
    // What could not be written is said.
    void finish_log(io::notices& notices);
    void finish(io::notices& notices);
    // Leaves the results where they are, which is said. For a run that an exception ends.
    void give_up(io::notices& notices);

private:
    // One of the files, with what is in its place before the run.
    struct planned {
        std::string name; // as the user named it
        io::output_file::place where;
        std::optional<platform::file_id> target;
        std::optional<platform::file_id> partial; // as it was, or as the run made it
    };
    bool are_one_file(io::notices& notices) const;
    bool are_streams(io::notices& notices) const;
    // Of all that the run reads, the list on standard input too.
    std::vector<std::optional<platform::file_id>>
    identities(const std::vector<std::string>& inputs) const;
    void say_not_written(io::notices& notices) const;
    std::optional<planned> plan(const std::string& path, io::output_mode mode) const;
    io::output_mode mode_of_results() const;
    io::output_mode mode_of_log() const;

    const request::sdb_opts& options_;
    files::file_tree& tree_;
    diag_log& log_;
    std::function<std::string()> last_of_log_;
    io::output_file results_;
    std::optional<planned> planned_results_;
    std::optional<planned> planned_log_;
    std::atomic<bool> results_are_spoilt_ = false; // the run read what is in their place
    std::atomic<bool> log_is_spoilt_ = false;      // the same
    bool is_written_ = false;
    bool is_log_finished_ = false;
    std::optional<platform::file_id> output_; // standard output, where that is a file
    std::optional<platform::file_id> error_;  // the same
};

} // namespace front
