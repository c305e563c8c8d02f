#include "front/common_options.h"

#include <array>

#include "form/forms.h"
#include "front/filter.h"
#include "platform/files.h"
#include "platform/host.h"
#include "uni/numbers.h"
#include "uni/paths.h"
#include "uni/text.h"

namespace front {

namespace {

// What an option works on: what is asked for, the arguments that are left, and the log.
struct parsing {
    request::cmd_params& params;
    argument_list& args;
    diag_log& log;
    io::notices& notices;
};

// One option that stands for itself: its name, whether a value follows it, and its effect, which
// answers false to end the run.
struct option_row {
    std::string_view name;
    bool takes_value;
    bool (*effect)(parsing& now, const std::string& value);
};

std::string expanded(const std::string& text, bool allow_snapshot)
{
    return uni::expand_path(text, allow_snapshot, platform::environment_variable);
}

// Stores the separator as it came and derives from it the substitution that keeps it out of fields.
void set_csv_separator(request::cmd_params& params, std::string_view text)
{
    params.csv_separator = text;
    const std::string lower = uni::lowered(text);
    params.field_char_from = '\0';
    if (params.quoted_csv_fields) {
        return;
    }
    if (lower.find('|') != std::string::npos) {
        params.field_char_from = '|';
        params.field_char_to = ';';
    } else if (lower.find(',') != std::string::npos) {
        params.field_char_from = ',';
        params.field_char_to = ' ';
    } else if (lower == "tab" || lower == "\\t") {
        params.csv_separator = "\t";
    }
}

bool take_diags(parsing& now, const std::string& value)
{
    now.params.log_path = value;
    now.log.write(now.params.raw_cmdline);
    if (!find_option_flag("-l2", now.args)) {
        find_option_flag("-l3", now.args);
    }
    return true;
}

// Takes the forms that are asked for, of which the last of the table wins.
void take_forms(request::cmd_params& params, argument_list& args)
{
    for (const form::form_row& row : form::all_forms()) {
        if (row.option.empty() || !find_option_flag(row.option, args)) {
            continue;
        }
        params.form = row.name;
        set_csv_separator(params, row.separator);
        if (row.separator_blanks != form::blanks::as_they_are) {
            params.no_whitespace =
                row.separator_blanks == form::blanks::none || !params.pair_datetime;
        }
    }
}

// Aliases have no reader here, but an uneven list of them is refused.
bool check_alias(parsing& now, const std::string& value)
{
    const std::size_t items = uni::split(value, '|', false).size();
    if (items == 0 || items % 2 != 0) {
        now.notices.fail("%s, aborting\n", "imbalanced alias to true pathfiles");
        return false;
    }
    return true;
}

bool check_alias_path(parsing& now, const std::string& value)
{
    return value.find('|') == std::string::npos || check_alias(now, value);
}

bool accept(parsing&, const std::string&)
{
    return true;
}

bool refuse(parsing& now, const std::string&)
{
    now.notices.fail("This option is not offered in this build\n");
    return false;
}

bool take_out(parsing& now, const std::string& value)
{
    now.params.out_path = platform::native_spelling(expanded(value, true));
    now.params.append = find_option_flag("-append", now.args);
    return true;
}

bool take_filters(request::cmd_params& params, argument_list& args)
{
    std::string value;
    std::string path;
    std::vector<request::filter_entry> entries;
    while (find_option_value("-filter_skip", value, args)) {
        find_option_value("-filter_path", path, args);
    }
    while (find_option_value("-filter", value, args)) {
        parse_filter(entries, value);
        params.filter_list.insert(params.filter_list.end(), entries.begin(), entries.end());
        find_option_value("-filter_path", path, args);
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

request::window_end read_window_end(const window_text& text, const std::string& time)
{
    request::window_end end;
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

bool take_start_time(parsing& now, const std::string& value)
{
    request::cmd_params& params = now.params;
    const window_text text = split_window(value);
    if (text.date.empty() || text.separator == '\0') {
        return false;
    }
    params.time_window_start = read_window_end(text, text.time);
    if (params.time_window_start.set) {
        params.time_window_stop = {true, UINT64_MAX, UINT32_MAX};
    } else {
        now.notices.say("invalid start time, ignoring\n");
    }
    return true;
}

bool take_stop_time(parsing& now, const std::string& value)
{
    request::cmd_params& params = now.params;
    const window_text text = split_window(value);
    if (text.date.empty() || text.separator == '\0') {
        return false;
    }
    // The date stands in for the time too, so that hardly any stop time is accepted.
    const request::window_end stop = read_window_end(text, text.date);
    const request::window_end& start = params.time_window_start;
    const bool usable = stop.set && !(start.set && stop.filetime < start.filetime);
    params.time_window_stop = usable ? stop : request::window_end();
    if (!usable) {
        now.notices.say("invalid stop time, ignoring\n");
    }
    return true;
}

bool take_quoted_fields(parsing& now, const std::string&)
{
    request::cmd_params& params = now.params;
    params.quoted_csv_fields = true;
    if (params.csv_separator.find('\t') == std::string::npos) {
        uni::trim(params.csv_separator);
    }
    params.pad_separator = false;
    params.field_char_from = '\0';
    return true;
}

bool take_no_whitespace(parsing& now, const std::string&)
{
    request::cmd_params& params = now.params;
    params.no_whitespace = true;
    params.pad_separator = false;
    uni::remove_char(params.csv_separator, ' ');
    return true;
}

void refuse_format(parsing& now, const std::string& value)
{
    now.notices.say("invalid %s, using default format\n", value.c_str());
}

bool take_date_format(parsing& now, const std::string& value)
{
    request::cmd_params& params = now.params;
    if (value.size() == 8 || value.size() == 10) {
        params.dateformat = uni::lowered(value);
    } else {
        refuse_format(now, value);
    }
    return true;
}

bool take_time_format(parsing& now, const std::string& value)
{
    request::cmd_params& params = now.params;
    const bool has_length = value.size() == 8 || (value.size() >= 12 && value.size() <= 18);
    if (has_length && value.find(':') != std::string::npos) {
        params.timeformat = uni::lowered(value);
    } else {
        refuse_format(now, value);
    }
    return true;
}

template <bool request::cmd_params::*field, bool value>
bool set_flag(parsing& now, const std::string&)
{
    now.params.*field = value;
    return true;
}

template <std::string request::cmd_params::*field>
bool set_text(parsing& now, const std::string& value)
{
    now.params.*field = value;
    return true;
}

bool take_enumdir(parsing& now, const std::string& value)
{
    request::cmd_params& params = now.params;
    params.enumdir_path = expanded(value, false);
    params.enumdir = true;
    return true;
}

bool take_num_subdirs(parsing& now, const std::string& value)
{
    request::cmd_params& params = now.params;
    params.num_subdirs = uni::read_u32_auto(value).value_or(params.num_subdirs);
    return true;
}

bool take_separator(parsing& now, const std::string& value)
{
    request::cmd_params& params = now.params;
    set_csv_separator(params, value);
    return true;
}

// The order of the rows settles every conflict, whatever the command line says.
constexpr option_row pair_row = {"-pair_datetime", false,
                                 set_flag<&request::cmd_params::pair_datetime, true>};
constexpr option_row diags_row = {"-diags", true, take_diags};

constexpr auto rows_before_filters = std::to_array<option_row>({
    {"-alias", true, check_alias},
    {"-aliaspath", true, check_alias_path},
    {"-gzip", false, accept},
    {"-zlib", false, accept},
    {"-threads", true, accept},
    {"-zlibex", true, accept},
    {"-sqlite_log", true, refuse},
    {"-sqlite", true, refuse},
    {"-signal", true, set_text<&request::cmd_params::signal_name>},
    {"-hostname", true, set_text<&request::cmd_params::hostname>},
    {"-split_pathfile", false, accept},
    {"-username", true, set_text<&request::cmd_params::username>},
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
    {"-profile", false, set_flag<&request::cmd_params::profile, true>},
    {"-pipe", false, set_flag<&request::cmd_params::pipe, true>},
});

constexpr auto rows_behind_filters = std::to_array<option_row>({
    {"-cmd_start_time", true, take_start_time},
    {"-cmd_stop_time", true, take_stop_time},
    {"-base10", false, set_flag<&request::cmd_params::base16, false>},
    {"-base16", false, set_flag<&request::cmd_params::base16, true>},
    {"-csv_separator", true, take_separator},
    {"-enable_quoted_csv_fields", false, take_quoted_fields},
    {"-no_whitespace", false, take_no_whitespace},
    {"-dateformat", true, take_date_format},
    {"-timeformat", true, take_time_format},
});

// Rules between sections are always written where a form has them.
constexpr option_row verbose_row = {"-verbose", false, accept};
constexpr option_row short_verbose_row = {"-v", false, accept};
constexpr option_row quiet_row = {"-quiet", false,
                                  set_flag<&request::cmd_params::show_progress, false>};

enum class taking { absent, taken, ended };

taking take_row(const option_row& row, parsing& now)
{
    std::string value;
    const bool found = row.takes_value ? find_option_value(row.name, value, now.args)
                                       : find_option_flag(row.name, now.args);
    if (!found) {
        return taking::absent;
    }
    return row.effect(now, value) ? taking::taken : taking::ended;
}

template <typename table>
bool take_rows(const table& rows, parsing& now)
{
    for (const option_row& row : rows) {
        if (take_row(row, now) == taking::ended) {
            return false;
        }
    }
    return true;
}

// The second of two spellings is only looked up when the first is absent.
bool take_either(const option_row& first, const option_row& second, parsing& now)
{
    const taking outcome = take_row(first, now);
    return outcome == taking::absent ? take_row(second, now) != taking::ended
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

bool parse_common_options(request::cmd_params& params, argument_list& args, diag_log& log,
                          io::notices& notices)
{
    if (args.empty()) {
        return false;
    }
    params.raw_cmdline = joined_arguments(args);
    params.program_name = program_name_of(args.front());
    parsing now{params, args, log, notices};
    take_row(pair_row, now);
    take_row(diags_row, now);
    take_forms(params, args);
    const bool goes_on = take_rows(rows_before_filters, now) &&
                         take_either(out_row, outfile_row, now) && take_rows(rows_of_lists, now) &&
                         take_filters(params, args) && take_rows(rows_behind_filters, now) &&
                         take_either(verbose_row, short_verbose_row, now) &&
                         take_row(quiet_row, now) != taking::ended;
    if (!goes_on) {
        return false;
    }
    uni::compile_date_style(params.date_style, params.dateformat, params.timeformat,
                            params.pair_datetime);
    return true;
}

} // namespace front
