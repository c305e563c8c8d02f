#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "form/value.h"
#include "request/cmd_params.h"
#include "sdb/database.h"
#include "uni/text_buffer.h"

// Fields of delimited rows, which every reader of RFC 4180 takes apart again.
namespace form {

// A text, with its marks, as it can stand in a field: with the run's substitution, so that there is
// mostly nothing to quote.
std::string field_text(std::string text, const request::cmd_params& style);

// A text as a spreadsheet cannot take it for a formula, where the run asks for that: an apostrophe stands in
// front of one that begins with "=", "+", "-" or "@", blanks aside.
std::string safe_text(std::string text, const request::cmd_params& style);

// Writes a value that stands at the end of a line, made safe in that way.
void write_safe_value(uni::text_buffer& out, const value& shown, const request::cmd_params& style,
                      const sdb::sdb_database* database);

// Writes a field, with blanks up to `width`. One that holds the separator, a double quote or a line
// end stands in double quotes, its blanks with it and without `lead` in front. An empty separator
// parts no fields, and so quotes none.
void write_field(uni::text_buffer& out, std::string_view text, std::string_view separator,
                 std::size_t width = 0, std::string_view lead = {});

// Writes the cells of a row as fields, without the substitution. What stands alone is no field but a
// line.
void write_fields(uni::text_buffer& out, std::span<const cell> cells,
                  const request::cmd_params& style, const sdb::sdb_database* database);

// Writes the names of cells as the head of a table.
void write_names(uni::text_buffer& out, std::span<const cell> cells,
                 const request::cmd_params& style);

// Writes a heading above rows as a row of one field.
void write_heading(uni::text_buffer& out, std::string_view text, const request::cmd_params& style);

} // namespace form
