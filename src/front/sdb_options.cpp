#include "front/sdb_options.h"

#include <algorithm>
#include <array>

#include "form/forms.h"
#include "front/common_options.h"
#include "front/discovery.h"
#include "front/pattern_text.h"
#include "io/notice.h"
#include "platform/files.h"
#include "platform/host.h"
#include "report/reports.h"
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

bool take_tag(request::sdb_opts& options, argument_list& args, io::notices& notices)
{
    std::string value;
    if (!find_option_value("-tag", value, args)) {
        return true;
    }
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

void take_listings(request::sdb_opts& options, argument_list& args)
{
    for (const report::report_row& row : report::all_reports()) {
        if (!row.option.empty() && find_option_flag(row.option, args)) {
            options.listings.push_back(row.name);
        }
    }
}

// A form that has no room for what is asked for gives way to lines.
void settle_form(request::sdb_opts& options)
{
    const bool calls_for_rows =
        options.is_list_form() || options.stats || options.list_sdb ||
        std::ranges::any_of(options.listings, [](std::string_view name) {
            return report::report_of(name).forms == report::forms_taken::with_rows;
        });
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

bool take_partition(request::sdb_opts& options, argument_list& args, io::notices& notices)
{
    constexpr std::size_t letter_and_colon = 2;
    std::string value;
    if (!find_option_value("-partition", value, args)) {
        return true;
    }
    if (refuse_with_list_form(options, notices)) {
        return false;
    }
    options.partition_given = true;
    options.volume_given = true;
    if (const auto volume = platform::volume_at(value)) {
        options.volume_text = *volume;
        return true;
    }
    options.volume_text = value.substr(0, letter_and_colon);
    if (value.size() == 1) {
        options.volume_text += ':';
    }
    return true;
}

bool take_vss(request::sdb_opts& options, argument_list& args, io::notices& notices)
{
    std::string value;
    if (!find_option_value("-vss", value, args)) {
        return true;
    }
    if (!platform::is_process_admin()) {
        notices.fail("This option requires admin privileges...\n");
        notices.fail("need to restart cmd prompt using \"Run As Administrator\" option...\n");
        return false;
    }
    options.vss_given = true;
    options.volume_text = platform::volume_at(value).value_or(uni::snapshot_prefix(false) + value);
    return true;
}

bool file_is_there(const std::string& path, io::notices& notices)
{
    platform::file_facts facts;
    if (!path.empty() && platform::read_file_facts(path, facts)) {
        return true;
    }
    notices.fail("Prob reading file %s\n", path.c_str());
    return false;
}

bool take_database_target(request::sdb_opts& options, argument_list& args, io::notices& notices)
{
    std::string value;
    if (!find_option_value("-sdb", value, args)) {
        return true;
    }
    options.sdb_path = expanded(value);
    // The first two characters, which are the drive of a whole path. A device or a share has none,
    // and separators alone would stand for the current drive.
    options.volume_text = options.sdb_path.substr(0, 2);
    if (options.volume_text.find_first_not_of("\\/") == std::string::npos) {
        options.volume_text.clear();
    }
    return file_is_there(options.sdb_path, notices);
}

bool take_sdb(request::sdb_opts& options, argument_list& args, io::notices& notices)
{
    std::string value;
    if (argument_list rest = args; !find_option_value("-sdb", value, rest)) {
        return true;
    }
    if (options.vss_given) {
        notices.fail("-vss option should not be used with -sdb option, "
                     "use %%vss%%# option for -sdb option\n");
        return false;
    }
    if (options.partition_given) {
        notices.fail("-partition option should not be used with -sdb option\n");
        return false;
    }
    return !refuse_with_list_form(options, notices) && take_database_target(options, args, notices);
}

bool take_pe(request::sdb_opts& options, argument_list& args, io::notices& notices)
{
    std::string value;
    if (find_option_value("-pe", value, args)) {
        options.pe_path = expanded(value);
        if (!options.vss_given && !file_is_there(options.pe_path, notices)) {
            return false;
        }
        options.pe_stats = options.stats;
    } else if (options.is_list_form() && find_option_flag("-pe", args)) {
        options.pe_stats = options.stats;
    }
    return true;
}

bool take_match(request::sdb_opts& options, argument_list& args, io::notices& notices)
{
    if (!find_option_flag("-match", args)) {
        return true;
    }
    options.match_mode = true;
    if (options.pe_path.empty()) {
        notices.fail("This option requires -pe <PE file> as well\n");
        return false;
    }
    return true;
}

// Says on standard output that a value could not be understood.
bool refuse_value(io::output_sink& standard_output, std::string_view value, std::string_view wanted)
{
    standard_output.text("prob understanding ");
    standard_output.text(value);
    standard_output.text(wanted);
    return false;
}

// The first -patchbytes is a pattern, a second one a GUID, though the usage text promises an option
// -guid, which nothing looks for.
bool take_patch_bytes(request::sdb_opts& options, argument_list& args,
                      io::output_sink& standard_output)
{
    std::string value;
    if (find_option_value("-patchbytes", value, args)) {
        options.patch_pattern = read_pattern_text(value);
        if (options.patch_pattern.empty()) {
            return refuse_value(standard_output, value, " as pattern\n");
        }
    }
    if (find_option_value("-patchbytes", value, args)) {
        const auto guid = read_guid_argument(value);
        if (!guid) {
            return refuse_value(standard_output, value, " as guid\n");
        }
        options.search.guid = *guid;
    }
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

void take_lists(request::sdb_opts& options, argument_list& args)
{
    std::string value;
    if (find_option_value("-tagids", value, args)) {
        for (const std::string& item : uni::split(value, list_separator(value, "|,", ' '), true)) {
            if (const auto id = uni::read_u32_auto(item)) {
                options.search.tagids.push_back(*id);
            }
        }
    }
    if (find_option_value("-strings", value, args)) {
        const char separator = list_separator(value, "|,;", '\0');
        options.search.strings =
            separator == '\0' ? std::vector{value} : uni::split(value, separator, true);
        for (std::string& item : options.search.strings) {
            uni::lower_text(item);
        }
    }
}

void settle_hive(request::sdb_opts& options, argument_list& args)
{
    if (find_option_value("-reg", options.software_hive_path, args)) {
        options.hive_given = true;
    } else if (!options.pe_stats && !options.volume_text.empty() &&
               (options.stats || options.list_sdb)) {
        options.hive_given = true;
        options.software_hive_path =
            path_on_volume(options.volume_text, {"Windows", "System32", "Config", "Software"});
    }
}

} // namespace

bool parse_sdb_options(request::sdb_opts& options, argument_list& args, diag_log& log,
                       io::notices& notices, io::output_sink& standard_output)
{
    if (!parse_common_options(options, args, log, notices)) {
        return false;
    }
    if (find_option_flag("-stats", args)) {
        options.stats = true;
    } else if (find_option_flag("-listsdb", args)) {
        options.list_sdb = true;
    }
    if (!take_tag(options, args, notices)) {
        return false;
    }
    take_listings(options, args);
    if (!take_partition(options, args, notices) || !take_vss(options, args, notices) ||
        !take_sdb(options, args, notices) || !take_pe(options, args, notices) ||
        !take_match(options, args, notices) || !take_patch_bytes(options, args, standard_output)) {
        return false;
    }
    take_lists(options, args);
    settle_form(options);
    const bool searches_for_stats = options.stats && !options.pe_stats && options.sdb_path.empty();
    options.searches_default_places =
        options.vss_given || options.partition_given || options.list_sdb || searches_for_stats;
    if (options.searches_default_places && options.volume_text.empty()) {
        options.volume_text = "c:";
    }
    settle_hive(options, args);
    return true;
}

} // namespace front
