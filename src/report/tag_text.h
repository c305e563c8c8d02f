#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "front/sdb_opts.h"
#include "sdb/database.h"
#include "sdb/patch_op.h"
#include "uni/text_buffer.h"

// The one way in which a tag becomes text, for every report. Numbers are "0x" and a fixed count of
// lower-case digits, or plain decimal under -base10.
namespace report {

// What a tag's value looks like.
struct rendered_value {
    // The texts by position: one for most tags, one for each operation of a patch value, none for a
    // value that has no text.
    std::map<std::uint32_t, std::string> lines;
    std::string value_text;         // the raw form: a number as such, a reference unresolved
    std::uint64_t value_number = 0; // the value as a number, where it has one
};

// Renders a tag in full, for callers that need more than its text.
rendered_value render_tag_value(const sdb::sdb_database& database, const sdb::sdb_tag_item& item,
                                const front::sdb_opts& options);

// The text of the tag at `tag_offset`: its first line, or with `all_lines` all of them with a line
// end between each two. With `quote` each double quote becomes a single one. Empty for a tag that
// cannot be read or has no text.
std::string tag_text(const sdb::sdb_database& database, std::uint32_t tag_offset,
                     const front::sdb_opts& options, bool all_lines, bool quote);

// Writes the first line of any tag but a patch value; false, and nothing written, if it has none.
bool write_tag_text(uni::text_buffer& out, const sdb::sdb_database& database, std::uint16_t tag,
                    std::uint32_t offset, const front::sdb_opts& options);

// Writes stored UTF-16LE text up to its first zero unit; gives what was written, which the next
// write to `out` makes invalid.
std::string_view write_stored_text(uni::text_buffer& out, uni::byte_view stored);
// The same, which also tells whether the text is plain (see uni::put_stored_utf16).
std::string_view write_stored_text(uni::text_buffer& out, uni::byte_view stored, bool& plain);

// Writes a patch operation as its XML element.
void write_patch_element(uni::text_buffer& out, const sdb::patch_op& op);

// Writes the display text of a tag.
void write_tag_name(uni::text_buffer& out, std::uint16_t tag);

} // namespace report
