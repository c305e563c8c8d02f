#include "front/common_options.h"

#include <array>

#include "front/filter.h"
#include "platform/files.h"
#include "platform/host.h"
#include "io/notice.h"
#include "uni/numbers.h"
#include "uni/paths.h"
#include "uni/text.h"
#include "uni/utf.h"

namespace front {

namespace {

// One option that stands for itself: its name, whether a value follows it, and its effect, which
// answers false to end the run.
struct option_row {
    std::string_view name;
    bool takes_value;
    bool (*effect)(cmd_params& params, const std::string& value, argument_list& args);
};

std::string expanded(const std::string& text, bool allow_snapshot)
{
    return uni::expand_path(text, allow_snapshot, platform::environment_variable);
}

void set_form(cmd_params& params, bool cmd_params::*form)
{
    params.xml = params.csv = params.csvl2t = false;
    params.csvgen = params.bodyfile = params.multiline = false;
    params.*form = true;
}

bool take_diags(cmd_params& params, const std::string& value, argument_list& args)
{
    params.log_path = value;
    params.cmd_log = std::make_unique<io::fileio>();
    if (!params.cmd_log->open_write(value, true, false, true)) {
        params.log_path.clear();
        params.cmd_log.reset();
        return true;
    }
    params.log_on = true;
    cmd_log_write(params, params.raw_cmdline);
    if (find_option_flag("-l2", args)) {
        params.log_level = 2;
    } else if (find_option_flag("-l3", args)) {
        params.log_level = 3;
    }
    return true;
}

bool take_csv(cmd_params& params, const std::string&, argument_list&)
{
    // -csvgen keeps its flag beside this form; nothing reads it.
    const bool csvgen = params.csvgen;
    set_form(params, &cmd_params::csv);
    params.csvgen = csvgen;
    set_csv_separator(params, ",");
    params.no_whitespace = !params.pair_datetime;
    return true;
}

bool take_csvgen(cmd_params& params, const std::string&, argument_list&)
{
    set_form(params, &cmd_params::csvgen);
    set_csv_separator(params, ",");
    params.no_whitespace = true;
    return true;
}

bool take_csvl2t(cmd_params& params, const std::string&, argument_list&)
{
    const bool csvgen = params.csvgen;
    set_form(params, &cmd_params::csvl2t);
    params.csvgen = csvgen;
    params.print_header = true;
    set_csv_separator(params, ",");
    return true;
}

bool take_bodyfile(cmd_params& params, const std::string&, argument_list&)
{
    set_form(params, &cmd_params::bodyfile);
    params.print_header = true;
    set_csv_separator(params, "|");
    return true;
}

bool take_xml(cmd_params& params, const std::string&, argument_list&)
{
    set_form(params, &cmd_params::xml);
    params.print_header = false;
    set_csv_separator(params, "");
    return true;
}

bool take_multiline(cmd_params& params, const std::string&, argument_list&)
{
    set_form(params, &cmd_params::multiline);
    params.print_header = true;
    params.csv_separator.clear();
    params.field_char_from = '\0';
    return true;
}

// Aliases have no reader here, but an uneven list of them is refused.
bool check_alias(cmd_params&, const std::string& value, argument_list&)
{
    const std::size_t items = uni::split(value, '|', false).size();
    if (items == 0 || items % 2 != 0) {
        io::print_notice("%s, aborting\n", "imbalanced alias to true pathfiles");
        return false;
    }
    return true;
}

bool check_alias_path(cmd_params& params, const std::string& value, argument_list& args)
{
    return value.find('|') == std::string::npos || check_alias(params, value, args);
}

bool accept(cmd_params&, const std::string&, argument_list&)
{
    return true;
}

bool refuse(cmd_params&, const std::string&, argument_list&)
{
    io::print_notice("This option is not offered in this build\n");
    return false;
}

// Tries whether the results file can be written, and removes it again: with -append too, so that
// nothing is ever appended. Meant.
bool take_out(cmd_params& params, const std::string& value, argument_list& args)
{
    params.out_path = platform::native_spelling(expanded(value, true));
    const bool append = peek_option_flag("-append", args);
    io::fileio probe;
    if (!probe.open_write(params.out_path, true, false, !append) &&
        !(append && probe.open_write(params.out_path, true, false, true))) {
        io::print_notice("prob opening file %s for output, aborting\n", params.out_path.c_str());
        return false;
    }
    probe.close();
    platform::delete_file(params.out_path);
    return true;
}

bool take_filters(cmd_params& params, argument_list& args)
{
    std::string value;
    std::string path;
    std::vector<filter_entry> entries;
    while (find_option_value("-filter_skip", value, args)) {
        find_option_value("-filter_path", path, args);
    }
    while (find_option_value("-filter", value, args)) {
        parse_filter(entries, value);
        params.filter_list.insert(params.filter_list.end(), entries.begin(), entries.end());
        if (find_option_value("-filter_path", path, args)) {
            const std::u16string base = uni::utf16_from_utf8(uni::lowered(path));
            for (filter_entry& entry : params.filter_list) {
                entry.base_path = base;
            }
        }
    }
    while (find_option_value("-filter_sig", value, args)) {
        params.filter_list.push_back(parse_signature_filter(value));
    }
    return true;
}

// The date and the time of a window option, and the separator that the date uses, 0 for none.
struct window_text {
    std::string date;
    std::string time;
    char separator = '\0';
};

window_text split_window(const std::string& value)
{
    window_text text;
    const std::size_t blank = value.find(' ');
    text.date = value.substr(0, blank);
    if (blank != std::string::npos) {
        text.time = value.substr(blank + 1);
    }
    for (const char separator : {'-', '/'}) {
        if (text.date.find(separator) != std::string::npos) {
            text.separator = separator;
        }
    }
    return text;
}

window_end read_window_end(const window_text& text, const std::string& time)
{
    window_end end;
    uni::system_time fields;
    if (!uni::parse_date_time(text.date, time, "YMD", text.separator, fields)) {
        return end;
    }
    const auto filetime = uni::filetime_from(fields);
    if (!filetime) {
        return end;
    }
    const uni::time_value moment = uni::time_value_from(*filetime, uni::time_kind::filetime);
    if (moment.valid) {
        end.set = true;
        end.filetime = *filetime;
        end.unix_time = static_cast<std::uint32_t>(moment.unix_seconds);
    }
    return end;
}

bool take_start_time(cmd_params& params, const std::string& value, argument_list&)
{
    const window_text text = split_window(value);
    if (text.date.empty() || text.separator == '\0') {
        return false;
    }
    params.time_window_start = read_window_end(text, text.time);
    if (params.time_window_start.set) {
        params.time_window_stop = {true, UINT64_MAX, UINT32_MAX};
    } else {
        io::print_notice("invalid start time, ignoring\n");
    }
    return true;
}

bool take_stop_time(cmd_params& params, const std::string& value, argument_list&)
{
    const window_text text = split_window(value);
    if (text.date.empty() || text.separator == '\0') {
        return false;
    }
    // The date stands in for the time too, so that hardly any stop time is accepted: meant.
    const window_end stop = read_window_end(text, text.date);
    const window_end& start = params.time_window_start;
    const bool usable = stop.set && !(start.set && stop.filetime < start.filetime);
    params.time_window_stop = usable ? stop : window_end();
    if (!usable) {
        io::print_notice("invalid stop time, ignoring\n");
    }
    return true;
}

bool take_quoted_fields(cmd_params& params, const std::string&, argument_list&)
{
    params.quoted_csv_fields = true;
    if (params.csv_separator.find('\t') == std::string::npos) {
        uni::trim(params.csv_separator);
    }
    params.pad_separator = false;
    params.field_char_from = '\0';
    return true;
}

bool take_no_whitespace(cmd_params& params, const std::string&, argument_list&)
{
    params.no_whitespace = true;
    params.pad_separator = false;
    uni::remove_char(params.csv_separator, ' ');
    return true;
}

void refuse_format(const std::string& value)
{
    io::print_notice("invalid %s, using default format\n", value.c_str());
}

bool take_date_format(cmd_params& params, const std::string& value, argument_list&)
{
    if (value.size() == 8 || value.size() == 10) {
        params.dateformat = uni::lowered(value);
    } else {
        refuse_format(value);
    }
    return true;
}

bool take_time_format(cmd_params& params, const std::string& value, argument_list&)
{
    const bool has_length = value.size() == 8 || (value.size() >= 12 && value.size() <= 18);
    if (has_length && value.find(':') != std::string::npos) {
        params.timeformat = uni::lowered(value);
    } else {
        refuse_format(value);
    }
    return true;
}

template <bool cmd_params::*field, bool value>
bool set_flag(cmd_params& params, const std::string&, argument_list&)
{
    params.*field = value;
    return true;
}

template <std::string cmd_params::*field>
bool set_text(cmd_params& params, const std::string& value, argument_list&)
{
    params.*field = value;
    return true;
}

bool take_enumdir(cmd_params& params, const std::string& value, argument_list&)
{
    params.enumdir_path = expanded(value, false);
    params.enumdir = true;
    return true;
}

bool take_num_subdirs(cmd_params& params, const std::string& value, argument_list&)
{
    params.num_subdirs = uni::read_u32_auto(value).value_or(params.num_subdirs);
    return true;
}

bool take_separator(cmd_params& params, const std::string& value, argument_list&)
{
    set_csv_separator(params, value);
    return true;
}

// The order of the rows settles every conflict: among the forms the later row wins, whatever the
// command line says. Meant.
constexpr auto rows_before_filters = std::to_array<option_row>({
    {"-pair_datetime", false, set_flag<&cmd_params::pair_datetime, true>},
    {"-diags", true, take_diags},
    {"-csv", false, take_csv},
    {"-csvgen", false, take_csvgen},
    {"-csvl2t", false, take_csvl2t},
    {"-bodyfile", false, take_bodyfile},
    {"-xml", false, take_xml},
    {"-multiline", false, take_multiline},
    {"-alias", true, check_alias},
    {"-aliaspath", true, check_alias_path},
    {"-gzip", false, accept},
    {"-zlib", false, accept},
    {"-threads", true, accept},
    {"-zlibex", true, accept},
    {"-sqlite_log", true, refuse},
    {"-sqlite", true, refuse},
    {"-signal", true, set_text<&cmd_params::signal_name>},
    {"-hostname", true, set_text<&cmd_params::hostname>},
    {"-split_pathfile", false, accept},
    {"-username", true, set_text<&cmd_params::username>},
    {"-cpuinst", true, accept},
    {"-cpu", true, accept},
    {"-fragment_files", true, accept},
    {"-separate_files", false, accept},
});

constexpr option_row out_row = {"-out", true, take_out};
constexpr option_row outfile_row = {"-outfile", true, take_out};

constexpr auto rows_of_lists = std::to_array<option_row>({
    {"-outdir", true, accept},
    {"-enumdir", true, take_enumdir},
    {"-num_subdirs", true, take_num_subdirs},
    {"-profile", false, set_flag<&cmd_params::profile, true>},
    {"-pipe", false, set_flag<&cmd_params::pipe, true>},
});

constexpr auto rows_behind_filters = std::to_array<option_row>({
    {"-cmd_start_time", true, take_start_time},
    {"-cmd_stop_time", true, take_stop_time},
    {"-base10", false, set_flag<&cmd_params::base16, false>},
    {"-base16", false, set_flag<&cmd_params::base16, true>},
    {"-csv_separator", true, take_separator},
    {"-enable_quoted_csv_fields", false, take_quoted_fields},
    {"-no_whitespace", false, take_no_whitespace},
    {"-dateformat", true, take_date_format},
    {"-timeformat", true, take_time_format},
});

constexpr option_row verbose_row = {"-verbose", false, set_flag<&cmd_params::section_rules, true>};
constexpr option_row short_verbose_row = {"-v", false, set_flag<&cmd_params::section_rules, true>};
constexpr option_row quiet_row = {"-quiet", false, set_flag<&cmd_params::show_progress, false>};

enum class taking { absent, taken, ended };

taking take_row(const option_row& row, cmd_params& params, argument_list& args)
{
    std::string value;
    const bool found = row.takes_value ? find_option_value(row.name, value, args)
                                       : find_option_flag(row.name, args);
    if (!found) {
        return taking::absent;
    }
    return row.effect(params, value, args) ? taking::taken : taking::ended;
}

template <typename table>
bool take_rows(const table& rows, cmd_params& params, argument_list& args)
{
    for (const option_row& row : rows) {
        if (take_row(row, params, args) == taking::ended) {
            return false;
        }
    }
    return true;
}

// The second of two spellings is only looked up when the first is absent.
bool take_either(const option_row& first, const option_row& second, cmd_params& params,
                 argument_list& args)
{
    const taking outcome = take_row(first, params, args);
    return outcome == taking::absent ? take_row(second, params, args) != taking::ended
                                     : outcome == taking::taken;
}

std::string joined_arguments(const argument_list& args)
{
    std::string joined;
    for (const std::string& argument : args) {
        if (!joined.empty()) {
            joined += ' ';
        }
        const bool quoted = argument.find(' ') != std::string::npos;
        joined += quoted ? '"' + argument + '"' : argument;
    }
    return joined;
}

std::string program_name_of(const std::string& path)
{
    const std::size_t separator = path.find_last_of("/\\");
    const std::string name = separator == std::string::npos ? path : path.substr(separator + 1);
    return name.substr(0, name.find('.'));
}

} // namespace

bool parse_common_options(cmd_params& params, argument_list& args)
{
    if (args.empty()) {
        return false;
    }
    if (params.raw_cmdline.empty()) {
        params.raw_cmdline = joined_arguments(args);
    }
    if (params.program_name.empty()) {
        params.program_name = program_name_of(args.front());
    }
    const bool goes_on = take_rows(rows_before_filters, params, args) &&
                         take_either(out_row, outfile_row, params, args) &&
                         take_rows(rows_of_lists, params, args) && take_filters(params, args) &&
                         take_rows(rows_behind_filters, params, args) &&
                         take_either(verbose_row, short_verbose_row, params, args) &&
                         take_row(quiet_row, params, args) != taking::ended;
    if (!goes_on) {
        return false;
    }
    uni::compile_date_style(params.date_style, params.dateformat, params.timeformat,
                            params.pair_datetime);
    return true;
}

} // namespace front
