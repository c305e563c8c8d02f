#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "request/bounds.h"
#include "uni/time.h"

// What a run was asked for. Filled while the command line is parsed, and const from there on: what
// a run finds out lives with whoever found it.
namespace request {

// One item of a -filter text, or one signature of -filter_sig. All text is lower-case.
struct filter_entry {
    std::u16string text;                 // the item as it came
    std::u16string pattern;              // the item without stars and without a stream part
    std::vector<std::uint8_t> signature; // bytes of -filter_sig
    std::uint64_t signature_offset = 0;  // where in the file they stand
    bool is_path = false;                // `pattern` starts with a backslash
    bool match_all = false;              // the item was "*"
    bool star_front = false;             // `pattern` had a star at its start
    bool star_back = false;              // `pattern` had a star at its end
};

// When reports for people have colours: on a terminal, unless the environment says NO_COLOR.
enum class color_use { by_terminal, always, never };

// What all tools of the family share: form of the output, date and time style, separators, filters,
// log.
struct cmd_params {
    std::string raw_cmdline;  // the arguments as they came, quoted where they hold a blank
    std::string program_name; // the program's file name up to its first dot
    std::string out_path;     // results file; empty for standard output
    bool append = false;      // it is written behind what stands in it
    std::string username;
    std::string hostname;

    // The form of the output by its name in the table of forms.
    std::string_view form = "xml";
    std::string_view form_option; // that asked for it; empty for none

    std::string dateformat = "yyyy-mm-dd";
    std::string timeformat = "hh:mm:ss.xxx";
    uni::date_style date_style; // compiled from the two at the end of parsing
    bool pair_datetime = false; // date and time share a column

    // In a delimited field each field_char_from becomes field_char_to; 0 switches that off.
    char field_char_from = '|';
    char field_char_to = ';';
    std::string csv_separator = " | ";
    bool no_whitespace = false;
    bool pad_separator = true;
    bool base16 = true; // numbers in hexadecimal
    bool quoted_csv_fields = false;
    bool safe_csv = false;  // no field may be taken for a formula
    bool no_header = false; // the run header is left out

    color_use color = color_use::by_terminal;
    bool has_colors = false; // what that comes to
    std::size_t columns = 0; // of the terminal that takes the report; 0 for none
    bool show_progress = true;
    bool draws_progress = false; // in one line of a terminal, in place of a line for each file
    bool profile = false;
    std::string signal_name;
    std::string log_path; // of -diags

    std::vector<filter_entry> filter_list;
    bool pipe = false;
    bool enumdir = false;
    std::string enumdir_path;
    std::uint32_t num_subdirs = 0;
    bool deleted = false;    // files that were deleted come behind the others
    bool by_content = false; // databases are told by their bytes, whatever their names
    std::optional<std::uint64_t> time_window_start; // FILETIME ticks
    std::optional<std::uint64_t> time_window_stop;  // the same

    request::bounds bounds;

    // Whether the targets come from a list.
    bool is_list_form() const noexcept { return pipe || enumdir; }
};

} // namespace request
