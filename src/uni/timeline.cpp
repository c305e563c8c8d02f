#include "uni/timeline.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <initializer_list>
#include <string_view>
#include <utility>

#include "front/cmd_params.h"
#include "uni/text.h"

namespace uni {

namespace {

// The four timestamps by their place in the MACB text.
enum slot : std::size_t { modified, accessed, changed, born, slot_count };
constexpr std::string_view slot_letters = "MACB";

constexpr std::string_view header_columns[] = {
    "timezone", "MACB",    "source",   "sourcetype", "type",  "user",   "host", "short",
    "desc",     "version", "filename", "inode",      "notes", "format", "extra"};

constexpr std::string_view extended_header_columns[] = {
    "ref count",    "extension",     "size data", "inode seqnum",
    "parent inode", "parent seqnum", "clusters",  "header info"};

std::string_view text_at(const std::vector<std::string>& texts, std::size_t index)
{
    return index < texts.size() ? std::string_view(texts[index]) : std::string_view();
}

void join(std::string& text, std::string_view more)
{
    if (!text.empty() && !more.empty()) {
        text += "; ";
    }
    text += more;
}

// One row while timestamps are added to it, from left to right in its MACB text.
class growing_row {
public:
    timeline_row row;

    // Begins with the text of the first timestamp, or else with the general one and a bracket that
    // repeats the MACB text from here on.
    void describe(std::string_view desc, std::string_view general)
    {
        row.description = desc;
        joint_ = !desc.empty();
        if (desc.empty() && !general.empty()) {
            row.description.append(general).append(" [").append(row.macb);
            in_bracket_ = true;
        }
    }
    // Adds a timestamp; `present` when its letter stands already. A text of its own goes into an
    // open bracket in place of the letter: this is meant.
    void add(char letter, std::string_view desc, bool present)
    {
        if (!present) {
            row.macb += letter;
        }
        if (!desc.empty()) {
            row.description += joint_ ? "; " : "";
            row.description += desc;
            joint_ = true;
        } else if (in_bracket_ && !present) {
            row.description += letter;
        }
    }
    void add_absent() { add('.', {}, false); }
    void close_bracket()
    {
        if (in_bracket_) {
            row.description += ']';
            in_bracket_ = false;
            joint_ = true;
        }
    }

private:
    bool in_bracket_ = false;
    bool joint_ = false; // a text that follows is set off by "; "
};

class row_maker {
public:
    row_maker(timeline_rows& rows, timeline_record& record, time_kind kind, std::uint64_t row_flag)
        : rows_(rows), record_(record),
          row_flag_(row_flag), moments_{time_value_from(record.m_time, kind),
                                        time_value_from(record.a_time, kind),
                                        time_value_from(record.c_time, kind),
                                        time_value_from(record.b_time, kind)},
          descs_{record.m_desc, record.a_desc, record.c_desc, record.b_desc}
    {
        for (const std::uint64_t raw : record.extra_times) {
            extra_moments_.push_back(time_value_from(raw, kind));
        }
        record.extra_used.assign(record.extra_times.size(), 0);
    }

    void make_rows()
    {
        for (std::size_t first = modified; first < slot_count; ++first) {
            if (moments_[first].valid && !merged_[first]) {
                make_row(first);
            }
        }
        for (std::size_t i = 0; i < extra_moments_.size(); ++i) {
            if (record_.extra_used[i] == 0) {
                make_extra_row(i);
            }
        }
    }

private:
    void make_row(std::size_t first)
    {
        growing_row made = begin_row(first);
        if (first == born) {
            made.close_bracket(); // the texts of extras stand behind it
        }
        if (first >= changed) {
            take_extras(made, true);
        }
        for (std::size_t later = first + 1; later < slot_count; ++later) {
            bool came = take(made, later);
            if (later == changed) {
                came = take_extras(made, came);
            }
            if (!came) {
                made.add_absent();
            }
        }
        made.close_bracket();
        rows_.push_back(std::move(made.row));
    }

    growing_row begin_row(std::size_t first) const
    {
        growing_row made;
        made.row.moment = moments_[first];
        made.row.row_flag = row_flag_;
        made.row.macb.assign(first, '.');
        if (first == born && has_extras(moments_[first])) {
            made.row.macb[changed] = slot_letters[changed];
        }
        made.row.macb += slot_letters[first];
        made.describe(descs_[first], record_.general_desc);
        return made;
    }

    bool take(growing_row& made, std::size_t later)
    {
        if (!moments_[later].valid || !same_moment(moments_[later], made.row.moment)) {
            return false;
        }
        merged_[later] = true;
        made.add(slot_letters[later], descs_[later], false);
        return true;
    }

    // Takes in the extras of the row's moment; answers whether the row has its "C" then.
    bool take_extras(growing_row& made, bool present)
    {
        for (std::size_t i = 0; i < extra_moments_.size(); ++i) {
            if (is_left(i, made.row.moment)) {
                record_.extra_used[i] = 1;
                made.add(slot_letters[changed], text_at(record_.extra_descs, i), present);
                present = true;
                join(made.row.type, text_at(record_.extra_types, i));
                join(made.row.note, text_at(record_.extra_notes, i));
            }
        }
        return present;
    }

    void make_extra_row(std::size_t index)
    {
        rows_.push_back({.macb = "..C.",
                         .description = std::string(text_at(record_.extra_descs, index)),
                         .type = std::string(text_at(record_.extra_types, index)),
                         .note = std::string(text_at(record_.extra_notes, index)),
                         .row_flag = row_flag_,
                         .moment = extra_moments_[index]});
    }

    static bool same_moment(const time_value& a, const time_value& b)
    {
        return a.filetime == b.filetime;
    }
    bool is_left(std::size_t extra, const time_value& moment) const
    {
        return record_.extra_used[extra] == 0 && same_moment(extra_moments_[extra], moment);
    }
    bool has_extras(const time_value& moment) const
    {
        for (std::size_t i = 0; i < extra_moments_.size(); ++i) {
            if (is_left(i, moment)) {
                return true;
            }
        }
        return false;
    }

    timeline_rows& rows_;
    timeline_record& record_;
    std::uint64_t row_flag_;
    std::array<time_value, slot_count> moments_;
    std::array<std::string_view, slot_count> descs_;
    std::array<bool, slot_count> merged_{};
    std::vector<time_value> extra_moments_;
};

void put_header(text_buffer& out, const timeline_writer& writer)
{
    const std::string_view separator = writer.csv_separator;
    if (writer.pair_datetime) {
        out.literal("date/time");
    } else {
        out.literal("date");
        out.text(separator);
        out.literal("time");
    }
    for (const std::string_view column : header_columns) {
        out.text(separator);
        out.text(column);
    }
    if (writer.extended) {
        for (const std::string_view column : extended_header_columns) {
            out.text(separator);
            out.text(column);
        }
    }
    out.line_end();
}

bool is_wanted(const time_value& moment, const timeline_writer& writer)
{
    if (!moment.valid) {
        return false;
    }
    return writer.window_start == 0 ||
           (std::cmp_greater_equal(moment.unix_seconds, writer.window_start) &&
            std::cmp_less_equal(moment.unix_seconds, writer.window_stop));
}

void put_moment_columns(text_buffer& out, const time_value& moment, const timeline_writer& writer)
{
    const std::string_view pad = writer.pad_after_separator && !writer.no_whitespace ? " " : "";
    std::string date;
    std::string time;
    filetime_text(date, time, moment, writer.date_style);
    if (writer.pair_datetime) {
        out.text(pad);
        out.text(date);
        out.character(' ');
    } else {
        out.text(date);
        out.text(writer.csv_separator);
        out.text(pad);
    }
    out.text(time);
    out.text(writer.csv_separator);
}

std::string_view first_filled(std::initializer_list<std::string_view> texts)
{
    for (const std::string_view text : texts) {
        if (!text.empty()) {
            return text;
        }
    }
    return {};
}

// The columns that differ from row to row, and those between them.
void put_row_columns(text_buffer& out, const timeline_row& row, const timeline_writer& writer)
{
    put_moment_columns(out, row.moment, writer);
    const std::string macb = writer.lower_macb ? lowered(row.macb) : row.macb;
    const std::string_view columns[] = {
        writer.timezone_text,
        macb,
        writer.source,
        writer.sourcetype,
        first_filled({writer.type_text, row.type, row.description}),
        first_filled({row.note, writer.user_text}), // a note in the user column: this is meant
        writer.host_text};
    for (const std::string_view column : columns) {
        out.text(column);
        out.text(writer.csv_separator);
    }
}

// The text with the separator kept out of it.
// Free of the separator, and on one line.
std::string clean_field(std::string_view text, const timeline_writer& writer)
{
    std::string clean(text);
    if (writer.field_char_from != '\0' && writer.field_char_to != '\0') {
        replace_char(clean, writer.field_char_from, writer.field_char_to);
    }
    keep_on_one_line(clean);
    return clean;
}

void put_extended_columns(text_buffer& out, const timeline_writer& writer)
{
    const std::string_view separator = writer.csv_separator;
    const auto number = [&](std::uint64_t value, unsigned hex_digits) {
        if (writer.hex_numbers) {
            out.literal("0x");
            out.hex_min(value, hex_digits);
        } else {
            out.decimal(value);
        }
        out.text(separator);
    };
    out.text(separator);
    number(writer.ref_count, 4);
    out.text(writer.extension);
    out.text(separator);
    number(writer.size_data, 6);
    number(writer.inode_seqnum, 4);
    number(writer.parent_inode, 8);
    number(writer.parent_seqnum, 4);
    // The clusters come last, though the header names them before the header info: this is meant.
    out.text(writer.header_info);
    out.text(separator);
    for (const std::uint8_t byte : writer.cluster_bytes) {
        out.hex(byte, 2);
        out.character(' ');
    }
}

// The columns that are the same in every row of the record, and the line end.
void put_record_columns(text_buffer& out, const timeline_writer& writer)
{
    const std::string columns[] = {clean_field(writer.short_text, writer),
                                   clean_field(writer.desc_text, writer),
                                   std::to_string(writer.version),
                                   clean_field(writer.filename, writer),
                                   writer.inode_text,
                                   clean_field(writer.notes_text, writer),
                                   writer.format_text};
    for (const std::string& column : columns) {
        out.text(column);
        out.text(writer.csv_separator);
    }
    out.text(clean_field(writer.extra_text, writer));
    if (writer.extended) {
        put_extended_columns(out, writer);
    }
    if (writer.options == nullptr || writer.options->record_newline) {
        out.line_end();
    }
}

} // namespace

timeline_writer::timeline_writer()
{
    compile_date_style(date_style, dateformat, timeformat, pair_datetime);
}

void macb_expand(timeline_rows& rows, timeline_record& record, time_kind kind,
                 std::uint64_t row_flag)
{
    rows.clear();
    row_maker(rows, record, kind, row_flag).make_rows();
    std::stable_sort(rows.begin(), rows.end(), [](const timeline_row& a, const timeline_row& b) {
        return a.moment.filetime < b.moment.filetime;
    });
}

void configure(timeline_writer& writer, const front::cmd_params& params)
{
    writer.user_text = params.username;
    writer.host_text = params.hostname;
    writer.format_text = params.program_name + " (morvane)";
    writer.dateformat = params.dateformat;
    writer.timeformat = params.timeformat;
    writer.date_style = params.date_style;
    writer.csv_separator = params.csv_separator;
    writer.field_char_from = params.field_char_from;
    writer.field_char_to = params.field_char_to;
    writer.pad_after_separator = !params.no_whitespace;
    writer.no_whitespace = params.no_whitespace;
    writer.hex_numbers = params.base16;
    writer.pair_datetime = params.pair_datetime;
}

void write_rows(bool& first, text_buffer& out, timeline_writer& writer)
{
    if (first) {
        put_header(out, writer);
        first = false;
        if (writer.options != nullptr) {
            writer.options->print_header = false;
        }
    }
    timeline_rows rows;
    macb_expand(rows, writer, writer.time_kind, writer.row_flag);
    text_buffer record_columns;
    put_record_columns(record_columns, writer);
    text_buffer line;
    for (const timeline_row& row : rows) {
        if (is_wanted(row.moment, writer)) {
            line.clear();
            put_row_columns(line, row, writer);
            line.text(record_columns.view());
            out.text(line.view());
        }
    }
}

} // namespace uni
