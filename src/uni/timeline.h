// Rows of a timeline: an item with several timestamps becomes one delimited row for each distinct
// moment, in order of time. A row's MACB field says which timestamps fell on its moment: modified,
// accessed, changed, born, each by its letter, or by "." where it did not.
//
//   columns                                        from
//   date, time; or date/time as one                the row's moment, in `date_style`
//   timezone                                       timezone_text
//   MACB                                           the row
//   source, sourcetype                             source, sourcetype
//   type                                           type_text, else the row's type or description
//   user                                           the row's note, else user_text
//   host, short, desc, version, filename, inode,   the field of that name
//     notes, format, extra
//   with `extended`, eight more:                   ref_count to cluster_bytes
//
// All texts are UTF-8. Fields are not quoted: see substitution below.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "uni/text_buffer.h"
#include "uni/time.h"

namespace front {
struct cmd_params;
}

namespace uni {

// An item and its timestamps. Raw times are of `time_kind`; one that is not valid counts as absent.
struct timeline_record {
    std::int64_t unix_time = 0; // the item's own; no row shows it
    std::uint64_t m_time = 0;   // modified
    std::uint64_t a_time = 0;   // accessed
    std::uint64_t c_time = 0;   // changed
    std::uint64_t b_time = 0;   // born
    std::string m_desc;         // what each of the four means
    std::string a_desc;
    std::string c_desc;
    std::string b_desc;
    std::string general_desc; // stands, with the MACB text in brackets, for a missing one
    uni::time_kind time_kind = uni::time_kind::filetime;
    std::uint64_t row_flag = 0; // handed on to each row

    // Further timestamps. The texts go by index; missing ones are empty.
    std::vector<std::uint64_t> extra_times;
    std::vector<std::string> extra_descs;
    std::vector<std::string> extra_types;
    std::vector<std::string> extra_notes;
    std::vector<std::uint8_t>
        extra_used; // set by macb_expand: 1 for those in one of the four's rows
};

struct timeline_row {
    std::string macb; // four characters
    std::string description;
    std::string type;
    std::string note;
    std::uint64_t row_flag = 0;
    time_value moment;
};

using timeline_rows = std::vector<timeline_row>;

// Makes the rows of a record, ascending by moment, those of one moment in the order M, A, C, B,
// extras. What `rows` held is dropped.
//
// Each of the four that no earlier one has taken in opens a row and takes in the later ones of its
// moment. An extra counts as a change: it is taken in as a "C" by the first row of its moment, its
// texts joined to the row's by "; ", or else gets a row of its own. Such a row is made for an extra
// that is not valid too.
void macb_expand(timeline_rows& rows, timeline_record& record, time_kind kind,
                 std::uint64_t row_flag);

// A record with what its rows show beside the moments, and the form of the rows.
//
// Substitution: when both characters are set, each field_char_from in short_text, desc_text,
// filename, notes_text and extra_text becomes field_char_to; line ends in desc_text, notes_text and
// extra_text become markers.
struct timeline_writer : timeline_record {
    timeline_writer();

    std::string timezone_text = "UTC";
    std::string source;
    std::string sourcetype;
    std::string type_text;
    std::string user_text;
    std::string host_text;
    std::string short_text;
    std::string desc_text;
    std::uint32_t version = 2;
    std::string filename;
    std::string inode_text;
    std::string notes_text;
    std::string format_text = "-csvl2t";
    std::string extra_text;

    std::string dateformat = "yyyy-mm-dd";
    std::string timeformat = "hh:mm:ss.xxx";
    uni::date_style date_style; // the two compiled
    std::string csv_separator = ",";
    char field_char_from = ',';
    char field_char_to = ' ';
    bool lower_macb = false;          // the MACB field in lower case
    bool pad_after_separator = false; // a blank in front of the time column, unless no_whitespace
    bool no_whitespace = false;
    bool hex_numbers = false; // in the extended columns
    bool pair_datetime = false;

    bool extended = false;
    std::uint32_t ref_count = 0;
    std::string extension;
    std::uint64_t size_data = 0;
    std::uint32_t inode_seqnum = 0;
    std::uint64_t parent_inode = 0;
    std::uint32_t parent_seqnum = 0;
    std::string header_info;
    std::vector<std::uint8_t> cluster_bytes;

    // Unix seconds, both ends included; rows outside are dropped. A start of 0: no window.
    std::uint64_t window_start = 0;
    std::uint64_t window_stop = 0;

    // Not owned. Without options every row ends its line; with them, when record_newline is set.
    front::cmd_params* options = nullptr;
};

// Takes over the run's identity and the form of its output; `options` stays as it is.
void configure(timeline_writer& writer, const front::cmd_params& params);

// Writes the header if `first` is set, which clears `first` and the options' print_header, and the
// rows of the record. A row reaches `out` whole or not at all.
void write_rows(bool& first, text_buffer& out, timeline_writer& writer);

} // namespace uni
