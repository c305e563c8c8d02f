#include "form/fields.h"

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

} // namespace

std::string field_text(std::string text, const request::cmd_params& style)
{
    mark_text(text, style);
    if (style.field_char_from != '\0' && style.field_char_to != '\0') {
        uni::replace_char(text, style.field_char_from, style.field_char_to);
    }
    return text;
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
    out.text(uni::replace_all(text, "\"", "\"\""));
    if (text.size() < width) {
        out.blanks(width - text.size());
    }
    out.character('"');
}

void write_fields(uni::text_buffer& out, std::span<const value> cells,
                  const request::cmd_params& style, const sdb::sdb_database* database)
{
    bool is_first = true;
    for (const value& cell : cells) {
        if (!is_first) {
            out.text(style.csv_separator);
        }
        is_first = false;
        if (cells.size() == 1) {
            write_value(out, cell, style, database);
        } else {
            write_field(out, value_text(cell, style, database), style.csv_separator);
        }
    }
    out.line_end();
}

void write_heading(uni::text_buffer& out, std::string_view text, const request::cmd_params& style)
{
    write_field(out, uni::marked(text), style.csv_separator);
    out.line_end();
}

} // namespace form
