#include "front/startup.h"

#include <algorithm>
#include <string_view>

#include "front/common_options.h"
#include "front/version.h"
#include "platform/host.h"
#include "uni/marks.h"
#include "uni/text.h"
#include "uni/time.h"

namespace front {

namespace {

constexpr std::string_view program = "quilt";
constexpr std::string_view default_date_format = "mm/dd/yyyy";
constexpr std::string_view run_time_format = "hh:mm:ss";
constexpr char os_text_separator = ';';

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
    return version_line() + "\n" + uni::marked(run_line(args, run)) + "\n" +
           uni::marked(command_line(args));
}

} // namespace front
