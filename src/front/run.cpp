#include "front/run.h"

#include <exception>
#include <memory>
#include <string>
#include <vector>

#include "form/forms.h"
#include "front/discovery.h"
#include "front/input_work.h"
#include "front/list_work.h"
#include "front/registry_words.h"
#include "front/startup.h"
#include "model/software_hive.h"
#include "platform/redirection.h"
#include "report/reports.h"

namespace front {

namespace {

// The work of one run.
class run_work {
public:
    run_work(const request::sdb_opts& options, files::file_tree& tree,
             const model::run_targets& targets, outputs& files, const input_output& out)
        : options_(options), tree_(tree), targets_(targets), files_(files), out_(out),
          inputs_(options, tree, targets)
    {}

    void do_all(const form::run_facts& facts)
    {
        stream_ = make_writer(out_.report); // while there is memory
        stream_->begin_stream(facts);
        try {
            do_work();
        } catch (...) {
            end_stream(false);
            throw;
        }
        end_stream(!out_.notices.failed());
    }

private:
    std::unique_ptr<form::writer> make_writer(uni::text_buffer& out) const
    {
        return form::form_of(options_.form).make(out, options_, out_.place.state_before());
    }

    void end_stream(bool is_whole)
    {
        if (!may_write_) {
            return;
        }
        stream_->set_state(out_.place.state_before());
        stream_->end_stream({.databases = out_.counts.databases,
                             .programs = out_.counts.programs,
                             .failed = out_.counts.failed,
                             .is_whole = is_whole,
                             .was_refused = was_refused_});
    }

    void do_work()
    {
        if (options_.list_sdb && !options_.pe_stats) {
            list_databases();
        } else if (options_.is_list_form()) {
            work_on_entries();
        } else if (options_.pe_stats) {
            const uni::busy_thread busy(out_.threads);
            inputs_.tell_program_alone(out_);
        } else {
            const uni::busy_thread busy(out_.threads);
            work_on_targets();
        }
    }

    void work_on_targets()
    {
        if (targets_.files.empty() && !options_.searches_default_places) {
            print_usage();
            out_.notices.note_failure();
            was_refused_ = true;
            return;
        }
        if (targets_.files.empty()) {
            say_nothing_found();
        }
        const platform::wow64_redirect_adt redirection;
        for (const std::string& path : targets_.files) {
            try {
                inputs_.tell_target(path, out_);
            } catch (const std::exception&) {
                if (targets_.files.size() == 1) {
                    throw; // it is the run that ends
                }
                out_.notices.fail("exception caught on file %s\n", path.c_str());
                inputs_.tell_failure(path, "exception caught", out_);
            }
            if (!out_.report.good()) {
                return;
            }
        }
    }

    void work_on_entries()
    {
        list_work list(
            options_, tree_, files_, out_,
            [this](const std::string& path, const auto& out) {
                return inputs_.tell_entry(path, out);
            },
            [this](const std::string& path, const std::string& reason, const auto& out) {
                inputs_.tell_failure(path, reason, out);
            });
        const auto threads = uni::threads_for(options_.bounds.threads);
        const list_work::outcome result = list.do_all(threads);
        may_write_ = result != list_work::outcome::refused;
        if (result == list_work::outcome::none_of_use) {
            out_.notices.fail(options_.pe_stats ? "no program in the list\n"
                                                : "no database in the list\n");
        }
    }

    void list_databases()
    {
        // What begins and ends its stream itself has one stream alone.
        const bool is_in_report = form::form_of(options_.form).header == form::banner::in_the_form;
        const auto form = make_writer(is_in_report ? out_.report : out_.console);
        report::job work{options_, *form, out_.console, out_.notices};
        work.targets = &targets_;
        if (!report::report_of("listsdb").make(work)) {
            say_nothing_found();
        }
        out_.counts.databases = targets_.files.size();
    }

    void say_nothing_found()
    {
        if (targets_.has_volume) { // otherwise that was said
            out_.notices.fail("no database found on %s\n", options_.volume_text.c_str());
        }
        out_.notices.note_failure();
    }

    const request::sdb_opts& options_;
    files::file_tree& tree_;
    const model::run_targets& targets_;
    outputs& files_;
    const input_output& out_;
    const input_work inputs_;
    std::unique_ptr<form::writer> stream_; // of what belongs to no input
    bool was_refused_ = false;
    bool may_write_ = true;
};

// The partitions of a disk that hold a Windows; of the others it is said why not.
std::vector<std::string> windows_partitions(files::file_tree& tree, const std::string& disk,
                                            io::notices& notices)
{
    std::vector<std::string> volumes;
    const std::string path = tree.walkable_path(disk);
    say_copies(tree, path, notices);
    for (const platform::directory_entry& entry : list_in_order(tree, path, notices)) {
        std::string volume = platform::join_path(path, entry.name);
        std::string reason;
        platform::file_facts facts;
        const bool is_volume = tree.kind_of(volume, reason) == files::place_kind::volume;
        if (is_volume && !(tree.read_facts(path_on_volume(tree, volume, {"Windows"}), facts) &&
                           facts.is_directory)) {
            reason = "has no Windows folder";
        }
        if (reason.empty()) {
            volumes.push_back(std::move(volume));
        } else {
            notices.say("%s passed over: %s\n", volume.c_str(), reason.c_str());
        }
    }
    return volumes;
}

// The roots of the volumes that the run is about.
std::vector<std::string> volumes_of(const request::sdb_opts& options, files::file_tree& tree,
                                    model::run_targets& targets, io::notices& notices)
{
    const std::string& named = options.volume_text;
    if (!options.volume_given && !options.vss_given) {
        return {named};
    }
    std::string reason;
    switch (tree.kind_of(named, reason)) {
    case files::place_kind::disk:
        return windows_partitions(tree, named, notices);
    case files::place_kind::file:
        notices.fail("Prob reading volume %s: %s\n", named.c_str(), reason.c_str());
        targets.has_volume = false;
        return {};
    default:
        return {named};
    }
}

// Adds what the folders hold where a volume keeps its databases.
void add_databases_of(model::run_targets& targets, const request::sdb_opts& options,
                      const std::string& volume, files::file_tree& tree, io::notices& notices)
{
    std::vector<std::string> found;
    add_default_targets(tree, found, volume, notices);
    for (std::string& path : found) {
        if (model::leads_out_of_volume(options, volume, tree, path)) {
            notices.fail("%s leads out of the volume, not opened\n", path.c_str());
        } else {
            targets.files.push_back(std::move(path));
        }
    }
}

// The volume's own hive, unless another was named.
model::registry_place registry_of(const request::sdb_opts& options, const std::string& volume,
                                  files::file_tree& tree)
{
    return {volume, options.hive_named || volume == options.volume_text
                        ? options.software_hive_path
                        : path_on_volume(tree, volume, place_of_software_hive)};
}

} // namespace

model::run_targets find_targets(const request::sdb_opts& options, files::file_tree& tree,
                                diag_log& log, io::notices& notices)
{
    model::run_targets targets;
    if (options.pe_stats) {
        return targets;
    }
    if (!options.sdb_path.empty()) {
        targets.files.push_back(options.sdb_path);
    }
    ntfs::trace_text trace;
    if (!options.log_path.empty()) {
        trace = [&log](std::string_view line) { log.write(line); };
    }
    // A list has all its targets itself.
    const bool is_list_alone = options.is_list_form() && !options.list_sdb;
    for (const std::string& volume : volumes_of(options, tree, targets, notices)) {
        if (options.searches_default_places && !is_list_alone) {
            add_databases_of(targets, options, volume, tree, notices);
        }
        if (options.stats || options.list_sdb) {
            say_findings(model::gather_installed_databases(
                             targets, options, registry_of(options, volume, tree), tree, trace),
                         notices);
        }
        if (options.deleted && options.searches_default_places && !is_list_alone) {
            add_deleted_targets(tree, targets.files, volume, options.by_content);
        }
    }
    return targets;
}

std::vector<std::string> examined_files(const request::sdb_opts& options,
                                        const model::run_targets& targets)
{
    std::vector<std::string> files;
    if (!options.list_sdb) { // which reads none of them
        files = targets.files;
    }
    for (const std::string* const named :
         {&options.sdb_path, &options.pe_path, &options.software_hive_path, &options.volume_text}) {
        if (!named->empty()) {
            files.push_back(*named);
        }
    }
    return files;
}

void run(uni::text_buffer& out, uni::text_buffer& standard_output, const request::sdb_opts& options,
         const form::run_facts& facts, files::file_tree& tree, const model::run_targets& targets,
         outputs& files, diag_log& log, io::notices& notices)
{
    // A form that begins its stream itself needs no input to know of those before it.
    one_by_one place(
        {.is_lone = !options.is_list_form() && targets.files.size() == 1,
         .head_stands = form::form_of(options.form).header == form::banner::in_the_form});
    uni::thread_allowance threads(uni::threads_for(options.bounds.threads));
    input_counts counts;
    const input_output streams{out, standard_output, notices, log, place, threads, counts};
    run_work(options, tree, targets, files, streams).do_all(facts);
}

void tell_refusal(uni::text_buffer& out, const request::sdb_opts& options,
                  const form::run_facts& facts)
{
    const auto stream = form::form_of(options.form).make(out, options, {});
    stream->begin_stream(facts);
    stream->end_stream({.is_whole = false, .was_refused = true});
}

} // namespace front
