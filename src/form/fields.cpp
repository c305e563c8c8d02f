#include "form/fields.h"

#include <algorithm>

#include "form/tag_text.h"
#include "form/value_text.h"
#include "uni/marks.h"
#include "uni/text.h"

namespace form {

namespace {

bool needs_quotes(std::string_view text, std::string_view separator)
{
    return !separator.empty() && (text.find(separator) != std::string_view::npos ||
                                  text.find_first_of("\"\r\n") != std::string_view::npos);
}

// Behind blanks, and marks of the byte order, which are taken away at the start of a file.
bool begins_formula(std::string_view text)
{
    constexpr std::string_view byte_order_mark = "\xef\xbb\xbf";
    constexpr std::string_view blanks = " \t";
    while (true) {
        if (text.starts_with(byte_order_mark)) {
            text.remove_prefix(byte_order_mark.size());
        } else if (!text.empty() && blanks.find(text.front()) != std::string_view::npos) {
            text.remove_prefix(1);
        } else {
            return !text.empty() &&
                   std::string_view("=+-@").find(text.front()) != std::string_view::npos;
        }
    }
}

} // namespace

std::string field_text(std::string text, const request::cmd_params& style)
{
    if (style.field_char_from != '\0' && style.field_char_to != '\0') {
        uni::replace_char(text, style.field_char_from, style.field_char_to);
    }
    return safe_text(std::move(text), style);
}

std::string safe_text(std::string text, const request::cmd_params& style)
{
    if (style.safe_csv && begins_formula(text)) {
        text.insert(text.begin(), '\'');
    }
    return text;
}

void write_safe_value(uni::text_buffer& out, const value& shown, const request::cmd_params& style,
                      const sdb::sdb_database* database)
{
    if (style.safe_csv) {
        out.text(safe_text(value_text(shown, style, database), style));
    } else {
        write_value(out, shown, style, database);
    }
}

void write_field(uni::text_buffer& out, std::string_view text, std::string_view separator,
                 std::size_t width, std::string_view lead)
{
    if (!needs_quotes(text, separator)) {
        out.text(lead);
        out.left(text, width);
        return;
    }
    out.character('"');
    std::size_t done = 0;
    for (std::size_t at = text.find('"'); at != text.npos; at = text.find('"', done)) {
        out.text(text.substr(done, at + 1 - done));
        out.character('"');
        done = at + 1;
    }
    out.text(text.substr(done));
    if (text.size() < width) {
        out.blanks(width - text.size());
    }
    out.character('"');
}

void write_fields(uni::text_buffer& out, std::span<const cell> cells,
                  const request::cmd_params& style, const sdb::sdb_database* database)
{
    const bool is_lone = std::ranges::count(cells, false, &cell::is_named_only) == 1;
    bool is_first = true;
    for (const cell& one : cells) {
        if (one.is_named_only) {
            continue;
        }
        if (!is_first) {
            out.text(style.csv_separator);
        }
        is_first = false;
        if (is_lone) {
            write_safe_value(out, one.shown, style, database);
        } else {
            write_field(out, safe_text(value_text(one.shown, style, database), style),
                        style.csv_separator);
        }
    }
    out.line_end();
}

void write_names(uni::text_buffer& out, std::span<const cell> cells,
                 const request::cmd_params& style)
{
    for (const cell& one : cells) {
        write_field(out, one.name, style.csv_separator);
        if (&one == &cells.back()) {
            out.line_end();
        } else {
            out.text(style.csv_separator);
        }
    }
}

void write_heading(uni::text_buffer& out, std::string_view text, const request::cmd_params& style)
{
    write_field(out, uni::marked(text), style.csv_separator);
    out.line_end();
}

} // namespace form
