#include "front/run_modes.h"

#include <exception>
#include <string_view>
#include <utility>

#include "front/filter.h"
#include "front/startup.h"
#include "front/stdin_stream_ex.h"
#include "platform/console.h"
#include "platform/redirection.h"
#include "report/installed_databases.h"
#include "report/listings.h"
#include "report/pe_properties.h"
#include "report/pe_report.h"
#include "report/statistics.h"
#include "sdb/database.h"
#include "io/notice.h"
#include "uni/text.h"

namespace front {

namespace {

constexpr int success = 0;
constexpr int failure = -1;
constexpr std::string_view xml_declaration = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n";
constexpr std::size_t rule_length = 75;

bool is_list_form(const sdb_opts& options)
{
    return options.pipe || options.enumdir;
}

bool open_list(mvportdir::stdin_stream_ex& list, const sdb_opts& options)
{
    if (options.pipe) {
        return platform::set_standard_input_binary();
    }
    return list.start_walk(options.enumdir_path, options.num_subdirs, options.filter_list);
}

// Does the work for each entry of the list that the filter accepts. An exception ends the work on
// one entry, whose path `current` then holds, not the list. False if the list cannot be opened.
template <typename action>
bool for_each_entry(sdb_opts& options, const std::string& current, action&& work)
{
    mvportdir::stdin_stream_ex list(options);
    if (!open_list(list, options)) {
        return false;
    }
    std::string entry;
    while (list.stdin_list_next(entry)) {
        bool open_failed = false;
        file_times times;
        if (entry.empty() ||
            !filter_accepts(options, open_failed, entry, options.filter_list, &times)) {
            continue;
        }
        try {
            work(entry);
        } catch (const std::exception&) {
            io::print_notice("exception caught on file %s\n", current.c_str());
        }
    }
    return true;
}

void say_processing(const sdb_opts& options)
{
    if (options.show_progress) {
        io::print_notice("processing %s\n", options.current_path.c_str());
    }
}

void write_rule(io::output_sink& out, const sdb_opts& options)
{
    if (options.section_rules) {
        out.text(std::string(rule_length, '-'));
        out.line_end();
    }
}

int list_databases(io::output_sink& standard_output, sdb_opts& options)
{
    report::gather_installed_databases(options);
    for (std::string path : options.target_files) {
        uni::keep_on_one_line(path); // the registry may hold any text
        standard_output.text(path);
        standard_output.line_end();
    }
    standard_output.line_end();
    return options.target_files.empty() ? failure : success;
}

bool report_target(const std::string& path, io::output_sink& out,
                   io::output_sink& standard_output, sdb_opts& options)
{
    reset_per_database(options);
    options.current_path = path;
    const platform::wow64_redirect_adt redirection;
    sdb::sdb_database database;
    if (!database.load(path, options)) {
        return false;
    }
    say_processing(options);
    const bool stands_alone = options.target_files.size() == 1;
    if (stands_alone && options.print_header && options.xml && !options.pipe) {
        out.text(xml_declaration);
    }
    report::run_database_report(out, standard_output, database, options);
    return true;
}

int report_targets(io::output_sink& out, io::output_sink& standard_output, sdb_opts& options)
{
    if (options.target_files.empty()) {
        print_usage();
        return failure;
    }
    const bool print_header = options.print_header;
    int result = failure;
    for (const std::string& path : options.target_files) {
        options.print_header = print_header;
        if (report_target(path, out, standard_output, options)) {
            result = success;
        }
    }
    return result;
}

int report_entries(io::output_sink& out, io::output_sink& standard_output, sdb_opts& options)
{
    const bool print_header = options.print_header;
    int result = failure;
    const platform::wow64_redirect_adt redirection;
    for_each_entry(options, options.current_path, [&](const std::string& entry) {
        options.print_header = print_header;
        reset_per_database(options);
        options.current_path = entry;
        say_processing(options);
        sdb::sdb_database database;
        if (database.load(entry, options)) {
            report::run_database_report(out, standard_output, database, options);
            result = success;
        }
    });
    return result;
}

void say_not_analyzed(const sdb_opts& options)
{
    io::print_notice("Prob analyzing file %s\n", options.current_path.c_str());
}

int stats_of_targets(io::output_sink& out, sdb_opts& options)
{
    sdb::sdb_database database;
    report::gather_installed_databases(options);
    const platform::wow64_redirect_adt redirection;
    int result = failure;
    for (const std::string& path : options.target_files) {
        options.current_path = path;
        say_processing(options);
        if (!database.load(path, options)) {
            // Those behind it are not tried: meant.
            say_not_analyzed(options);
            break;
        }
        report::run_database_stats(database, out, options);
        if (options.target_files.size() > 1) {
            write_rule(out, options);
        }
        result = success;
    }
    return result;
}

int stats_of_entries(io::output_sink& out, sdb_opts& options)
{
    sdb::sdb_database database;
    report::gather_installed_databases(options);
    const platform::wow64_redirect_adt redirection;
    int result = failure;
    for_each_entry(options, options.current_path, [&](const std::string& entry) {
        options.current_path = entry;
        say_processing(options);
        if (!database.load(entry, options)) {
            say_not_analyzed(options);
            return;
        }
        report::run_database_stats(database, out, options);
        result = success;
        write_rule(out, options);
        database.clear();
        reset_per_database(options);
    });
    return result;
}

int pe_stats_of_file(io::output_sink& out, sdb_opts& options)
{
    const platform::wow64_redirect_adt redirection;
    report::pe_list list;
    if (!report::read_pe_stats(list, options.pe_path)) {
        io::print_notice("Problem pulling PE stats from file %s\n", options.pe_path.c_str());
        return failure;
    }
    report::print_pe_stats(out, list, options);
    return success;
}

int pe_stats_of_entries(io::output_sink& out, sdb_opts& options)
{
    const platform::wow64_redirect_adt redirection;
    int result = failure;
    report::pe_list list;
    for_each_entry(options, options.pe_path, [&](const std::string& entry) {
        options.pe_path = entry;
        if (report::read_pe_stats(list, entry)) {
            result = success;
            report::print_pe_stats(out, list, options);
            write_rule(out, options);
        }
    });
    return result;
}

} // namespace

int run_mode(io::output_sink& out, io::output_sink& standard_output, sdb_opts& options)
{
    if (options.pe_stats) {
        return is_list_form(options) ? pe_stats_of_entries(out, options)
                                     : pe_stats_of_file(out, options);
    }
    if (options.list_sdb) {
        return list_databases(standard_output, options);
    }
    if (!options.stats) {
        return is_list_form(options) ? report_entries(out, standard_output, options)
                                     : report_targets(out, standard_output, options);
    }
    return is_list_form(options) ? stats_of_entries(out, options) : stats_of_targets(out, options);
}

} // namespace front
