#include "front/run.h"

#include <exception>
#include <memory>
#include <string>
#include <vector>

#include "form/forms.h"
#include "front/compared_inputs.h"
#include "front/discovery.h"
#include "front/explain_setup.h"
#include "front/help.h"
#include "front/input_work.h"
#include "front/list_work.h"
#include "front/progress.h"
#include "front/registry_words.h"
#include "front/volume_targets.h"
#include "io/byte_source.h"
#include "model/place.h"
#include "model/software_hive.h"
#include "model/stored_path.h"
#include "platform/redirection.h"
#include "report/reports.h"

namespace front {

namespace {

constexpr const char* caught = "exception caught";

// The work of one run.
class run_work {
public:
    run_work(const request::sdb_opts& options, files::file_tree& tree,
             const model::run_targets& targets, const std::vector<model::unread_input>& unread,
             outputs& files, const model::explain_context* explained,
             const model::known_records* known, const input_output& out)
        : options_(options), tree_(tree), targets_(targets), unread_(unread), files_(files),
          out_(out), explained_(explained), inputs_(options, tree, targets, explained, known)
    {}

    void do_all(const form::run_facts& facts)
    {
        stream_ = make_writer(out_.report); // while there is memory
        stream_->begin_stream(facts);
        try {
            do_work();
            const bool goes_on = may_write_ && !was_refused_ && out_.report.good();
            for (const model::unread_input& one : unread_) {
                if (goes_on) {
                    inputs_.tell_failure(one.path, one.reason, out_);
                }
            }
            if (explained_ != nullptr && goes_on) {
                tell_machine();
            }
        } catch (...) {
            end_stream(false);
            throw;
        }
        files_.finish_log(out_.notices); // which may fail, and the end is to tell
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
        if (out_.counts.records > stream_->most_records()) {
            out_.notices.say(
                "%llu records in one page, which browsers take long for: -json serves better\n",
                static_cast<unsigned long long>(out_.counts.records));
        }
        stream_->set_state(out_.place.state_before());
        stream_->end_stream({.databases = out_.counts.databases,
                             .programs = out_.counts.programs,
                             .failed = out_.counts.failed,
                             .records = out_.counts.records,
                             .lists_records = !options_.explain && !options_.compares(),
                             .kept = out_.kept.text(),
                             .left_out = out_.kept.left_out(),
                             .is_whole = is_whole,
                             .was_refused = was_refused_});
    }

    void do_work()
    {
        if (options_.list_sdb && !options_.pe_stats) {
            list_databases();
        } else if (options_.compares()) {
            const uni::busy_thread busy(out_.threads);
            compare_inputs(options_, tree_, targets_, files_, inputs_, out_);
        } else if (options_.matches_many()) {
            match_programs();
        } else if (options_.is_list_form()) {
            work_on_entries();
        } else if (options_.pe_stats) {
            const uni::busy_thread busy(out_.threads);
            work_on_one(options_.pe_path, [&] { inputs_.tell_program_alone(out_); });
        } else {
            const uni::busy_thread busy(out_.threads);
            work_on_targets();
        }
    }

    // What the registry and the databases tell together.
    void tell_machine()
    {
        stream_->set_state(out_.place.state_before());
        report::job work{options_, *stream_, out_.console, out_.notices};
        work.targets = &targets_;
        work.explained = explained_;
        for (const model::installed_databases& installed : targets_.installed) {
            work.are_there.push_back(make_file_probe(options_, tree_, installed.volume()));
        }
        if (targets_.is_one_registry) {
            work.are_there = {probe_of_any(std::move(work.are_there))};
        }
        report::report_of("machine").make(work);
        out_.place.unfollow(*stream_);
    }

    // It is the run that an exception ends where there is no other input.
    void work_on_one(const std::string& path, auto&& work)
    {
        try {
            work();
        } catch (const std::exception&) {
            try {
                inputs_.tell_failure(path, caught, out_);
            } catch (const std::exception&) {
                ++out_.counts.failed;
            }
            throw;
        }
    }

    void work_on_targets()
    {
        if (targets_.files.empty() && options_.explains_hives_alone()) {
            return; // it is the registry that is told of
        }
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
        progress told(options_, out_.notices);
        told.set_total(targets_.files.size());
        for (const std::string& path : targets_.files) {
            if (targets_.files.size() == 1) {
                work_on_one(path, [&] { inputs_.tell_target(path, out_); });
                return;
            }
            try {
                inputs_.tell_target(path, out_);
            } catch (const std::exception&) {
                out_.notices.fail("exception caught on file %s\n", path.c_str());
                inputs_.tell_failure(path, caught, out_);
            }
            told.note_done(path);
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
            out_.notices.fail(options_.pe_stats || options_.matches_many()
                                  ? "no program in the list\n"
                                  : "no database in the list\n");
        }
    }

    // Holds one program or those of a list against all databases.
    void match_programs()
    {
        inputs_.load_candidates(out_);
        if (options_.is_list_form()) {
            work_on_entries();
            if (out_.counts.programs != 0 && out_.counts.caught == 0 &&
                inputs_.has_all_patterns()) {
                out_.notices.say("no matches found: %llu program%s\n",
                                 static_cast<unsigned long long>(out_.counts.programs),
                                 out_.counts.programs == 1 ? "" : "s");
            }
        } else {
            const uni::busy_thread busy(out_.threads);
            inputs_.match_program_alone(out_);
        }
    }

    void list_databases()
    {
        // What begins and ends its stream itself has one stream alone.
        const bool is_in_report = form::form_of(options_.form).header == form::banner::in_the_form;
        const auto console = is_in_report ? nullptr : make_writer(out_.console);
        form::writer& form = is_in_report ? *stream_ : *console;
        report::job work{options_, form, out_.console, out_.notices};
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
    const std::vector<model::unread_input>& unread_;
    outputs& files_;
    const input_output& out_;
    const model::explain_context* const explained_; // of a run that explains
    input_work inputs_;
    std::unique_ptr<form::writer> stream_; // of what belongs to no input
    bool was_refused_ = false;
    bool may_write_ = true;
};

std::string root_of(const model::run_targets& targets)
{
    return targets.roots.size() == 1 ? targets.roots.front() : std::string();
}

model::registry_place own_registry(const model::run_targets& targets,
                                   const request::sdb_opts& options, const std::string& volume,
                                   files::file_tree& tree)
{
    return {volume,
            volume == options.volume_text ? options.software_hive_path
                                          : path_on_volume(tree, volume, place_of_software_hive),
            root_of(targets)};
}

// A hive that was named tells of the volume on which it lies; one that lies on none, of all.
model::registry_place named_registry(const model::run_targets& targets,
                                     const request::sdb_opts& options)
{
    const std::string& hive = options.software_hive_path;
    for (const std::string& volume : targets.volumes) {
        if (!volume.empty() && model::place_below(model::parts_of(hive), volume)) {
            return {volume, hive, root_of(targets)};
        }
    }
    return {targets.volumes.front(),
            hive,
            root_of(targets),
            {targets.volumes.begin() + 1, targets.volumes.end()}};
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
    if (options.matches_many()) {
        targets.files.insert(targets.files.end(), options.more_sdb_paths.begin(),
                             options.more_sdb_paths.end());
    }
    ntfs::trace_text trace;
    if (!options.log_path.empty()) {
        trace = [&log](std::string_view line) { log.write(line); };
    }
    find_volumes(targets, options, options.volume_text, tree, notices);
    if (options.explain) {
        targets.roots = model::roots_of_run(options, tree, targets.volumes);
    }
    // A list has all its targets itself.
    const bool is_list_alone =
        options.is_list_form() && !options.list_sdb && !options.matches_many();
    const bool searches = options.searches_default_places && !is_list_alone;
    const auto ask = [&](const model::registry_place& registry) {
        const std::vector<model::registry_finding> findings =
            model::gather_installed_databases(targets, options, registry, tree, trace);
        say_findings(findings, notices);
        for (const model::registry_finding& one : findings) {
            if (one.kind == model::registry_finding_kind::no_memory) {
                targets.unread.push_back({one.subject, "memory has run out"});
            } else if (one.kind == model::registry_finding_kind::damaged) {
                targets.unread.push_back({one.subject, "is damaged, not all of it was read"});
            } else if (one.kind == model::registry_finding_kind::hive_unread) {
                targets.unread.push_back({one.subject, one.reason});
            }
        }
    };
    const bool asks = options.asks_registry() && !options.match_mode && !targets.volumes.empty();
    for (const std::string& volume : targets.volumes) {
        if (searches) {
            add_databases_of(targets, options, volume, tree, notices);
        }
        if (asks && !options.hive_named) {
            ask(own_registry(targets, options, volume, tree));
        }
    }
    if (asks && options.hive_named) {
        ask(named_registry(targets, options));
    }
    for (const std::string& volume : targets.volumes) {
        if (searches && options.deleted) {
            if (tree.volumes_at(volume).empty()) { // but what is mounted
                notices.say("not used here: %s\n", "-deleted");
            }
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
    files.insert(files.end(), options.more_hive_paths.begin(), options.more_hive_paths.end());
    if (options.hive_given && !options.no_logs) {
        std::vector<std::string> hives = options.more_hive_paths;
        hives.push_back(options.software_hive_path);
        for (const std::string& hive : hives) {
            for (const char* const ending : model::log_endings) {
                files.push_back(hive + ending);
            }
        }
    }
    files.insert(files.end(), options.knowledge_paths.begin(), options.knowledge_paths.end());
    files.insert(files.end(), options.known_paths.begin(), options.known_paths.end());
    if (!options.diff_path.empty()) {
        files.push_back(options.diff_path);
    }
    return files;
}

void run(uni::text_buffer& out, uni::text_buffer& standard_output, const request::sdb_opts& options,
         const form::run_facts& facts, files::file_tree& tree, const model::run_targets& targets,
         outputs& files, diag_log& log, io::notices& notices)
{
    const bool explains = options.explain && !options.stats && !options.list_sdb &&
                          !options.compares() && !options.match_mode;
    std::vector<model::unread_input> unread = targets.unread;
    const auto known =
        options.leaves_known_out() ? load_known_records(options, tree, notices, unread) : nullptr;
    const auto explained =
        explains ? make_explain_context(options, tree, targets, facts.time) : nullptr;
    // A form that begins its stream itself needs no input to know of those before it. Behind a database
    // that is explained the registry may have its say.
    one_by_one place(
        {.is_lone = !options.is_list_form() && !options.matches_many() &&
                    targets.files.size() == 1 && !(explains && options.hive_given) &&
                    !(options.compares() && options.sdb_path.empty()),
         .head_stands = form::form_of(options.form).header == form::banner::in_the_form});
    uni::thread_allowance threads(uni::threads_for(options.bounds.threads));
    input_counts counts;
    kept_texts kept;
    const input_output streams{out, standard_output, notices, log, place, threads, counts, kept};
    run_work(options, tree, targets, unread, files, explained.get(), known.get(), streams)
        .do_all(facts);
}

void tell_refusal(uni::text_buffer& out, const request::sdb_opts& options,
                  const form::run_facts& facts, files::file_tree& tree, bool has_failed)
{
    const auto stream = form::form_of(options.form).make(out, options, {});
    stream->name_place("s1");
    stream->begin_stream(facts);
    if (!options.missing_path.empty()) {
        std::string reason;
        tree.open(options.missing_path, reason);
        stream->failure(options.missing_path, reason.empty() ? "could not be looked at" : reason);
    }
    stream->end_stream({.failed = stream->failures(),
                        .kept = stream->kept(),
                        .is_whole = !has_failed,
                        .was_refused = true});
}

} // namespace front
