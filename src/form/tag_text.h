#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "request/cmd_params.h"
#include "sdb/database.h"
#include "uni/text_buffer.h"

// The one way in which a tag becomes text, for every form. Numbers are "0x" and a fixed count of
// lower-case digits, or plain decimal under -base10.
namespace form {

// What the value of a tag is shown as.
enum class value_form : std::uint8_t {
    nothing,
    null_word,
    number,
    word,        // a word that looks like a tag is shown as that tag's name
    tag_offset,  // the bare offset of another tag
    unix_time,   // seconds since 1970, signed
    filetime,    // FILETIME ticks
    version,     // four words
    reference,   // text of the string table
    stored_text, // text in the tag itself
    guid,
    index_bits,
};
value_form form_of(std::uint16_t tag);

// Writes the four words of a version from the highest down, up to the first that is 0xffff.
void write_version(uni::text_buffer& out, std::uint64_t version);

// Writes the text of any tag but a patch value; false, and nothing written, if it has none.
bool write_tag_text(uni::text_buffer& out, const sdb::sdb_database& database, std::uint16_t tag,
                    std::uint32_t offset, const request::cmd_params& style);

// Writes a number as a tag that holds it is shown.
void write_number_of(uni::text_buffer& out, std::uint16_t tag, std::uint64_t number,
                     const request::cmd_params& style);

// Writes a number of that many hexadecimal digits, in the base of the run.
void write_number(uni::text_buffer& out, std::uint64_t value, unsigned digits,
                  const request::cmd_params& style);

// The stored UTF-16LE text up to its first zero unit, without marks, which `aside` holds from now on. Also
// tells whether it is plain (see uni::put_stored_utf16).
std::string_view stored_text(uni::text_buffer& aside, uni::byte_view stored, bool& plain);

// The text of a string or a string reference as it is stored, without marks, or a beginning of it of more
// than `longest` bytes; nothing for a reference that leads nowhere.
std::optional<std::string> stored_text_of(const sdb::sdb_database& database, std::uint16_t tag,
                                          std::uint32_t offset, std::size_t longest);

// The text of a tag as it is held against that of a program: a stored text as it stands, or a beginning of
// it, any other value as forms of lines have it; nothing for a tag that has none.
std::optional<std::string> comparable_text(const sdb::sdb_database& database, std::uint32_t offset,
                                           std::size_t longest, const request::cmd_params& style);

// Marks what of a text may not be shown in a row or a line of the run.
std::string marked_text(std::string_view text, const request::cmd_params& style);
void write_marked_text(uni::text_buffer& out, std::string_view text,
                       const request::cmd_params& style);

// Writes the display text of a tag.
void write_tag_name(uni::text_buffer& out, std::uint16_t tag);

} // namespace form
