#include "front/sdb_options.h"

#include <algorithm>
#include <array>

#include "front/common_options.h"
#include "front/discovery.h"
#include "front/pattern_text.h"
#include "platform/files.h"
#include "platform/host.h"
#include "io/fileio.h"
#include "io/notice.h"
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

bool take_tag(sdb_opts& options, argument_list& args)
{
    std::string value;
    if (!find_option_value("-tag", value, args)) {
        return true;
    }
    const auto number = uni::read_u32_auto(value);
    if (!number) {
        io::print_notice("Don't understand tag # %s\n", value.c_str());
        return false;
    }
    options.tag_filter = *number;
    if ((*number & 0xf000) != 0x7000) {
        io::print_notice("This version only handles certain TAG_TYPE_LIST type tags "
                          "(eg. 0x7003 - 0x70xx)\n");
        return false;
    }
    if (is_refused_tag(*number)) {
        io::print_notice("Doesn't handle these TAG_TYPE_LIST type tags\n");
        return false;
    }
    options.tag_filter_on = true;
    return true;
}

void take_listings(sdb_opts& options, argument_list& args)
{
    struct listing_row {
        std::string_view name;
        bool sdb_opts::*field;
        bool is_plain_only;
    };
    static constexpr auto rows = std::to_array<listing_row>({
        {"-apps", &sdb_opts::list_apps, false},
        {"-fixes", &sdb_opts::list_fixes, false},
        {"-exes", &sdb_opts::exes_only, false},
        {"-shims", &sdb_opts::shims_only, false},
        {"-patches", &sdb_opts::patches_only, false},
        {"-guids", &sdb_opts::list_guids, true},
        {"-stringtable", &sdb_opts::list_stringtable, true},
    });
    for (const listing_row& row : rows) {
        if (find_option_flag(row.name, args)) {
            options.*row.field = true;
            options.xml = options.xml && !row.is_plain_only;
        }
    }
}

// Refuses an option that names its own target beside a list of targets.
bool refuse_with_list_form(const sdb_opts& options)
{
    if (options.pipe || options.enumdir) {
        io::print_notice("Invalid option to use with %s\n", options.pipe ? "-pipe" : "-enumdir");
        return true;
    }
    return false;
}

bool take_partition(sdb_opts& options, argument_list& args)
{
    constexpr std::size_t letter_and_colon = 2;
    std::string value;
    if (!find_option_value("-partition", value, args)) {
        return true;
    }
    if (refuse_with_list_form(options)) {
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

bool take_vss(sdb_opts& options, argument_list& args)
{
    std::string value;
    if (!find_option_value("-vss", value, args)) {
        return true;
    }
    if (!options.is_admin) {
        io::print_notice("This option requires admin privileges...\n");
        io::print_notice("need to restart cmd prompt using \"Run As Administrator\" option...\n");
        return false;
    }
    options.vss_given = true;
    options.vss_text = value;
    options.vss_index = uni::read_u32_auto(value).value_or(0);
    options.volume_text = platform::volume_at(value).value_or(uni::snapshot_prefix(false) + value);
    return true;
}

bool file_is_there(const std::string& path)
{
    if (io::file_exists(path)) {
        return true;
    }
    io::print_notice("Prob reading file %s\n", path.c_str());
    return false;
}

// The smallest step that lets a run reach a database.
bool take_database_target(sdb_opts& options, argument_list& args)
{
    std::string value;
    if (!find_option_value("-sdb", value, args)) {
        return true;
    }
    options.current_path = expanded(value);
    if (!file_is_there(options.current_path)) {
        return false;
    }
    // The first two characters, whatever they are: meant.
    options.volume_text = options.current_path.substr(0, 2);
    options.target_files.push_back(options.current_path);
    options.current_path.clear();
    return true;
}

bool take_sdb(sdb_opts& options, argument_list& args)
{
    std::string value;
    if (argument_list rest = args; !find_option_value("-sdb", value, rest)) {
        return true;
    }
    if (options.vss_given) {
        io::print_notice("-vss option should not be used with -sdb option, "
                          "use %%vss%%# option for -sdb option\n");
        return false;
    }
    if (options.partition_given) {
        io::print_notice("-partition option should not be used with -sdb option\n");
        return false;
    }
    return !refuse_with_list_form(options) && take_database_target(options, args);
}

bool take_pe(sdb_opts& options, argument_list& args)
{
    const bool list_form = options.pipe || options.enumdir;
    std::string value;
    if (find_option_value("-pe", value, args)) {
        options.pe_path = expanded(value);
        if (!options.vss_given && !file_is_there(options.pe_path)) {
            return false;
        }
        options.pe_stats = options.stats;
    } else if (list_form && find_option_flag("-pe", args)) {
        options.pe_stats = options.stats;
    }
    options.xml = options.xml && !list_form;
    return true;
}

bool take_match(sdb_opts& options, argument_list& args)
{
    if (!find_option_flag("-match", args)) {
        return true;
    }
    options.match_mode = true;
    if (options.pe_path.empty()) {
        io::print_notice("This option requires -pe <PE file> as well\n");
        return false;
    }
    return true;
}

// Says on standard output that a value could not be understood.
bool refuse_value(io::output_sink& standard_output, std::string_view value,
                  std::string_view wanted)
{
    standard_output.text("prob understanding ");
    standard_output.text(value);
    standard_output.text(wanted);
    return false;
}

// The first -patchbytes is a pattern, a second one a GUID, though the usage text promises an option
// -guid, which nothing looks for. Meant.
bool take_patch_bytes(sdb_opts& options, argument_list& args, io::output_sink& standard_output)
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
        options.find_guid_text = *guid;
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

void take_lists(sdb_opts& options, argument_list& args)
{
    std::string value;
    if (find_option_value("-tagids", value, args)) {
        for (const std::string& item : uni::split(value, list_separator(value, "|,", ' '), true)) {
            if (const auto id = uni::read_u32_auto(item)) {
                options.find_tagids_list.push_back(*id);
            }
        }
    }
    if (find_option_value("-strings", value, args)) {
        const char separator = list_separator(value, "|,;", '\0');
        options.find_strings_list =
            separator == '\0' ? std::vector{value} : uni::split(value, separator, true);
        for (std::string& item : options.find_strings_list) {
            uni::lower_text(item);
        }
    }
}

void settle_hive(sdb_opts& options, argument_list& args)
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

bool parse_sdb_options(sdb_opts& options, argument_list& args, io::output_sink& standard_output)
{
    if (!parse_common_options(options, args)) {
        return false;
    }
    if (options.csvl2t || options.csv) {
        options.section_rules = false;
    }
    if (options.xml) {
        options.print_header = true;
    }
    if (find_option_flag("-stats", args)) {
        options.stats = true;
        options.xml = false;
    } else if (find_option_flag("-listsdb", args)) {
        options.list_sdb = true;
        options.xml = false;
    }
    if (!take_tag(options, args)) {
        return false;
    }
    take_listings(options, args);
    if (!take_partition(options, args) || !take_vss(options, args) || !take_sdb(options, args) ||
        !take_pe(options, args) || !take_match(options, args) ||
        !take_patch_bytes(options, args, standard_output)) {
        return false;
    }
    take_lists(options, args);
    const bool searches_for_stats =
        options.stats && !options.pe_stats && options.target_files.empty();
    if (options.vss_given || options.partition_given || options.list_sdb || searches_for_stats) {
        add_default_targets(options);
    }
    settle_hive(options, args);
    return true;
}

} // namespace front
