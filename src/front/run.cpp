#include "front/run.h"

#include <exception>
#include <memory>
#include <string>

#include "form/forms.h"
#include "front/discovery.h"
#include "front/filter.h"
#include "front/startup.h"
#include "front/stdin_stream_ex.h"
#include "io/byte_source.h"
#include "io/notice.h"
#include "model/installed_databases.h"
#include "model/pe_properties.h"
#include "platform/console.h"
#include "platform/redirection.h"
#include "report/reports.h"
#include "sdb/database.h"

namespace front {

namespace {

constexpr int success = 0;
constexpr int failure = -1;

// What one input writes to. The run gives it out in the order of the inputs.
struct input_output {
    uni::text_buffer& report;
    uni::text_buffer& console;
    io::notices& notices;
};

// The work of one run.
class run_work {
public:
    run_work(const input_output& out, const request::sdb_opts& options, diag_log& log)
        : out_(out), options_(options), log_(log), form_(form::form_of(options.form))
    {}

    int do_all()
    {
        if (options_.pe_stats) {
            return options_.is_list_form() ? tell_listed_programs() : tell_program_alone();
        }
        find_targets();
        if (options_.list_sdb) {
            return list_databases();
        }
        if (options_.stats) {
            return options_.is_list_form() ? tell_listed_statistics() : tell_statistics();
        }
        return options_.is_list_form() ? report_entries() : report_targets();
    }

private:
    // What the statistics and the list of databases take in beside what was named.
    void find_targets()
    {
        if (!options_.sdb_path.empty()) {
            targets_.files.push_back(options_.sdb_path);
        }
        if (options_.searches_default_places) {
            add_default_targets(targets_.files, options_.volume_text);
        }
        if (options_.stats || options_.list_sdb) {
            ntfs::trace_text trace;
            if (log_.is_open()) {
                trace = [this](std::string_view line) { log_.write(line); };
            }
            model::gather_installed_databases(targets_, options_, trace);
        }
    }

    // Loads a database; false if it is none.
    bool load(sdb::sdb_database& database, io::file_times& times, const std::string& path)
    {
        const auto file = io::open_source(path);
        const bool loaded = file && database.load(*file);
        if (!file) {
            database.clear();
            return false;
        }
        if (database.was_compressed()) {
            log_.write("Compressed file");
        }
        times = file->times();
        return loaded;
    }

    void say_processing(const std::string& path)
    {
        if (options_.show_progress) {
            out_.notices.say("processing %s\n", path.c_str());
        }
    }

    // Does the work for each entry of the list that the filter accepts. An exception ends the work
    // on one entry, not the list. False if the list cannot be opened.
    template <typename action>
    bool for_each_entry(action&& work)
    {
        stdin_stream_ex list(options_);
        const bool opened = options_.pipe
                                ? platform::set_standard_input_binary()
                                : list.start_walk(options_.enumdir_path, options_.num_subdirs,
                                                  options_.filter_list);
        if (!opened) {
            return false;
        }
        std::string entry;
        while (list.stdin_list_next(entry)) {
            bool open_failed = false;
            file_times times;
            if (entry.empty() ||
                !filter_accepts(options_, open_failed, entry, options_.filter_list, &times)) {
                continue;
            }
            try {
                work(entry);
            } catch (const std::exception&) {
                out_.notices.say("exception caught on file %s\n", entry.c_str());
            }
        }
        return true;
    }

    // What a report is made from, but for what it is about.
    report::job new_job(form::writer& form, const std::string& path) const
    {
        report::job work{options_, form, out_.console, out_.notices};
        work.path = path;
        return work;
    }

    int list_databases()
    {
        const auto form = form_.make(out_.console, options_, state_);
        report::job work = new_job(*form, {});
        work.targets = &targets_;
        return report::report_of("listsdb").make(work) ? success : failure;
    }

    // Makes the report of a loaded database.
    void report_database(const std::string& path, const sdb::sdb_database& database,
                         const io::file_times& times)
    {
        const auto form = form_.make(out_.report, options_, state_);
        report::job work = new_job(*form, path);
        work.database = &database;
        work.times = times;
        report::make_database_report(work);
        state_ = form->state();
    }

    int report_targets()
    {
        if (targets_.files.empty()) {
            print_usage();
            return failure;
        }
        state_.is_lone = targets_.files.size() == 1;
        int result = failure;
        for (const std::string& path : targets_.files) {
            const platform::wow64_redirect_adt redirection;
            sdb::sdb_database database;
            io::file_times times;
            if (load(database, times, path)) {
                say_processing(path);
                report_database(path, database, times);
                result = success;
            }
        }
        return result;
    }

    int report_entries()
    {
        const platform::wow64_redirect_adt redirection;
        int result = failure;
        for_each_entry([&](const std::string& entry) {
            say_processing(entry);
            sdb::sdb_database database;
            io::file_times times;
            if (load(database, times, entry)) {
                report_database(entry, database, times);
                result = success;
            }
        });
        return result;
    }

    // Tells the statistics of one database, and what stands behind them; false if it is none.
    bool tell_statistics_of(const std::string& path, bool is_one_of_several)
    {
        say_processing(path);
        sdb::sdb_database database;
        io::file_times times;
        if (!load(database, times, path)) {
            out_.notices.say("Prob analyzing file %s\n", path.c_str());
            return false;
        }
        const auto form = form_.make(out_.report, options_, state_);
        report::job work = new_job(*form, path);
        work.database = &database;
        work.times = times;
        work.installed = model::find_installed(targets_.installed, path);
        report::report_of("stats").make(work);
        if (is_one_of_several) {
            form->separate();
        }
        state_ = form->state();
        return true;
    }

    int tell_statistics()
    {
        const platform::wow64_redirect_adt redirection;
        int result = failure;
        for (const std::string& path : targets_.files) {
            if (!tell_statistics_of(path, targets_.files.size() > 1)) {
                break; // those behind it are not tried
            }
            result = success;
        }
        return result;
    }

    int tell_listed_statistics()
    {
        const platform::wow64_redirect_adt redirection;
        int result = failure;
        for_each_entry([&](const std::string& entry) {
            if (tell_statistics_of(entry, true)) {
                result = success;
            }
        });
        return result;
    }

    bool tell_program(const std::string& path, bool is_one_of_several)
    {
        model::pe_list properties;
        if (!model::read_pe_stats(properties, path)) {
            return false;
        }
        const auto form = form_.make(out_.report, options_, state_);
        report::job work = new_job(*form, path);
        work.program = &properties;
        report::report_of("pe").make(work);
        if (is_one_of_several) {
            form->separate();
        }
        state_ = form->state();
        return true;
    }

    int tell_program_alone()
    {
        const platform::wow64_redirect_adt redirection;
        if (tell_program(options_.pe_path, false)) {
            return success;
        }
        out_.notices.say("Problem pulling PE stats from file %s\n", options_.pe_path.c_str());
        return failure;
    }

    int tell_listed_programs()
    {
        const platform::wow64_redirect_adt redirection;
        int result = failure;
        for_each_entry([&](const std::string& entry) {
            if (tell_program(entry, true)) {
                result = success;
            }
        });
        return result;
    }

    const input_output& out_;
    const request::sdb_opts& options_;
    diag_log& log_;
    const form::form_row& form_;
    model::run_targets targets_;
    form::stream_state state_;
};

} // namespace

int run(uni::text_buffer& out, uni::text_buffer& standard_output, const request::sdb_opts& options,
        diag_log& log)
{
    const input_output streams{out, standard_output, io::error_stream()};
    return run_work(streams, options, log).do_all();
}

} // namespace front
