#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "form/value.h"
#include "request/cmd_params.h"
#include "sdb/database.h"
#include "uni/byte_view.h"
#include "uni/text_buffer.h"

// Values in a page, as the other forms for people show them: with marks, and escaped so that they are text
// wherever they stand. All markup is XML too.
namespace form {

// The text as it stands between tags, or in an attribute in double quotes.
std::string html_text(std::string_view text);
void write_html_text(uni::text_buffer& out, std::string_view text);
// Stored UTF-16LE text, up to its first zero unit.
void write_html_stored_text(uni::text_buffer& out, uni::byte_view stored);

// The value of any scalar of a database. What has no text is told in <em>. A patch is an operation a line;
// memory is asked for only between these.
void write_html_tag(uni::text_buffer& out, const sdb::sdb_database& database, std::uint16_t tag,
                    std::uint32_t offset, const request::cmd_params& style);

// A moment as the run prints moments, but of any year up to 9999, and what is none as the number that is
// stored; empty for 0.
std::string html_moment(const moment& shown, const request::cmd_params& style);

// A value of a fact.
void write_html_value(uni::text_buffer& out, const value& shown, const request::cmd_params& style,
                      const sdb::sdb_database* database);

} // namespace form
