#include "front/run.h"

#include <exception>
#include <memory>
#include <string>
#include <vector>

#include "form/forms.h"
#include "front/discovery.h"
#include "front/filter.h"
#include "front/registry_words.h"
#include "front/startup.h"
#include "front/stdin_stream_ex.h"
#include "io/byte_source.h"
#include "model/pe_properties.h"
#include "model/software_hive.h"
#include "platform/console.h"
#include "platform/redirection.h"
#include "report/read_program.h"
#include "report/reports.h"
#include "sdb/database.h"

namespace front {

namespace {

// What one input writes to. The run gives it out in the order of the inputs.
struct input_output {
    uni::text_buffer& report;
    uni::text_buffer& console;
    io::notices& notices;
};

// What became of a file that was to be loaded.
enum class loading { loaded, passed_over, failed };

// A database with the file that it comes from.
struct loaded_file {
    std::unique_ptr<io::byte_source> source;
    sdb::sdb_database database;
    std::string reason; // in words, where it did not load
};

const char* words_of(sdb::load_result result)
{
    switch (result) {
    case sdb::load_result::unreadable:
        return "reading failed";
    case sdb::load_result::not_inflated:
        return "it does not inflate";
    case sdb::load_result::too_large:
        return "it inflates to more than quilt takes";
    default:
        return "is no database";
    }
}

// The work of one run.
class run_work {
public:
    run_work(const input_output& out, const request::sdb_opts& options,
             const model::run_targets& targets, outputs& files, diag_log& log)
        : out_(out), options_(options), targets_(targets), files_(files), log_(log),
          form_(form::form_of(options.form))
    {}

    void do_all()
    {
        if (options_.pe_stats) {
            options_.is_list_form() ? tell_listed_programs() : tell_program_alone();
        } else if (options_.list_sdb) {
            list_databases();
        } else if (options_.is_list_form()) {
            work_on_entries();
        } else {
            work_on_targets();
        }
    }

private:
    loading load(loaded_file& file, const std::string& path)
    {
        file.source = io::open_source(path, file.reason);
        if (!file.source) {
            return loading::failed;
        }
        const sdb::load_result result =
            file.database.load(*file.source, options_.bounds.inflated_bytes);
        if (file.database.was_compressed()) {
            log_.write("Compressed file");
        }
        if (result == sdb::load_result::loaded) {
            return loading::loaded;
        }
        file.reason = words_of(result);
        return result == sdb::load_result::no_database ? loading::passed_over : loading::failed;
    }

    void say_processing(const std::string& path)
    {
        if (options_.show_progress) {
            out_.notices.say("processing %s\n", path.c_str());
        }
    }

    // Tells what of a file its report could not hold.
    void say_extent(const loaded_file& file, const std::string& path)
    {
        const sdb::image_extent extent = file.database.extent();
        if (extent.is_file_longer) {
            out_.notices.fail("%s is too long: the report ends at byte %llu of %llu\n",
                              path.c_str(),
                              static_cast<unsigned long long>(file.database.image().size()),
                              static_cast<unsigned long long>(extent.file_size));
        }
        if (extent.cut_off_at) {
            out_.notices.fail(
                "%s is cut off: its %llu bytes end before those of tag 0x%08x, "
                "which go up to byte %llu\n",
                path.c_str(), static_cast<unsigned long long>(file.database.image().size()),
                *extent.cut_off_at, static_cast<unsigned long long>(extent.claimed_end));
        } else if (extent.trailing_at < file.database.image().size()) {
            out_.notices.say(
                "%s: behind its lists, from byte %llu on, stand %llu bytes that form "
                "no list\n",
                path.c_str(), static_cast<unsigned long long>(extent.trailing_at),
                static_cast<unsigned long long>(extent.file_size - extent.trailing_at));
        }
        if (const std::uint64_t unused = file.database.bytes_behind_stream()) {
            out_.notices.say("%s: behind its compressed stream stand %llu bytes\n", path.c_str(),
                             static_cast<unsigned long long>(unused));
        }
        if (file.source->has_failed()) {
            out_.notices.fail("%s could not be read once more\n", path.c_str());
        }
        if (file.source->has_changed()) {
            out_.notices.fail("%s changed while it was read\n", path.c_str());
        }
    }

    // Makes the report of a loaded database, or its statistics.
    void report_database(const loaded_file& file, const std::string& path, bool is_one_of_several)
    {
        const auto form = form_.make(out_.report, options_, state_);
        try {
            report_database(*form, file, path, is_one_of_several);
        } catch (...) {
            state_ = form->state();
            throw;
        }
        state_ = form->state();
        say_extent(file, path);
    }

    void report_database(form::writer& form, const loaded_file& file, const std::string& path,
                         bool is_one_of_several)
    {
        report::job work = new_job(form, path);
        work.database = &file.database;
        work.times = file.source->times();
        work.source = file.source.get();
        if (options_.stats) {
            const model::registry_facts known = targets_.installed.find(path);
            say_doubts(known.how, path, out_.notices);
            work.installed = known.facts;
            if (!report::report_of("stats").make(work)) {
                out_.notices.fail("Prob analyzing file %s: its database list holds nothing\n",
                                  path.c_str());
            } else if (is_one_of_several) {
                form.separate();
            }
        } else {
            report::make_database_report(work);
        }
    }

    // What a report is made from, but for what it is about.
    report::job new_job(form::writer& form, const std::string& path) const
    {
        report::job work{options_, form, out_.console, out_.notices};
        work.path = path;
        return work;
    }

    void work_on_targets()
    {
        if (targets_.files.empty() && !options_.searches_default_places) {
            print_usage();
            out_.notices.note_failure();
            return;
        }
        if (targets_.files.empty()) {
            say_nothing_found();
        }
        state_.is_lone = targets_.files.size() == 1;
        const auto closing = form_.make(out_.report, options_, state_); // while there is memory
        const platform::wow64_redirect_adt redirection;
        for (const std::string& path : targets_.files) {
            try {
                work_on_target(path);
            } catch (const std::exception&) {
                if (state_.is_lone) {
                    closing->set_state(state_);
                    closing->end_stream();
                    throw; // it is the run that ends
                }
                out_.notices.fail("exception caught on file %s\n", path.c_str());
            }
            if (!out_.report.good()) {
                return;
            }
        }
        closing->set_state(state_);
        closing->end_stream();
    }

    void work_on_target(const std::string& path)
    {
        if (options_.stats) {
            say_processing(path);
        }
        loaded_file file;
        if (load(file, path) != loading::loaded) {
            out_.notices.fail("Prob analyzing file %s: %s\n", path.c_str(), file.reason.c_str());
            return;
        }
        if (!options_.stats) {
            say_processing(path);
        }
        report_database(file, path, targets_.files.size() > 1);
    }

    void work_on_entries()
    {
        const platform::wow64_redirect_adt redirection;
        bool any = false;
        const bool may_speak = for_each_entry([&](const std::string& entry) {
            say_processing(entry);
            loaded_file file;
            const loading result = load(file, entry);
            any |= result == loading::loaded;
            if (result == loading::loaded) {
                report_database(file, entry, true);
            } else if (result == loading::failed) {
                out_.notices.fail("Prob analyzing file %s: %s\n", entry.c_str(),
                                  file.reason.c_str());
            } else if (options_.stats) {
                out_.notices.say("Prob analyzing file %s: %s\n", entry.c_str(),
                                 file.reason.c_str());
            }
        });
        if (!any && may_speak) {
            out_.notices.fail("no database in the list\n");
        }
    }

    void list_databases()
    {
        const auto form = form_.make(out_.console, options_, state_);
        report::job work = new_job(*form, {});
        work.targets = &targets_;
        if (!report::report_of("listsdb").make(work)) {
            say_nothing_found();
        }
    }

    void say_nothing_found()
    {
        if (targets_.has_volume) { // otherwise that was said
            out_.notices.fail("no database found on %s\n", options_.volume_text.c_str());
        }
        out_.notices.note_failure();
    }

    // Tells of one program.
    loading tell_program(const std::string& path, bool is_one_of_several, std::string& reason)
    {
        model::pe_list properties;
        const report::program_state state =
            report::read_program(properties, path, out_.notices, reason);
        if (state != report::program_state::read) {
            return state == report::program_state::no_program ? loading::passed_over
                                                              : loading::failed;
        }
        const auto form = form_.make(out_.report, options_, state_);
        report::job work = new_job(*form, path);
        work.program = &properties;
        report::report_of("pe").make(work);
        if (is_one_of_several) {
            form->separate();
        }
        state_ = form->state();
        return loading::loaded;
    }

    void tell_program_alone()
    {
        const platform::wow64_redirect_adt redirection;
        std::string reason;
        if (tell_program(options_.pe_path, false, reason) != loading::loaded) {
            out_.notices.fail("Problem pulling PE stats from file %s: %s\n",
                              options_.pe_path.c_str(), reason.c_str());
        }
    }

    void tell_listed_programs()
    {
        const platform::wow64_redirect_adt redirection;
        bool any = false;
        const bool may_speak = for_each_entry([&](const std::string& entry) {
            std::string reason;
            const loading result = tell_program(entry, true, reason);
            any |= result == loading::loaded;
            if (result == loading::failed) {
                out_.notices.fail("Prob analyzing file %s: %s\n", entry.c_str(), reason.c_str());
            }
        });
        if (!any && may_speak) {
            out_.notices.fail("no program in the list\n");
        }
    }

    // Takes the list before a byte is written to a stream that may be one of its entries; false, and
    // nothing is written, if it is.
    bool take_whole_list(stdin_stream_ex& list, std::vector<std::string>& entries)
    {
        std::string entry;
        while (list.stdin_list_next(entry)) {
            entries.push_back(entry);
        }
        const outputs::stream_kind stream = files_.examined_stream(entries);
        if (stream == outputs::stream_kind::none) {
            return true;
        }
        out_.report.clear();
        files_.spoil_results();
        if (stream == outputs::stream_kind::output) {
            out_.notices.fail("standard output is examined by this run, aborting\n");
        }
        out_.notices.note_failure();
        return false;
    }

    // Does the work for each entry of the list that the filter accepts. An exception ends the work
    // on one entry, not the list.
    // False where nothing may be written.
    template <typename action>
    bool for_each_entry(action&& work)
    {
        stdin_stream_ex list(options_, out_.notices);
        const bool opened = options_.pipe
                                ? platform::set_standard_input_binary()
                                : list.start_walk(options_.enumdir_path, options_.num_subdirs,
                                                  options_.filter_list);
        std::string entry;
        std::vector<std::string> ahead;
        if (opened && files_.speaks_to_files() && !take_whole_list(list, ahead)) {
            return false;
        }
        auto next = ahead.begin();
        const auto next_entry = [&] {
            if (!files_.speaks_to_files()) {
                return list.stdin_list_next(entry);
            }
            return next != ahead.end() && (entry = std::move(*next++), true);
        };
        while (opened && out_.report.good() && next_entry()) {
            bool open_failed = false;
            const bool accepted =
                filter_accepts(options_, open_failed, entry, options_.filter_list);
            if (!accepted && !open_failed) {
                continue;
            }
            if (files_.check_entry(entry, out_.notices) != outputs::entry::other) {
                continue;
            }
            try {
                work(entry);
            } catch (const std::exception&) {
                out_.notices.fail("exception caught on file %s\n", entry.c_str());
            }
        }
        return true;
    }

    const input_output& out_;
    const request::sdb_opts& options_;
    const model::run_targets& targets_;
    outputs& files_;
    diag_log& log_;
    const form::form_row& form_;
    form::stream_state state_;
};

} // namespace

model::run_targets find_targets(const request::sdb_opts& options, diag_log& log,
                                io::notices& notices)
{
    model::run_targets targets;
    if (options.pe_stats) {
        return targets;
    }
    if (!options.sdb_path.empty()) {
        targets.files.push_back(options.sdb_path);
    }
    // No folder of an image can be listed, and a list has all its targets itself.
    const bool is_list_alone = options.is_list_form() && !options.list_sdb;
    if (options.searches_default_places && !is_list_alone && !model::is_volume_image(options)) {
        add_default_targets(targets.files, options.volume_text, notices);
        std::erase_if(targets.files, [&](const std::string& path) {
            const bool leads_out = model::leads_out_of_volume(options, path);
            if (leads_out) {
                notices.fail("%s leads out of the volume, not opened\n", path.c_str());
            }
            return leads_out;
        });
    }
    if (options.stats || options.list_sdb) {
        ntfs::trace_text trace;
        if (!options.log_path.empty()) {
            trace = [&log](std::string_view line) { log.write(line); };
        }
        say_findings(model::gather_installed_databases(targets, options, trace), notices);
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
         const model::run_targets& targets, outputs& files, diag_log& log, io::notices& notices)
{
    const input_output streams{out, standard_output, notices};
    run_work(streams, options, targets, files, log).do_all();
}

} // namespace front
