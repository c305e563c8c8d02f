#include "front/outputs.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "uni/paths.h"
#include "uni/text.h"

namespace front {

namespace {

constexpr const char* examined_words = "%s is examined by this run, aborting\n";

// Whether two paths name one file, which need not be there yet. Letter case counts only among files
// that are.
bool lead_to_one_file(const std::string& a, const std::string& b)
{
    const auto id = platform::identify_file(a);
    const auto other = platform::identify_file(b);
    if (id || other) {
        return id == other;
    }
    std::string folder, other_folder, name, other_name;
    return uni::split_path(a, folder, name) && uni::split_path(b, other_folder, other_name) &&
           uni::equal_ignoring_case(name, other_name) &&
           platform::identify_file(folder) == platform::identify_file(other_folder);
}

} // namespace

outputs::outputs(const request::sdb_opts& options, files::file_tree& tree, diag_log& log,
                 std::function<std::string()> last_of_log)
    : options_(options), tree_(tree), log_(log), last_of_log_(std::move(last_of_log)),
      output_(platform::identify_stream(platform::standard_output_descriptor)),
      error_(platform::identify_stream(platform::standard_error_descriptor))
{}

// A list may name the partial file later, so one that is there already is not touched.
io::output_mode outputs::mode_of_log() const
{
    return options_.is_list_form() ? io::output_mode::replace_fresh : io::output_mode::replace;
}

io::output_mode outputs::mode_of_results() const
{
    if (!options_.append) {
        return mode_of_log();
    }
    return options_.is_list_form() ? io::output_mode::append_late : io::output_mode::append;
}

std::optional<outputs::planned> outputs::plan(const std::string& path, io::output_mode mode) const
{
    if (path.empty()) {
        return std::nullopt;
    }
    planned made{path, io::output_file::find(path, mode), {}, {}};
    made.target = platform::identify_file(made.where.target.path);
    if (!made.where.target.is_special) {
        made.partial = platform::identify_file(made.where.partial);
    }
    return made;
}

std::vector<std::optional<platform::file_id>>
outputs::identities(const std::vector<std::string>& inputs) const
{
    std::vector<std::optional<platform::file_id>> ids;
    for (const std::string& path : inputs) {
        std::ranges::copy(tree_.identify(path), std::back_inserter(ids));
    }
    if (options_.pipe) {
        ids.push_back(platform::identify_stream(platform::standard_input_descriptor));
    }
    std::erase(ids, std::nullopt);
    return ids;
}

outputs::stream_kind outputs::examined_stream(const std::vector<std::string>& inputs) const
{
    if (!speaks_to_files()) {
        return stream_kind::none;
    }
    const auto ids = identities(inputs);
    const auto is_examined = [&](const std::optional<platform::file_id>& stream) {
        return std::ranges::find(ids, stream) != ids.end();
    };
    // Of both the error stream is told, as nothing may be said any more.
    return is_examined(error_)    ? stream_kind::error
           : is_examined(output_) ? stream_kind::output
                                  : stream_kind::none;
}

bool outputs::are_in_the_way(const std::vector<std::string>& inputs, io::notices& notices)
{
    planned_results_ = plan(options_.out_path, mode_of_results());
    planned_log_ = plan(options_.log_path, mode_of_log());
    const std::vector<std::optional<platform::file_id>> ids = identities(inputs);
    const auto is_examined = [&](const std::optional<platform::file_id>& id) {
        return std::ranges::find(ids, id) != ids.end();
    };
    for (const auto* const file : {&planned_results_, &planned_log_}) {
        if (*file && (is_examined((*file)->target) || is_examined((*file)->partial))) {
            notices.fail(examined_words, (*file)->name.c_str());
            return true;
        }
    }
    return are_one_file(notices) || are_streams(notices);
}

bool outputs::are_one_file(io::notices& notices) const
{
    if (!planned_results_ || !planned_log_ || planned_results_->where.target.is_special) {
        return false;
    }
    const io::output_file::place& results = planned_results_->where;
    const io::output_file::place& log = planned_log_->where;
    for (const std::string* const path : {&results.target.path, &results.partial}) {
        for (const std::string* const log_path : {&log.target.path, &log.partial}) {
            if (lead_to_one_file(*path, *log_path)) {
                notices.fail("%s cannot hold both results and log, aborting\n",
                             planned_results_->name.c_str());
                return true;
            }
        }
    }
    return false;
}

// What a stream wrote would be lost when a file takes its place.
bool outputs::are_streams(io::notices& notices) const
{
    for (const auto* const file : {&planned_results_, &planned_log_}) {
        if (!*file || (*file)->where.target.is_special) {
            continue;
        }
        for (const auto& stream : {output_, error_}) {
            if (stream && (stream == (*file)->target || stream == (*file)->partial)) {
                notices.fail("%s is a standard stream of this run too, aborting\n",
                             (*file)->name.c_str());
                return true;
            }
        }
    }
    return false;
}

bool outputs::open(io::line_ends ends_of_results, io::notices& notices)
{
    std::string reason;
    if (planned_log_ && !log_.open(planned_log_->where, mode_of_log(), reason)) {
        notices.fail("prob opening log %s: %s\n", planned_log_->name.c_str(), reason.c_str());
        planned_log_.reset();
    }
    if (planned_results_ &&
        !results_.open(planned_results_->where, mode_of_results(), reason, ends_of_results)) {
        notices.fail("prob opening file %s for output, aborting\n", planned_results_->name.c_str());
        notices.fail("%s: %s\n",
                     (planned_results_->where.partial.empty() ? planned_results_->name
                                                              : planned_results_->where.partial)
                         .c_str(),
                     reason.c_str());
        return false;
    }
    for (auto* const file : {&planned_results_, &planned_log_}) {
        if (*file) {
            (*file)->partial = platform::identify_file((*file)->where.partial);
        }
    }
    return true;
}

outputs::entry outputs::check_entry(const std::string& path, io::notices& notices)
{
    if (!planned_results_ && !planned_log_) {
        return entry::other;
    }
    const std::vector<platform::file_id> ids = tree_.identify(path);
    const auto is_read = [&](const std::optional<platform::file_id>& id) {
        return id && std::ranges::find(ids, *id) != ids.end();
    };
    for (auto* const file : {&planned_results_, &planned_log_}) {
        if (!*file) {
            continue;
        }
        if (is_read((*file)->partial)) {
            return entry::own_partial;
        }
        if (is_read((*file)->target)) {
            notices.fail(examined_words, (*file)->name.c_str());
            (file == &planned_results_ ? results_are_spoilt_ : log_is_spoilt_) = true;
            return entry::examined;
        }
    }
    return entry::other;
}

void outputs::give_up(io::notices& notices)
{
    if (planned_results_ && !is_written_) {
        results_.flush();
        results_.give_up();
        say_not_written(notices);
    }
}

void outputs::say_not_written(io::notices& notices) const
{
    const std::string& partial = planned_results_->where.partial;
    if (!partial.empty()) {
        notices.fail("%s was not written, what there is of it stands in %s\n",
                     planned_results_->name.c_str(), partial.c_str());
    } else {
        notices.fail("prob writing results file: %s\n", planned_results_->name.c_str());
    }
}

void outputs::finish_log(io::notices& notices)
{
    if (!planned_log_ || std::exchange(is_log_finished_, true)) {
        return;
    }
    if (log_is_spoilt_) {
        log_.give_up();
    }
    if (!log_.is_open() || !log_.finish(last_of_log_())) {
        notices.fail("prob writing log: %s\n", planned_log_->name.c_str());
    }
}

void outputs::finish(io::notices& notices)
{
    is_written_ = planned_results_ && !results_are_spoilt_ && results_.finish();
    if (!is_written_) {
        give_up(notices);
    }
    finish_log(notices);
}

} // namespace front
