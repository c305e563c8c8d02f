#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "io/fileio.h"
#include "io/output_sink.h"
#include "uni/time.h"

namespace front {

// One item of a -filter text, or one signature of -filter_sig. All text is lower-case.
struct filter_entry {
    std::u16string base_path;            // text of -filter_path
    std::u16string text;                 // the item as it came
    std::u16string pattern;              // the item without stars and without a stream part
    std::u16string stream_pattern;       // the part behind a ":" without stars
    std::vector<std::uint8_t> signature; // bytes of -filter_sig
    std::uint64_t signature_offset = 0;  // where in the file they stand
    bool is_path = false;                // `pattern` starts with a backslash
    bool match_all = false;              // the item was "*"
    bool star_front = false;             // `pattern` had a star at its start
    bool star_back = false;              // `pattern` had a star at its end
    bool has_stream = false;             // the item holds ":"
    bool stream_all = false;             // the stream part was "*"
    bool stream_star_front = false;
    bool stream_star_back = false;
};

// One end of the window of -cmd_start_time and -cmd_stop_time.
struct window_end {
    bool set = false;
    std::uint64_t filetime = 0;  // FILETIME ticks
    std::uint32_t unix_time = 0; // seconds since 1970
};

// What all tools of the family share: form of the output, date and time style, separators, filters,
// log. Filled by parse_common_options; a plain record with its defaults.
struct cmd_params {
    cmd_params() : start_time(uni::now_filetime()) {}
    virtual ~cmd_params() = default;
    // A copy shares the log.
    cmd_params(const cmd_params&) = default;
    cmd_params& operator=(const cmd_params&) = delete;

    std::uint64_t start_time; // FILETIME ticks at construction
    std::string raw_cmdline;  // the arguments as they came, quoted where they hold a blank
    std::string program_name; // the program's file name up to its first dot
    std::string out_path;     // results file; empty for standard output
    std::string username;
    std::string hostname;

    std::string dateformat = "yyyy-mm-dd";
    std::string timeformat = "hh:mm:ss.xxx";
    uni::date_style date_style; // compiled from the two at the end of parsing

    // In a delimited field each field_char_from becomes field_char_to; 0 switches that off.
    char field_char_from = '|';
    char field_char_to = ';';
    std::string csv_separator = " | ";
    bool no_whitespace = false;
    bool pad_separator = true;
    bool base16 = true; // numbers in hexadecimal
    bool quoted_csv_fields = false;

    // The form of the output: at most one of these is set.
    bool xml = true;
    bool csv = false;
    bool csvl2t = false;
    bool csvgen = false; // no reader
    bool bodyfile = false;
    bool multiline = false; // no reader

    bool section_rules = true; // plain listings and rules between sections are wanted
    bool show_progress = true;
    bool record_newline = true;
    bool pair_datetime = false; // date and time share a column
    bool print_header = true;   // cleared by the first report that prints its header

    bool log_on = false;
    std::uint32_t log_level = 0;
    std::string log_path;
    std::shared_ptr<io::fileio> cmd_log;

    bool profile = false;
    std::string signal_name;

    std::vector<filter_entry> filter_list;
    bool pipe = false;
    bool enumdir = false;
    std::string enumdir_path;
    std::uint32_t num_subdirs = 0;
    window_end time_window_start;
    window_end time_window_stop;
};

// Writes "->" and the text to the log of -diags; without one nothing is done.
void cmd_log_write(cmd_params& params, std::string_view text);

// Stores the separator as it came and derives from it the substitution that keeps it out of fields.
void set_csv_separator(cmd_params& params, std::string_view text);

} // namespace front
