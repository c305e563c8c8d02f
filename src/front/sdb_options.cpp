#include "front/sdb_options.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>
#include <vector>

#include "form/forms.h"
#include "front/common_options.h"
#include "front/discovery.h"
#include "front/explain_setup.h"
#include "front/help.h"
#include "front/option_rows.h"
#include "front/pattern_text.h"
#include "io/notice.h"
#include "model/knowledge.h"
#include "model/stored_path.h"
#include "platform/console.h"
#include "platform/files.h"
#include "platform/host.h"
#include "report/reports.h"
#include "uni/marks.h"
#include "uni/numbers.h"
#include "uni/paths.h"
#include "uni/text.h"

namespace front {

namespace {

std::string expanded(const std::string& text)
{
    return uni::expand_path(text, true, platform::environment_variable);
}

// The list tags from 0x7001 upward that -tag refuses, a bit each, and two more.
bool is_refused_tag(std::uint32_t tag)
{
    constexpr std::uint64_t refused = 0x1c30aaf15110303;
    constexpr std::uint32_t first = 0x7001;
    if (tag == 0x7802 || tag == 0x7803) {
        return true;
    }
    return tag >= first && tag < first + 64 && ((refused >> (tag - first)) & 1) != 0;
}

template <bool request::sdb_opts::*field>
bool set_flag(parsing& now, const option_row&, const std::string&)
{
    now.options.*field = true;
    return true;
}

bool take_tag(parsing& now, const option_row&, const std::string& value)
{
    request::sdb_opts& options = now.options;
    io::notices& notices = now.notices;
    const auto number = uni::read_u32_auto(value);
    if (!number) {
        notices.fail("Don't understand tag # %s\n", value.c_str());
        return false;
    }
    options.tag_filter = static_cast<std::uint16_t>(*number);
    if ((*number & 0xf000) != 0x7000) {
        notices.fail("This version only handles certain TAG_TYPE_LIST type tags "
                     "(eg. 0x7003 - 0x70xx)\n");
        return false;
    }
    if (is_refused_tag(*number)) {
        notices.fail("Doesn't handle these TAG_TYPE_LIST type tags\n");
        return false;
    }
    options.listings.push_back("tag");
    return true;
}

bool take_listing(parsing& now, const option_row& option, const std::string&)
{
    now.options.listings.push_back(
        std::ranges::find(report::all_reports(), option.name, &report::report_row::option)->name);
    return true;
}

// A form that has no room for what is asked for gives way to lines.
void settle_form(request::sdb_opts& options)
{
    const bool calls_for_rows =
        options.is_list_form() || options.stats || options.list_sdb ||
        std::ranges::any_of(options.listings, [](std::string_view name) {
            return report::report_of(name).forms == report::forms_taken::with_rows;
        });
    if (options.explain || !options.diff_path.empty() || options.matches_many()) {
        options.form = !options.form_option.empty() ? options.form : "plain";
        return;
    }
    if (calls_for_rows && form::form_of(options.form).carries == form::contents::records_of_one) {
        options.form = "plain";
    }
}

// Refuses an option that names its own target beside a list of targets.
bool refuse_with_list_form(const request::sdb_opts& options, io::notices& notices)
{
    if (options.is_list_form()) {
        notices.fail("Invalid option to use with %s\n", options.pipe ? "-pipe" : "-enumdir");
        return true;
    }
    return false;
}

// The volume that a letter names, with a colon and separators or without; nothing for another text.
std::optional<std::string> volume_of_letter(std::string_view value)
{
    const bool is_letter =
        !value.empty() && uni::lower_ascii(value[0]) >= 'a' && uni::lower_ascii(value[0]) <= 'z';
    const std::string_view rest = value.substr(is_letter ? 1 : 0);
    const bool names_volume =
        is_letter && (rest.empty() || (rest[0] == ':' &&
                                       rest.find_first_not_of("/\\", 1) == std::string_view::npos));
    return names_volume ? std::optional(std::string(value.substr(0, 1)) + ':') : std::nullopt;
}

// The volume that a value names as it stands: a folder that may be one, an image, or what lies in one.
std::optional<std::string> volume_at(files::file_tree& tree, const std::string& value)
{
    auto volume = platform::volume_at(value);
    std::string reason;
    const files::place_kind kind = tree.kind_of(value, reason);
    const bool is_image = kind == files::place_kind::volume || kind == files::place_kind::disk;
    if (!volume && (is_image || (kind != files::place_kind::nothing && tree.is_in_image(value)))) {
        const std::string path = tree.walkable_path(value);
        volume = path.substr(0, path.find_last_not_of("/\\") + 1);
    }
    return volume;
}

bool take_partition(parsing& now, const option_row&, const std::string& value)
{
    request::sdb_opts& options = now.options;
    if (!options.match_mode && refuse_with_list_form(options, now.notices)) {
        return false;
    }
    options.partition_given = true;
    options.volume_given = true;
    auto volume = volume_at(now.tree, value);
    if (!volume) {
        volume = volume_of_letter(value);
    }
    if (!volume) {
        now.notices.fail("no volume: %s\n", value.c_str());
        return false;
    }
    options.volume_text = *volume;
    return true;
}

// Snapshots are told apart by number.
std::optional<std::string> snapshot_of_number(const std::string& value)
{
    const bool is_number =
        !value.empty() && value.find_first_not_of("0123456789") == std::string::npos;
    return is_number ? std::optional(uni::snapshot_prefix(false) + value) : std::nullopt;
}

bool take_vss(parsing& now, const option_row&, const std::string& value)
{
    request::sdb_opts& options = now.options;
    if (!platform::is_process_admin()) {
        now.notices.fail("This option requires admin privileges...\n");
        now.notices.fail("need to restart cmd prompt using \"Run As Administrator\" option...\n");
        return false;
    }
    options.vss_given = true;
    auto volume = volume_at(now.tree, value);
    if (!volume) {
        volume = snapshot_of_number(value);
    }
    if (!volume) {
        now.notices.fail("no snapshot: %s\n", value.c_str());
        return false;
    }
    options.volume_text = *volume;
    return true;
}

bool file_is_there(files::file_tree& tree, const std::string& path, request::sdb_opts& options,
                   io::notices& notices)
{
    platform::file_facts facts;
    if (!path.empty() && tree.read_facts(path, facts)) {
        return true;
    }
    std::string reason;
    if (tree.is_in_image(path) && !tree.open(path, reason)) {
        notices.fail("Prob reading file %s: %s\n", path.c_str(), reason.c_str());
    } else {
        notices.fail("Prob reading file %s\n", path.c_str());
    }
    options.missing_path = path;
    return false;
}

bool take_sdb(parsing& now, const option_row&, const std::string& value)
{
    request::sdb_opts& options = now.options;
    if (options.vss_given) {
        now.notices.fail("-vss option should not be used with -sdb option, "
                         "use %%vss%%# option for -sdb option\n");
        return false;
    }
    if (options.partition_given) {
        now.notices.fail("-partition option should not be used with -sdb option\n");
        return false;
    }
    // Programs of a list may be matched against it.
    if (!options.match_mode && refuse_with_list_form(options, now.notices)) {
        return false;
    }
    if (!options.sdb_path.empty()) {
        options.more_sdb_paths.push_back(expanded(value));
        return file_is_there(now.tree, options.more_sdb_paths.back(), now.options, now.notices);
    }
    options.sdb_path = expanded(value);
    // Only the drive of a path is a volume that may have a hive: behind two separators none stands.
    // What lies in an image is on no drive either.
    const bool names_no_drive =
        options.sdb_path.find_first_not_of("/\\") >= 2 || now.tree.is_in_image(options.sdb_path);
    options.volume_text = names_no_drive ? "" : model::parts_of(options.sdb_path).drive;
    return file_is_there(now.tree, options.sdb_path, options, now.notices);
}

bool take_pe(parsing& now, const option_row&, const std::string& value)
{
    request::sdb_opts& options = now.options;
    options.pe_path = expanded(value);
    if (!options.vss_given && !file_is_there(now.tree, options.pe_path, options, now.notices)) {
        return false;
    }
    options.pe_stats = options.stats;
    return true;
}

bool take_pe_of_list(parsing& now, const option_row&, const std::string&)
{
    now.options.pe_stats = now.options.stats;
    now.options.programs_in_list = true;
    return true;
}

bool lacks_program(const request::sdb_opts& options, io::notices& notices)
{
    const bool has_one = !options.pe_path.empty() || options.programs_in_list;
    if (options.match_mode && !has_one) {
        notices.fail("This option requires -pe <PE file> as well\n");
        return true;
    }
    // A list of databases is matched with by itself.
    const bool names_database = !options.sdb_path.empty() || options.partition_given;
    return options.match_mode && !options.programs_in_list && names_database &&
           refuse_with_list_form(options, notices);
}

// Says that a value could not be understood: on standard output, unless its form has no place for that.
bool refuse_value(parsing& now, const std::string& value, const char* wanted)
{
    if (form::form_of(now.options.form).header == form::banner::in_the_form) {
        now.notices.fail("prob understanding %s as %s\n", value.c_str(), wanted);
        return false;
    }
    now.standard_output.text("prob understanding ");
    now.standard_output.text(uni::marked(value));
    now.standard_output.text(" as ");
    now.standard_output.text(wanted);
    now.standard_output.line_end();
    return false;
}

bool take_pattern(parsing& now, const option_row&, const std::string& value)
{
    now.options.patch_pattern = read_pattern_text(value);
    return !now.options.patch_pattern.empty() || refuse_value(now, value, "pattern");
}

bool take_guid(parsing& now, const option_row&, const std::string& value)
{
    const auto guid = read_guid_argument(value);
    if (!guid) {
        return refuse_value(now, value, "guid");
    }
    now.options.search.guid = *guid;
    return true;
}

// The first of the separators that a list uses, `otherwise` for none.
char list_separator(std::string_view value, std::string_view separators, char otherwise)
{
    for (const char separator : separators) {
        if (value.find(separator) != std::string_view::npos) {
            return separator;
        }
    }
    return otherwise;
}

// Digits alone are decimal; what can only be hexadecimal is, as reports print it without "0x".
std::optional<std::uint32_t> read_tag_id(const std::string& text)
{
    constexpr std::string_view digits = "0123456789";
    constexpr std::string_view hex_digits = "0123456789abcdefABCDEF";
    const bool is_hex = text.find_first_not_of(hex_digits) == std::string::npos &&
                        text.find_first_not_of(digits) != std::string::npos;
    return uni::read_number(is_hex ? "0x" + text : text);
}

bool take_tagids(parsing& now, const option_row&, const std::string& value)
{
    std::vector<std::uint32_t>& ids = now.options.search.tagids;
    for (const std::string& item : uni::split(value, list_separator(value, "|,", ' '), true)) {
        if (const auto id = read_tag_id(item)) {
            ids.push_back(*id);
        } else {
            now.notices.say("Don't understand tag id %s\n", item.c_str());
        }
    }
    if (ids.empty()) { // without any, everything would be found
        now.notices.fail("no tag id in %s, aborting\n", value.c_str());
    }
    return !ids.empty();
}

bool take_strings(parsing& now, const option_row&, const std::string& value)
{
    const char separator = list_separator(value, "|,;", '\0');
    std::vector<std::string>& strings = now.options.search.strings;
    strings = separator == '\0' ? std::vector{value} : uni::split(value, separator, true);
    for (std::string& item : strings) {
        uni::lower_text(item);
    }
    return true;
}

bool take_reg(parsing& now, const option_row&, const std::string& value)
{
    if (now.options.hive_named) {
        now.options.more_hive_paths.push_back(value);
        return true;
    }
    now.options.hive_given = true;
    now.options.hive_named = true;
    now.options.software_hive_path = value;
    return true;
}

bool take_only(parsing& now, const option_row& row, const std::string& value)
{
    for (const std::string& item : uni::split(uni::lowered(value), ',', true)) {
        if (!model::weight_from(item)) {
            now.notices.fail("Don't understand %s %s\n", std::string(row.name).c_str(),
                             value.c_str());
            return false;
        }
        now.options.only_weights.push_back(item);
    }
    return true;
}

bool take_family(parsing& now, const option_row&, const std::string& value)
{
    for (std::string& item : uni::split(uni::lowered(value), ',', true)) {
        now.options.families.push_back(std::move(item));
    }
    return true;
}

bool take_knowledge(parsing& now, const option_row&, const std::string& value)
{
    now.options.knowledge_paths.push_back(expanded(value));
    return file_is_there(now.tree, now.options.knowledge_paths.back(), now.options, now.notices);
}

bool take_diff(parsing& now, const option_row&, const std::string& value)
{
    now.options.diff_path = value;
    return true;
}

// Beside a volume another volume is compared, beside a folder or a database another of these.
bool settle_diff(request::sdb_opts& options, files::file_tree& tree, io::notices& notices)
{
    std::string& path = options.diff_path;
    if (path.empty()) {
        return true;
    }
    if (options.partition_given) {
        const auto volume = volume_at(tree, path);
        const auto letter = volume ? volume : volume_of_letter(path);
        if (!letter) {
            notices.fail("no volume: %s\n", path.c_str());
            return false;
        }
        path = *letter;
        return true;
    }
    if (options.sdb_path.empty() && !options.enumdir) {
        notices.fail("-diff wants -sdb, -enumdir or -partition beside it\n");
        return false;
    }
    path = expanded(path);
    return file_is_there(tree, path, options, notices);
}

bool take_known(parsing& now, const option_row&, const std::string& value)
{
    now.options.known_paths.push_back(expanded(value));
    return file_is_there(now.tree, now.options.known_paths.back(), now.options, now.notices);
}

// Before and behind the listings.
constexpr auto first_rows = std::to_array<option_row>({
    {"-stats", false, set_flag<&request::sdb_opts::stats>},
    {"-listsdb", false, set_flag<&request::sdb_opts::list_sdb>, look_up::if_none_yet},
    {"-enumsdb", false, set_flag<&request::sdb_opts::list_sdb>, look_up::if_none_yet},
    {"-tag", true, take_tag},
});

constexpr auto more_rows = std::to_array<option_row>({
    // In front of -pe, which may stand without a value.
    {"-match", false, set_flag<&request::sdb_opts::match_mode>},
    {"-explain", false, set_flag<&request::sdb_opts::explain>},
    {"-only", true, take_only},
    {"-family", true, take_family},
    {"-knowledge", true, take_knowledge, look_up::each},
    {"-diff", true, take_diff},
    {"-known", true, take_known, look_up::each},
    {"-partition", true, take_partition},
    {"-vss", true, take_vss},
    {"-sdb", true, take_sdb},
    {"-sdb", true, take_sdb, look_up::more_for_match},
    {"-pe", true, take_pe},
    {"-pe", false, take_pe_of_list, look_up::alone_in_lists},
    {"-patchbytes", true, take_pattern},
    {"-patchbytes", true, take_guid}, // a second one
    {"-guid", true, take_guid},
    {"-tagids", true, take_tagids},
    {"-strings", true, take_strings},
    {"-reg", true, take_reg},
    {"-reg", true, take_reg, look_up::more_for_explain},
    {"-no_logs", false, set_flag<&request::sdb_opts::no_logs>},
});

void add_database_options(std::vector<option_row>& rows)
{
    rows.insert(rows.end(), first_rows.begin(), first_rows.end());
    for (const report::report_row& row : report::all_reports()) {
        if (!row.option.empty()) {
            rows.push_back({row.option, false, take_listing});
        }
    }
    rows.insert(rows.end(), more_rows.begin(), more_rows.end());
}

// What follows from all options together.
void settle_targets(request::sdb_opts& options, files::file_tree& tree)
{
    const bool searches_for_stats = options.stats && !options.pe_stats && options.sdb_path.empty();
    options.searches_default_places =
        options.vss_given || options.partition_given || options.list_sdb || searches_for_stats;
    if (options.searches_default_places && options.volume_text.empty()) {
        options.volume_text = "c:";
    }
    if (!options.hive_given && !options.pe_stats && !options.volume_text.empty() &&
        options.asks_registry()) {
        options.hive_given = true;
        options.software_hive_path =
            path_on_volume(tree, options.volume_text, place_of_software_hive);
    }
}

// What a report for people and the words of progress look like, by what they go to.
void settle_screen(request::sdb_opts& options)
{
    const bool is_on_terminal =
        options.out_path.empty() && platform::standard_output_takes_sequences();
    const bool wants_colors =
        options.color == request::color_use::by_terminal
            ? is_on_terminal && platform::environment_variable("NO_COLOR").value_or("").empty()
            : options.color == request::color_use::always && options.out_path.empty();
    options.has_colors = wants_colors && !options.safe_csv;
    options.columns = is_on_terminal ? platform::output_columns() : 0;
    // Between the lines of a report it would be in the way, and what a pipe takes may come to the same screen.
    const bool may_be_on_screen =
        options.out_path.empty() && (is_on_terminal || platform::standard_output_is_pipe());
    options.draws_progress =
        options.show_progress && !may_be_on_screen && platform::error_stream_takes_sequences();
}

// Says what was asked for and has no effect in this run.
void tell_unused(const request::sdb_opts& options, std::span<const std::string_view> taken,
                 files::file_tree& tree, io::notices& notices)
{
    const auto has = [taken](std::string_view name) {
        return std::ranges::find(taken, name) != taken.end();
    };
    const bool asks_registry = options.asks_registry();
    const bool explains =
        options.explain && !options.stats && !options.list_sdb && !options.compares();
    const bool adds_deleted = options.deleted && !options.compares() &&
                              (options.enumdir || options.volume_given || options.vss_given);
    const std::pair<bool, const char*> unused[] = {
        {options.enumdir && (options.pipe || options.list_sdb), "-enumdir"},
        {options.pipe && options.list_sdb, "-pipe"},
        {options.pe_stats && !options.sdb_path.empty(), "-sdb"},
        {options.pe_stats && options.partition_given, "-partition"},
        {!options.is_list_form() && options.time_window_start, "-cmd_start_time"},
        {!options.is_list_form() && options.time_window_stop, "-cmd_stop_time"},
        {options.deleted && !adds_deleted, "-deleted"},
        {options.hive_named && (options.pe_stats || !asks_registry), "-reg"},
        {options.no_logs && (options.pe_stats || !asks_registry), "-no_logs"},
        {!options.more_hive_paths.empty() && !explains, "a further -reg"},
        {!options.more_sdb_paths.empty() && !options.matches_many(), "a further -sdb"},
        {options.explain && !explains, "-explain"},
        {!options.only_weights.empty() && !explains, "-only"},
        {!options.families.empty() && !explains, "-family"},
        {!options.knowledge_paths.empty() && !explains, "-knowledge"},
        {!options.diff_path.empty() && !options.compares(), "-diff"},
        {options.by_content && !options.enumdir && !adds_deleted &&
             (!(explains || options.compares()) || !options.searches_default_places),
         "-by_content"},
    };
    const form::form_row& form = form::form_of(options.form);
    const bool is_program_list = options.matches_many() && options.is_list_form();
    const std::pair<bool, const char*> unused_where_given[] = {
        {options.match_mode && (options.stats || options.list_sdb), "-match"},
        {!options.enumdir && !options.volume_given && !options.vss_given, "-num_subdirs"},
        {!options.is_list_form() && !options.volume_given && !options.vss_given, "-filter"},
        {!options.is_list_form() && !options.volume_given && !options.vss_given, "-filter_sig"},
        {!options.match_mode && !options.pe_stats && !is_program_list && !options.is_list_form(),
         "-pe"},
        {!options.leaves_known_out(), "-known"},
        {options.list_sdb && !options.out_path.empty() && form.header != form::banner::in_the_form,
         "-out"},
        {options.list_sdb && form.header != form::banner::in_the_form, form.option.data()},
    };
    // Listings and searches, beside what takes their place.
    const bool lists = !options.stats && !options.list_sdb && !explains && !options.compares();
    const auto is_listing = [](std::string_view name) {
        return name == "-strings" || name == "-guid" || name == "-tagids" ||
               name == "-patchbytes" || name == "-tag" ||
               std::ranges::any_of(report::all_reports(), [name](const report::report_row& one) {
                   return one.made_of == report::subject::listing && one.option == name;
               });
    };
    std::vector<std::string_view> told;
    for (const auto& [is_unused, name] : unused) {
        if (is_unused) {
            told.emplace_back(name);
        }
    }
    for (const auto& [is_unused, name] : unused_where_given) {
        if (is_unused && has(name)) {
            told.emplace_back(name);
        }
    }
    std::ranges::copy_if(taken, std::back_inserter(told),
                         [&](std::string_view name) { return !lists && is_listing(name); });
    for (const std::string_view name : told) {
        notices.say("not used here: %s\n", std::string(name).c_str());
    }
    if (form.carries == form::contents::events && !options.stats) {
        notices.say("%s tells what happened and when: it wants -stats\n",
                    std::string(form.option).c_str());
    }
    if (options.hive_named && tree.is_missing(options.software_hive_path) &&
        (options.pe_stats || !asks_registry)) {
        notices.fail("Prob reading hive %s: no such file\n", options.software_hive_path.c_str());
    }
}

bool appends_to_no_lines(const request::sdb_opts& options, io::notices& notices)
{
    const form::contents carries = form::form_of(options.form).carries;
    if (options.append &&
        (carries == form::contents::records_of_one || carries == form::contents::one_page)) {
        notices.fail("-append needs a form of lines, aborting\n");
        return true;
    }
    return false;
}

} // namespace

std::vector<option_row> all_options()
{
    std::vector<option_row> rows;
    add_common_options(rows);
    add_database_options(rows);
    add_help_options(rows);
    return rows;
}

bool parse_sdb_options(request::sdb_opts& options, argument_list& args, files::file_tree& tree,
                       diag_log& log, io::notices& notices, io::output_sink& standard_output)
{
    if (args.empty()) {
        return false;
    }
    note_command_line(options, args);
    const std::vector<option_row> rows = all_options();
    parsing now{options, args, tree, log, notices, standard_output};
    if (!take_rows(rows, now) || lacks_program(options, notices) ||
        !settle_diff(options, tree, notices)) {
        return false;
    }
    uni::compile_date_style(options.date_style, options.dateformat, options.timeformat,
                            options.pair_datetime);
    settle_form(options);
    if (!is_knowledge_sound(options, tree, notices)) {
        return false;
    }
    if (appends_to_no_lines(options, notices)) {
        return false;
    }
    settle_targets(options, tree);
    settle_screen(options);
    tell_unused(options, now.taken, tree, notices);
    options.deleted = options.deleted && !options.compares(); // which has just been said
    tell_ignored(rows, args, notices);
    return true;
}

} // namespace front
