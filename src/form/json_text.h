#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "form/tag_text.h"
#include "form/value.h"
#include "sdb/database.h"
#include "sdb/patch_op.h"
#include "uni/byte_view.h"
#include "uni/text_buffer.h"
#include "uni/time.h"

// Values in JSON, each typed by its tag and always alike:
//
//   null tag                true
//   byte, word, dword       number
//   time                    "2013-08-22T11:53:27.1234567Z", with the digits of its clock; null for none, and
//                           beyond the year 9999
//   version                 "6.2.1180.4", up to the first word that is 0xffff
//   any other qword         "0x0000000000000001"
//   text                    text; null for a reference that leads nowhere
//   GUID                    text; null for a value of another size
//   patch                   array of {"op", "module", "address", "bytes"}
//   any other binary        {"size", "hex"}, the size as it is stored
//
// What of a value's bits does not show in it stands elsewhere, as what is called raw: "0x" and digits for
// a number or a reference, {"size", "hex"} for bytes.
namespace form {

// What a tag is in JSON: some that other forms show as plain numbers are times and versions, as others of
// their names are.
value_form json_form_of(std::uint16_t tag);

// Writes UTF-8 text without its quotes. Control characters, those that turn the order of a line around,
// U+2028, U+2029, U+FFFE and U+FFFF are \u escapes. A byte that is no UTF-8 is "[xNN]"; answers
// whether there was none.
bool put_json_text(uni::text_buffer& out, std::string_view text);
// Whether there is anything to escape or to mark.
bool needs_json_escape(std::string_view text);

// Whether nothing stands behind the first zero unit of stored text.
bool ends_with_its_text(uni::byte_view stored);

// Writes a text in its quotes.
void write_json_text(uni::text_buffer& out, std::string_view text);
// Writes stored UTF-16LE text, up to its first zero unit, in its quotes; answers whether nothing stands
// behind that.
bool write_json_stored_text(uni::text_buffer& out, uni::byte_view stored);
void write_json_moment(uni::text_buffer& out, const moment& shown);
// Writes bytes as hexadecimal digits in quotes.
void write_json_hex(uni::text_buffer& out, std::span<const std::uint8_t> bytes);

// Writes the value of any scalar of a database; answers whether that shows all its bits.
bool write_json_value(uni::text_buffer& out, const sdb::sdb_database& database, std::uint16_t tag,
                      std::uint32_t offset);
// Writes these bits.
void write_json_raw(uni::text_buffer& out, const sdb::sdb_database& database, std::uint16_t tag,
                    std::uint32_t offset);

// Writes `,"name":value`, without the comma where it is the first. Of a text that is not all UTF-8 the bytes
// follow as "name_bytes", in hexadecimal, of a value that does not show all its bits these as "name_raw".
void write_json_member(uni::text_buffer& out, std::string_view name, const value& shown,
                       const sdb::sdb_database* database, bool is_first = false);

} // namespace form
