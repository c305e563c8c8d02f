#include "front/outputs.h"

#include <array>
#include <utility>

namespace front {

namespace {

constexpr const char* examined_words = "%s is examined by this run, aborting\n";

} // namespace

// A list may name the partial file later, so one that is there already is not touched.
io::output_mode outputs::mode_of_log() const
{
    return options_.is_list_form() ? io::output_mode::replace_fresh : io::output_mode::replace;
}

io::output_mode outputs::mode_of_results() const
{
    return options_.append ? io::output_mode::append : mode_of_log();
}

std::optional<outputs::planned> outputs::plan(const std::string& path, io::output_mode mode) const
{
    if (path.empty()) {
        return std::nullopt;
    }
    planned made{path, io::output_file::find(path, mode), {}, {}};
    if (!made.where.target.is_special) {
        made.target = platform::identify_file(made.where.target.path);
        made.partial = platform::identify_file(made.where.partial);
    }
    return made;
}

bool outputs::are_in_the_way(const std::vector<std::string>& inputs, io::notices& notices)
{
    planned_results_ = plan(options_.out_path, mode_of_results());
    planned_log_ = plan(options_.log_path, mode_of_log());
    for (const auto* const file : {&planned_results_, &planned_log_}) {
        if (!*file) {
            continue;
        }
        for (const std::string& input : inputs) {
            const auto id = platform::identify_file(input);
            if (id && (id == (*file)->target || id == (*file)->partial)) {
                notices.fail(examined_words, (*file)->name.c_str());
                return true;
            }
        }
    }
    return are_one_file(notices);
}

bool outputs::are_one_file(io::notices& notices) const
{
    if (!planned_results_ || !planned_log_ || planned_results_->where.target.is_special) {
        return false;
    }
    using written = std::pair<const std::string&, const std::optional<platform::file_id>&>;
    const auto files_of = [](const planned& file) {
        return std::array<written, 2>{
            {{file.where.target.path, file.target}, {file.where.partial, file.partial}}};
    };
    for (const auto& [path, id] : files_of(*planned_results_)) {
        for (const auto& [log_path, log_id] : files_of(*planned_log_)) {
            if ((!path.empty() && path == log_path) || (id && id == log_id)) {
                notices.fail("%s cannot hold both results and log, aborting\n",
                             planned_results_->name.c_str());
                return true;
            }
        }
    }
    return false;
}

bool outputs::open(io::notices& notices)
{
    std::string reason;
    if (planned_log_ && !log_.open(planned_log_->where, mode_of_log(), reason)) {
        notices.fail("prob opening log %s: %s\n", planned_log_->name.c_str(), reason.c_str());
        planned_log_.reset();
    }
    if (planned_results_ && !results_.open(planned_results_->where, mode_of_results(), reason)) {
        notices.fail("prob opening file %s for output, aborting\n", planned_results_->name.c_str());
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
    const auto id = platform::identify_file(path);
    for (const auto* const file : {&planned_results_, &planned_log_}) {
        if (!*file || !id) {
            continue;
        }
        if (id == (*file)->partial) {
            return entry::own_partial;
        }
        if (id == (*file)->target) {
            notices.fail(examined_words, (*file)->name.c_str());
            is_spoilt_ = true;
            return entry::examined;
        }
    }
    return entry::other;
}

void outputs::finish(std::string_view last_of_log, io::notices& notices)
{
    if (planned_results_) {
        const std::string& name = planned_results_->name;
        if (is_spoilt_) {
            results_.flush();
            results_.give_up();
        }
        if (is_spoilt_ || !results_.finish()) {
            const std::string& partial = planned_results_->where.partial;
            if (!partial.empty()) {
                notices.fail("%s was not written, what there is of it stands in %s\n", name.c_str(),
                             partial.c_str());
            } else {
                notices.fail("prob writing results file: %s\n", name.c_str());
            }
        }
    }
    if (planned_log_ && log_.is_open() && !log_.finish(last_of_log)) {
        notices.fail("prob writing log: %s\n", planned_log_->name.c_str());
    }
}

} // namespace front
