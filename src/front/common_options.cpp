#include "front/common_options.h"

#include <algorithm>
#include <array>
#include <optional>

#include "form/forms.h"
#include "front/filter.h"
#include "platform/files.h"
#include "platform/host.h"
#include "uni/marks.h"
#include "uni/numbers.h"
#include "uni/paths.h"
#include "uni/text.h"

namespace front {

namespace {

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

bool take_diags(parsing& now, const option_row&, const std::string& value)
{
    now.options.log_path = value;
    now.log.write(uni::marked(now.options.raw_cmdline));
    if (!find_option_flag("-l2", now.args)) {
        find_option_flag("-l3", now.args);
    }
    return true;
}

// Of several forms the last of their table wins; where that or the other is a stream of its own, it is said.
bool take_form(parsing& now, const option_row& option, const std::string&)
{
    const form::form_row& row =
        *std::ranges::find(form::all_forms(), option.name, &form::form_row::option);
    request::cmd_params& params = now.options;
    if (!params.form_option.empty() && row.header == form::banner::in_the_form) {
        now.notices.say("not used here: %s\n", std::string(params.form_option).c_str());
    }
    params.form = row.name;
    params.form_option = row.option;
    set_csv_separator(params, row.separator);
    if (row.separator_blanks != form::blanks::as_they_are) {
        params.no_whitespace = row.separator_blanks == form::blanks::none || !params.pair_datetime;
    }
    return true;
}

// Aliases have no reader here, but an uneven list of them is refused.
bool check_alias(parsing& now, const option_row&, const std::string& value)
{
    const std::size_t items = uni::split(value, '|', false).size();
    if (items == 0 || items % 2 != 0) {
        now.notices.fail("imbalanced alias to true pathfiles, aborting\n");
        return false;
    }
    return true;
}

bool check_alias_path(parsing& now, const option_row& row, const std::string& value)
{
    return value.find('|') == std::string::npos || check_alias(now, row, value);
}

bool accept(parsing&, const option_row&, const std::string&)
{
    return true;
}

bool refuse(parsing& now, const option_row&, const std::string&)
{
    now.notices.fail("This option is not offered in this build\n");
    return false;
}

bool take_out(parsing& now, const option_row&, const std::string& value)
{
    now.options.out_path = platform::native_spelling(expanded(value, true));
    now.options.append = find_option_flag("-append", now.args);
    return true;
}

// No filter looks at the paths that may come with it.
void pass_over_filter_path(parsing& now)
{
    std::string path;
    find_option_value("-filter_path", path, now.args);
}

bool skip_filter(parsing& now, const option_row&, const std::string&)
{
    pass_over_filter_path(now);
    return true;
}

bool take_filter(parsing& now, const option_row&, const std::string& value)
{
    std::vector<request::filter_entry> entries;
    parse_filter(entries, value);
    std::vector<request::filter_entry>& list = now.options.filter_list;
    list.insert(list.end(), entries.begin(), entries.end());
    pass_over_filter_path(now);
    return true;
}

bool take_signature(parsing& now, const option_row& row, const std::string& value)
{
    std::optional<request::filter_entry> entry = parse_signature_filter(value);
    if (!entry) { // otherwise it would leave every file out
        now.notices.fail("Don't understand %s %s\n", std::string(row.name).c_str(), value.c_str());
        return false;
    }
    now.options.filter_list.push_back(*std::move(entry));
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

std::optional<std::uint64_t> read_window_end(const window_text& text)
{
    constexpr std::string_view digits = "0123456789";
    const auto is_made_of = [](std::string_view part, std::string_view characters) {
        return part.find_first_not_of(characters) == std::string_view::npos;
    };
    const std::string of_date = std::string(digits) + text.separator;
    if (!is_made_of(text.date, of_date) || !is_made_of(text.time, "0123456789:.") ||
        std::ranges::count(text.date, text.separator) != 2) {
        return std::nullopt;
    }
    uni::system_time fields;
    if (!uni::parse_date_time(text.date, text.time, "YMD", text.separator, fields)) {
        return std::nullopt;
    }
    const auto filetime = uni::filetime_from(fields);
    const bool is_printable =
        filetime && uni::time_value_from(*filetime, uni::time_kind::filetime).valid;
    return is_printable ? filetime : std::nullopt;
}

bool refuse_date(parsing& now, const option_row& row, const std::string& value)
{
    now.notices.fail("Don't understand %s %s\n", std::string(row.name).c_str(), value.c_str());
    return false;
}

bool take_start_time(parsing& now, const option_row& row, const std::string& value)
{
    request::cmd_params& params = now.options;
    const window_text text = split_window(value);
    if (text.date.empty() || text.separator == '\0') {
        return refuse_date(now, row, value);
    }
    params.time_window_start = read_window_end(text);
    return params.time_window_start || refuse_date(now, row, value);
}

bool take_stop_time(parsing& now, const option_row& row, const std::string& value)
{
    request::cmd_params& params = now.options;
    const window_text text = split_window(value);
    if (text.date.empty() || text.separator == '\0') {
        return refuse_date(now, row, value);
    }
    params.time_window_stop = read_window_end(text);
    if (!params.time_window_stop) {
        return refuse_date(now, row, value);
    }
    if (params.time_window_stop < params.time_window_start) {
        params.time_window_stop.reset();
        now.notices.say("invalid stop time, ignoring\n");
    }
    return true;
}

bool take_quoted_fields(parsing& now, const option_row&, const std::string&)
{
    request::cmd_params& params = now.options;
    params.quoted_csv_fields = true;
    if (params.csv_separator.find('\t') == std::string::npos) {
        uni::trim(params.csv_separator);
    }
    params.pad_separator = false;
    params.field_char_from = '\0';
    return true;
}

bool take_no_whitespace(parsing& now, const option_row&, const std::string&)
{
    request::cmd_params& params = now.options;
    params.no_whitespace = true;
    params.pad_separator = false;
    uni::remove_char(params.csv_separator, ' ');
    return true;
}

void refuse_format(parsing& now, const std::string& value)
{
    now.notices.say("invalid %s, using default format\n", value.c_str());
}

bool take_date_format(parsing& now, const option_row&, const std::string& value)
{
    request::cmd_params& params = now.options;
    if (is_date_format(value)) {
        params.dateformat = uni::lowered(value);
    } else {
        refuse_format(now, value);
    }
    return true;
}

bool take_time_format(parsing& now, const option_row&, const std::string& value)
{
    request::cmd_params& params = now.options;
    const bool has_length = value.size() == 8 || (value.size() >= 12 && value.size() <= 18);
    if (has_length && value.find(':') != std::string::npos) {
        params.timeformat = uni::lowered(value);
    } else {
        refuse_format(now, value);
    }
    return true;
}

template <bool request::cmd_params::*field, bool value>
// cppcheck-suppress unusedFunction ; called through the table
bool set_flag(parsing& now, const option_row&, const std::string&)
{
    now.options.*field = value;
    return true;
}

template <std::string request::cmd_params::*field>
// cppcheck-suppress unusedFunction ; called through the table
bool set_text(parsing& now, const option_row&, const std::string& value)
{
    now.options.*field = value;
    return true;
}

bool take_color(parsing& now, const option_row& row, const std::string& value)
{
    const std::string when = uni::lowered(value);
    if (when == "always") {
        now.options.color = request::color_use::always;
    } else if (when == "never") {
        now.options.color = request::color_use::never;
    } else if (when != "auto") {
        now.notices.fail("Don't understand %s %s\n", std::string(row.name).c_str(), value.c_str());
        return false;
    }
    return true;
}

bool take_enumdir(parsing& now, const option_row&, const std::string& value)
{
    request::cmd_params& params = now.options;
    params.enumdir_path = expanded(value, false);
    params.enumdir = true;
    return true;
}

bool take_num_subdirs(parsing& now, const option_row&, const std::string& value)
{
    request::cmd_params& params = now.options;
    if (const auto number = uni::read_number(value)) {
        params.num_subdirs = *number;
    } else {
        now.notices.say("invalid -num_subdirs %s, ignoring\n", value.c_str());
    }
    return true;
}

bool take_threads(parsing& now, const option_row&, const std::string& value)
{
    if (const auto number = uni::read_u32_auto(value)) {
        now.options.bounds.threads = *number;
    } else {
        now.notices.say("invalid -threads %s, ignoring\n", value.c_str());
    }
    return true;
}

bool take_separator(parsing& now, const option_row& row, const std::string& value)
{
    // What acts on a screen, ends a row or quotes a field parts none.
    std::string rest = value;
    uni::remove_char(rest, '\t');
    if (uni::needs_marks(rest) || rest.find('"') != std::string::npos) {
        now.notices.fail("Don't understand %s %s\n", std::string(row.name).c_str(), value.c_str());
        return false;
    }
    set_csv_separator(now.options, value);
    return true;
}

// Before and behind the forms.
constexpr auto first_rows = std::to_array<option_row>({
    {"-pair_datetime", false, set_flag<&request::cmd_params::pair_datetime, true>},
    {"-diags", true, take_diags},
    {"-l2", false, nullptr, look_up::by_another_effect},
    {"-l3", false, nullptr, look_up::by_another_effect},
    {"-no_header", false, set_flag<&request::cmd_params::no_header, true>},
});

constexpr auto more_rows = std::to_array<option_row>({
    {"-alias", true, check_alias},
    {"-aliaspath", true, check_alias_path},
    {"-gzip", false, accept},
    {"-zlib", false, accept},
    {"-threads", true, take_threads},
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
    {"-out", true, take_out},
    {"-outfile", true, take_out, look_up::if_none_yet},
    {"-append", false, nullptr, look_up::by_another_effect},
    {"-outdir", true, accept},
    {"-enumdir", true, take_enumdir},
    {"-num_subdirs", true, take_num_subdirs},
    {"-deleted", false, set_flag<&request::cmd_params::deleted, true>},
    {"-by_content", false, set_flag<&request::cmd_params::by_content, true>},
    {"-profile", false, set_flag<&request::cmd_params::profile, true>},
    {"-pipe", false, set_flag<&request::cmd_params::pipe, true>},
    {"-filter_skip", true, skip_filter, look_up::each},
    {"-filter", true, take_filter, look_up::each},
    {"-filter_path", true, nullptr, look_up::by_another_effect},
    {"-filter_sig", true, take_signature, look_up::each},
    {"-cmd_start_time", true, take_start_time},
    {"-cmd_stop_time", true, take_stop_time},
    {"-base10", false, set_flag<&request::cmd_params::base16, false>},
    {"-base16", false, set_flag<&request::cmd_params::base16, true>},
    {"-csv_separator", true, take_separator},
    {"-enable_quoted_csv_fields", false, take_quoted_fields},
    {"-safe_csv", false, set_flag<&request::cmd_params::safe_csv, true>},
    {"-no_whitespace", false, take_no_whitespace},
    {"-dateformat", true, take_date_format},
    {"-timeformat", true, take_time_format},
    // Rules between sections are always written where a form has them.
    {"-verbose", false, accept},
    {"-v", false, accept, look_up::if_none_yet},
    {"-color", true, take_color},
    {"-quiet", false, set_flag<&request::cmd_params::show_progress, false>},
});

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

void add_common_options(std::vector<option_row>& rows)
{
    rows.insert(rows.end(), first_rows.begin(), first_rows.end());
    for (const form::form_row& row : form::all_forms()) {
        if (!row.option.empty()) {
            rows.push_back({row.option, false, take_form});
        }
    }
    rows.insert(rows.end(), more_rows.begin(), more_rows.end());
}

std::optional<std::string_view> form_asked_for(const argument_list& args)
{
    std::optional<std::string_view> name;
    for (const form::form_row& row : form::all_forms()) {
        if (!row.option.empty() && peek_option_flag(row.option, args)) {
            name = row.name;
        }
    }
    return name;
}

void note_command_line(request::cmd_params& params, const argument_list& args)
{
    params.raw_cmdline = joined_arguments(args);
    params.program_name = program_name_of(args.front());
}

bool is_date_format(const std::string& text)
{
    uni::date_style style;
    const bool has_order = (text.size() == 8 || text.size() == 10) &&
                           uni::compile_date_style(style, uni::lowered(text), {}, false) &&
                           style.order != uni::date_style::field_order::none;
    // Two digits in front would show no year.
    return has_order &&
           (style.four_digit_year || style.order != uni::date_style::field_order::year_month_day);
}

} // namespace front
