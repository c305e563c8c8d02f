#include "front/startup.h"

#include <algorithm>
#include <span>
#include <string_view>

#include "front/common_options.h"
#include "io/notice.h"
#include "platform/host.h"
#include "uni/marks.h"
#include "uni/text.h"
#include "uni/time.h"

namespace front {

namespace {

constexpr std::string_view program = "quilt";
constexpr std::string_view version = "0.45";
constexpr std::string_view banner = "quilt ver: 0.45";
constexpr std::string_view help_names[] = {"-h", "-help", "-?"};
constexpr std::string_view slash_help = "/?"; // always among errors
constexpr std::string_view version_names[] = {"-version"};
constexpr std::string_view default_date_format = "mm/dd/yyyy";
constexpr std::string_view run_time_format = "hh:mm:ss";
constexpr char os_text_separator = ';';

// Readers know this text, and its own word for a snapshot.
constexpr std::string_view usage_lines =
    "Usage\n"
    " quilt -listsdb              = list SDB files on system volume\n"
    " quilt -stats                = pull stats from SDB files on system volume\n"
    " quilt -sdb <DB> [opts]      = target SDB file w/ specific option\n"
    "\n"
    " Enumerate options\n"
    "  -apps                      = all apps (exes, packages, driverblocks,..)\n"
    "  -exes                      = filter only exe tags\n"
    "  -fixes                     = all types of fixes (shims, flags,..)\n"
    "  -shims                     = filter only shim tag fixes\n"
    "  -patches                   = filter only patch tag fixes\n"
    "  -tag <#>                   = filter specific tag type\n"
    "  -guids                     = enumerate guids\n"
    "  -stringtable               = enumerate stringtable\n"
    "\n"
    " Find Options\n"
    "  -strings \"str1 | str2 |..\" = finds partial strings [case insensitive]\n"
    "  -guid <guid to find>       = syntax: 11111111-1111-1111-1111-111111111111\n"
    "  -tagids \"id1 | id2 |..\"    = finds specified tagids\n"
    "  -patchbytes \"pattern\"      = find patch, std::hex bytes w/ space delimiters\n"
    "  -match                     = use w/ -pe <PE file> to check for shims\n"
    "\n"
    " Additional Options\n"
    "  -vss <index>               = target Volume snapshop at index\n"
    "  -partition <letter>        = target Shim DB locations in this volume\n"
    "  -pipe                      = use stdin to identify files to process\n"
    "  -stats -sdb <file>         = pull stats (on SDB File). [-reg <sw hive>]\n"
    "  -stats -pe <file>          = pull stats (on PE File)\n"
    "  -enumsdb                   = list SDB files\n"
    "  -filter <*partial*|*.ext>  = filters stdin data from -pipe option\n"
    "\n"
    " General Examples\n"
    "  quilt -sdb <file> -apps    = pull all apps from DB\n"
    "  quilt -sdb <file> -patches = pull all patches from DB\n"
    "  quilt -sdb <file> -stats   = pull DB stats\n"
    "  quilt -pe <file> -stats    = pull stats from PE file\n"
    "\n"
    " Pulling stats from multiple SDB's\n"
    "  dir c:\\windows\\AppPatch\\*.sdb /b /s | quilt -stats -pipe -csv > out.csv\n"
    "  quilt -vss 2 -stats -csv > out.csv\n"
    "  quilt -partition c: -exes > out.txt\n"
    "  quilt -enumdir <location sdb> -num_subdirs <#> [options]\n"
    "\n";

std::string usage_text()
{
    return std::string(77, '-') + "\n\n" + std::string(banner) + "\n\n" + std::string(usage_lines);
}

std::string os_text(const platform::host_facts& facts)
{
    std::string build = facts.os_build_text;
    if (const std::size_t dot = build.find('.'); facts.known_version && dot != std::string::npos) {
        // A known build is cut behind the third character after its first dot: the revision would tell
        // no more.
        build.resize(std::min(build.size(), dot + 4));
    }
    std::string text;
    for (const std::string& item : {facts.os_name, facts.os_version_text, build}) {
        std::string clean = item;
        uni::replace_char(clean, os_text_separator, ' ');
        text += clean;
        text += os_text_separator;
    }
    return text + (facts.is_64bit ? "64" : "32");
}

std::string run_line(const argument_list& args, const form::run_facts& run)
{
    std::string format;
    if (!peek_option_value("-dateformat", format, args) || !is_date_format(format)) {
        format = default_date_format;
    }
    std::string date;
    std::string time;
    uni::format_date_time(date, time, uni::time_value_from(run.time, uni::time_kind::filetime),
                          uni::lowered(format), run_time_format);
    return "run time: " + date + " " + time + " [UTC]; host: " + run.host + "; os: " + run.system;
}

std::string command_line(const argument_list& args)
{
    std::string line = "\"cmdline: ";
    if (peek_option_flag("-pipe", args)) {
        line += "<filelist> ... | ";
    }
    bool first = true;
    for (const std::string& argument : args) {
        if (!first) {
            line += ' ';
        }
        first = false;
        const bool quoted = argument.find(' ') != std::string::npos;
        line += quoted ? "'" + argument + "'" : argument;
    }
    return line + "\"";
}

} // namespace

form::run_facts gather_run_facts(const argument_list& args)
{
    const platform::host_facts facts = platform::read_host_facts();
    form::run_facts run;
    run.program = program;
    run.version = version;
    if (!args.empty()) {
        run.command = args.front();
        run.arguments.assign(args.begin() + 1, args.end());
    }
    run.time = uni::now_filetime();
    run.host = facts.host_name;
    run.system = os_text(facts);
    if (facts.runs_remote) {
        run.system += "; <~>";
    } else if (facts.runs_removable) {
        run.system += "; :=";
    }
    return run;
}

std::string make_run_header(const argument_list& args, const form::run_facts& run)
{
    return std::string(banner) + "\n" + uni::marked(run_line(args, run)) + "\n" +
           uni::marked(command_line(args));
}

std::optional<std::string> text_asked_for(const argument_list& args)
{
    if (args.size() != 2) {
        return std::nullopt;
    }
    const auto is_one_of = [&](std::span<const std::string_view> names) {
        return std::ranges::any_of(names, [&](std::string_view name) {
            return uni::equal_ignoring_case(as_option_name(args[1]), name);
        });
    };
    if (is_one_of(version_names)) {
        return std::string(banner) + '\n';
    }
    return is_one_of(help_names) ? std::optional(usage_text()) : std::nullopt;
}

bool asks_for_help(argument_list& args)
{
    const bool asks = std::ranges::any_of(
        help_names, [&](std::string_view name) { return find_option_flag(name, args); });
    return asks || find_option_flag(slash_help, args) || args.size() <= 1;
}

void add_help_options(std::vector<option_row>& rows)
{
    for (const std::span<const std::string_view> names :
         {std::span<const std::string_view>(help_names), {version_names}}) {
        for (const std::string_view name : names) {
            rows.push_back({name, false, nullptr, look_up::by_another_effect});
        }
    }
}

void print_usage()
{
    io::write_error_text(usage_text());
}

} // namespace front
