#include "front/help.h"

#include <algorithm>
#include <span>
#include <string_view>

#include "front/option_words.h"
#include "front/version.h"
#include "io/notice.h"
#include "uni/text.h"

namespace front {

namespace {

constexpr std::string_view help_names[] = {"-h", "-help", "-?"};
constexpr std::string_view slash_help = "/?"; // always among errors
constexpr std::string_view version_names[] = {"-version"};

constexpr std::size_t text_width = 79;
constexpr std::size_t words_column = 27;

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
    return std::string(77, '-') + "\n\n" + version_line() + "\n\n" + std::string(usage_lines);
}

// What a run without any argument shows.
constexpr std::string_view first_words =
    "quilt tells what Windows application-compatibility shim databases (.sdb) hold.\n"
    "\n"
    "  quilt -sdb file.sdb -apps            which programs get which fixes\n"
    "  quilt -sdb file.sdb -explain         what it does, and what is unusual\n"
    "  quilt -sdb file.sdb -stats           digests, times, identity, counts\n"
    "  quilt -partition /mnt/c -listsdb     the databases of a mounted volume\n"
    "  quilt -enumdir folder -num_subdirs 8 -stats -csv    all below a folder\n"
    "\n"
    "  quilt --help                         every option\n"
    "  quilt -help -sdb                     one of them\n";

constexpr std::string_view help_head =
    "quilt tells what Windows application-compatibility shim databases (.sdb) hold.\n"
    "\n"
    "  quilt <what is examined> <what is reported> [more options]\n"
    "\n"
    "Options begin with one dash or two; their order and case have no meaning. The\n"
    "exit value is 0 when all that was named was read and written whole, else -1\n"
    "(255 to a Linux shell), and the error stream says why.\n";

bool is_one_of(std::span<const std::string_view> names, std::string_view argument)
{
    return std::ranges::any_of(names, [argument](std::string_view name) {
        return uni::equal_ignoring_case(as_option_name(argument), name);
    });
}

std::string with_argument(const option_words& option)
{
    std::string text(option.name);
    if (!option.argument.empty()) {
        text.append(" <").append(option.argument).append(">");
    }
    return text;
}

// Writes a paragraph with its first line from `column` on, and further ones under `indent` blanks.
void write_wrapped(std::string& out, std::string_view text, std::size_t indent, std::size_t column)
{
    for (const std::string& word : uni::split(text, ' ', true)) {
        if (column > indent && column + 1 + word.size() > text_width) {
            out.append("\n").append(indent, ' ');
            column = indent;
        } else if (column > indent) {
            out += ' ';
            ++column;
        }
        out += word;
        column += word.size();
    }
    out += '\n';
}

void write_option_line(std::string& out, const option_words& option)
{
    std::string name = "  " + with_argument(option);
    if (name.size() + 2 > words_column) {
        name += '\n';
        name.append(words_column, ' ');
    } else {
        name.resize(words_column, ' ');
    }
    out += name;
    write_wrapped(out, option.effect, words_column, words_column);
}

std::string help_text()
{
    std::string text(help_head);
    std::string_view group;
    for (const option_words& option : all_option_words()) {
        if (option.group != group) {
            group = option.group;
            text.append("\n").append(group).append("\n");
        }
        write_option_line(text, option);
    }
    return text;
}

std::string help_about(const option_words& option)
{
    std::string text = with_argument(option) + "\n";
    const auto paragraph = [&text](std::string_view label, std::string_view words) {
        if (!words.empty()) {
            text.append("  ").append(label);
            write_wrapped(text, words, 2, 2 + label.size());
        }
    };
    paragraph("", option.effect);
    paragraph("", option.detail);
    paragraph("without it:", option.otherwise);
    paragraph("conflicts with:", option.conflicts);
    text.append("  example: ").append(option.example).append("\n");
    return text;
}

} // namespace

std::optional<std::string> text_asked_for(const argument_list& args)
{
    const std::size_t count = args.size();
    if (count < 2 || count > 3) {
        return std::nullopt;
    }
    if (count == 2 && is_one_of(version_names, args[1])) {
        return version_text();
    }
    if (!is_one_of(help_names, args[1])) {
        return std::nullopt;
    }
    if (count == 2) {
        return help_text();
    }
    const option_words* const option = words_of(args[2]);
    return option != nullptr ? std::optional(help_about(*option)) : std::nullopt;
}

std::string unknown_option_asked_for(const argument_list& args)
{
    const bool asks_for_one = args.size() == 3 && is_one_of(help_names, args[1]);
    return asks_for_one && words_of(args[2]) == nullptr ? args[2] : std::string();
}

bool asks_for_help(argument_list& args)
{
    const bool asks = std::ranges::any_of(
        help_names, [&](std::string_view name) { return find_option_flag(name, args); });
    return asks || find_option_flag(slash_help, args);
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

void print_first_words()
{
    io::write_error_text(std::string(first_words));
}

} // namespace front
