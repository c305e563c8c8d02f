#include "front/run_driver.h"

#include <optional>
#include <string_view>
#include <utility>

#include "front/cmdline_ctx.h"
#include "front/sdb_options.h"
#include "front/sdb_opts.h"
#include "front/startup.h"
#include "platform/host.h"
#include "platform/redirection.h"
#include "report/listings.h"
#include "sdb/database.h"
#include "uni/fileio.h"
#include "uni/notice.h"
#include "uni/output_sink.h"

namespace front {

namespace {

constexpr int success = 0;
constexpr int failure = -1;
constexpr std::string_view xml_declaration = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n";

void set_run_defaults(sdb_opts& options)
{
    options.xml = true;
    options.print_header = true;
    options.csv = options.csvl2t = options.bodyfile = options.multiline = false;
    options.byte_dump_limit = 256;
    options.short_byte_dumps = true;
}

// A report that was asked for and that this version does not make yet.
std::optional<std::string_view> missing_report(const sdb_opts& options)
{
    const std::pair<bool, std::string_view> reports[] = {
        {options.pipe, "-pipe"},
        {options.enumdir, "-enumdir"},
        {options.list_sdb, "-listsdb"},
        {options.stats, "-stats"},
        {options.partition_given, "-partition"},
        {options.vss_given, "-vss"},
        {options.list_guids, "-guids"},
        {options.list_stringtable, "-stringtable"},
        {options.match_mode, "-match"},
        {!options.patch_pattern.empty(), "-patchbytes"},
        {!options.find_tagids_list.empty(), "-tagids"},
        {!options.find_strings_list.empty(), "-strings"},
    };
    for (const auto& [wanted, name] : reports) {
        if (wanted) {
            return name;
        }
    }
    return std::nullopt;
}

void report_on(const std::string& path, uni::output_sink& out, sdb_opts& options, int& result)
{
    reset_per_database(options);
    options.current_path = path;
    const platform::wow64_redirect_adt redirection;
    sdb::sdb_database database;
    if (!database.load(path, options)) {
        return;
    }
    if (options.show_progress) {
        uni::print_notice("processing %s\n", path.c_str());
    }
    const bool stands_alone = options.target_files.size() == 1;
    if (stands_alone && options.print_header && options.xml && !options.pipe) {
        out.text(xml_declaration);
    }
    report::run_database_report(out, database, options);
    result = success;
}

int run_database_reports(uni::output_sink& out, sdb_opts& options)
{
    if (options.target_files.empty()) {
        print_usage();
        return failure;
    }
    const bool print_header = options.print_header;
    int result = failure;
    for (const std::string& path : options.target_files) {
        options.print_header = print_header;
        report_on(path, out, options, result);
    }
    return result;
}

int run_mode(uni::output_sink& out, sdb_opts& options)
{
    if (const auto missing = missing_report(options)) {
        uni::print_notice("%s is not available in this version\n", std::string(*missing).c_str());
        return failure;
    }
    return run_database_reports(out, options);
}

int run_to_output(sdb_opts& options, const std::string& run_header,
                  uni::output_sink& standard_output)
{
    uni::fileio results;
    uni::output_sink* out = &standard_output;
    if (!options.out_path.empty()) {
        if (!results.open_write(options.out_path, true, false, true)) {
            uni::print_notice("prob opening results file: %s for writing\n",
                              options.out_path.c_str());
            return failure;
        }
        out = results.output_stream();
    }
    if (!options.xml) {
        out->text(run_header);
        out->line_end();
    }
    return run_mode(*out, options);
}

} // namespace

int run_driver(argument_list args)
{
    cmdline_ctx context;
    uni::standard_output standard_output;
    sdb_opts options;
    std::string run_header;
    {
        const platform::wow64_redirect_adt redirection;
        if (asks_for_help(args)) {
            print_usage();
            return success;
        }
        run_header = make_run_header(args);
    }
    options.is_admin = platform::is_process_admin();
    set_run_defaults(options);
    if (!parse_sdb_options(options, args, standard_output)) {
        standard_output.text(run_header);
        standard_output.line_end();
        return failure;
    }
    context.bind_options(options);
    return run_to_output(options, run_header, standard_output);
}

} // namespace front
