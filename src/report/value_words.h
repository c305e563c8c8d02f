// Values as words of a sentence: short, in quotes where they are texts, whatever the form.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "request/cmd_params.h"
#include "sdb/database.h"
#include "uni/byte_view.h"
#include "uni/text_buffer.h"

namespace report {

// How much of one thing a reader takes in.
inline constexpr std::size_t longest_part = 300;  // bytes of a text
inline constexpr std::size_t longest_list = 4096; // bytes of many together
inline constexpr std::size_t most_lines = 100;
inline constexpr std::uint64_t most_bytes_shown = 16;

// A text of that length at the most; what is left out shows as "...".
std::string shortened(std::string text);

// In quotes, those in it doubled.
std::string quoted(const std::string& text);
// With a comma behind each thousand.
std::string grouped(std::uint64_t number);
// At least eight digits behind "0x".
std::string hexadecimal(std::uint64_t number);
// Bytes in hexadecimal, `of` that many, "??" for those that are not there, and no more than a line takes.
std::string bytes_text(uni::byte_view bytes, std::uint64_t of);

// Adds to items that commas part.
void append_item(std::string& list, const std::string& item);

// The name of a tag as words.
std::string words_of_tag(std::uint16_t tag);
// The text of a string reference or a string.
std::string stored_text(const sdb::sdb_database& database, std::uint32_t offset);
// What the value of a scalar is shown as.
std::string scalar_text(const sdb::sdb_database& database, std::uint32_t offset,
                        const request::cmd_params& style);
// The NAME of a list, or else its kind and where it stands, at the end of `to`.
void write_name_of_list(uni::text_buffer& to, const sdb::sdb_database& database,
                        std::uint32_t list);
// The same as the two above behind what stands in `to`, which keeps what it is given.
void write_stored_words(uni::text_buffer& to, const sdb::sdb_database& database,
                        std::uint32_t offset);
void write_scalar(uni::text_buffer& to, const sdb::sdb_database& database, std::uint32_t offset,
                  const request::cmd_params& style);
// All scalars of a list, with their names.
std::string scalars_of(const sdb::sdb_database& database, std::uint32_t list,
                       const request::cmd_params& style);
// The same as scalar_text() where two databases are compared: a reference is what it leads to, a short binary
// all its bytes.
std::string value_words(const sdb::sdb_database& database, std::uint32_t offset,
                        const request::cmd_params& style);

} // namespace report
