#include "form/tag_text.h"

#include <algorithm>
#include <array>
#include <span>

#include "sdb/tags.h"
#include "sdb/vocabulary.h"
#include "uni/guid.h"
#include "uni/marks.h"
#include "uni/text.h"
#include "uni/time.h"
#include "uni/utf.h"

namespace form {

namespace {

namespace tag = sdb::tag;
namespace type = sdb::type;

constexpr std::uint64_t shortest_index_bits = 12;
constexpr std::string_view set_word = "set";
constexpr std::string_view cut_mark = "...";

std::uint64_t number_at(uni::byte_view image, std::uint64_t position, std::uint16_t tag)
{
    switch (sdb::tag_type(tag)) {
    case type::byte_:
        return image.u8(position);
    case type::word:
        return image.u16(position);
    case type::dword:
        return image.u32(position);
    default:
        return image.u64(position);
    }
}

void write_moment(uni::text_buffer& out, const uni::time_value& moment,
                  const request::cmd_params& style)
{
    char* const text = out.room(uni::longest_moment_text);
    out.taken(uni::put_moment(text, moment, style.date_style));
}

constexpr value_form form_of_type(std::uint16_t tag)
{
    switch (sdb::tag_type(tag)) {
    case type::null_:
        return value_form::null_word;
    case type::word:
        return value_form::word;
    case type::byte_:
    case type::dword:
    case type::qword:
        return value_form::number;
    case type::stringref:
        return value_form::reference;
    case type::string:
        return value_form::stored_text;
    default:
        return value_form::nothing;
    }
}

// The offsets that listings expand are shown bare, but for the one tag that nothing is published
// about, which stays a plain dword.
constexpr bool shows_as_offset(std::uint16_t tag)
{
    return sdb::is_expanded_dword_tag(tag) && tag != tag::unnamed_tagid_4888;
}

// The tags that are shown otherwise than others of their type have a form of their own.
constexpr value_form form_of_tag(std::uint16_t tag)
{
    switch (tag) {
    case tag::link_date:
    case tag::upto_link_date:
        return value_form::unix_time;
    case tag::time:
        return value_form::filetime;
    case tag::bin_file_version:
    case tag::bin_product_version:
    case tag::upto_bin_product_version:
    case tag::upto_bin_file_version:
    case tag::from_bin_product_version:
    case tag::from_bin_file_version:
    case tag::from_packageid_version:
    case tag::upto_packageid_version:
    case tag::from_osmaxversiontested:
    case tag::upto_osmaxversiontested:
        return value_form::version;
    case tag::exe_id:
    case tag::msi_package_id:
    case tag::database_id:
    case tag::context_platform_id:
    case tag::context_branch_id:
    case tag::fix_id:
    case tag::app_id:
        return value_form::guid;
    case tag::index_bits:
        return value_form::index_bits;
    default:
        return shows_as_offset(tag) ? value_form::tag_offset : form_of_type(tag);
    }
}

constexpr auto forms = [] {
    std::array<value_form, sdb::tag_slots> table{};
    for (std::size_t slot = 0; slot + 1 < table.size(); ++slot) {
        table[slot] = form_of_tag(sdb::tag_of_slot(slot));
    }
    return table;
}();

void write_word(uni::text_buffer& out, std::uint16_t value, const request::cmd_params& style)
{
    if (sdb::is_known_type(sdb::tag_type(value))) {
        write_tag_name(out, value);
    } else {
        write_number(out, value, 4, style);
    }
}

void write_unix_time(uni::text_buffer& out, std::uint32_t value, const request::cmd_params& style)
{
    const std::int64_t seconds = static_cast<std::int32_t>(value);
    write_moment(
        out,
        uni::time_value_from(static_cast<std::uint64_t>(seconds), uni::time_kind::unix_seconds),
        style);
}

bool write_guid(uni::text_buffer& out, uni::byte_view value)
{
    if (value.size() != uni::guid_size) {
        return false;
    }
    char* const text = out.room(uni::guid_text_length);
    out.taken(uni::put_guid(text, value.bytes().first<uni::guid_size>()));
    return true;
}

uni::tab_marking tabs_of(const request::cmd_params& style)
{
    const bool parts_fields = style.csv_separator.find('\t') != std::string::npos;
    return parts_fields ? uni::tab_marking::marked : uni::tab_marking::none;
}

// Writes stored UTF-16LE text up to its first zero unit, with its marks. What is long is made aside, and
// goes from there.
void write_stored_text(uni::text_buffer& out, uni::byte_view stored,
                       const request::cmd_params& style)
{
    constexpr std::uint64_t long_text = 0x8000;
    bool plain = false;
    if (stored.size() > long_text) [[unlikely]] {
        uni::text_buffer aside;
        const std::string_view text = stored_text(aside, stored, plain);
        plain ? out.long_text(text) : uni::write_marked(out, text, tabs_of(style));
        return;
    }
    char* const start = out.room(uni::stored_text_room(stored.size()));
    char* const end = uni::put_stored_utf16(start, stored, plain);
    const std::string_view text(start, static_cast<std::size_t>(end - start));
    if (plain || !uni::needs_marks(text, tabs_of(style))) [[likely]] {
        out.taken(end);
    } else {
        uni::write_marked(out, std::string(text), tabs_of(style));
    }
}

bool write_index_mark(uni::text_buffer& out, uni::byte_view value)
{
    if (value.size() < shortest_index_bits) {
        return false;
    }
    out.text(cut_mark);
    return true;
}

} // namespace

value_form form_of(std::uint16_t tag)
{
    const std::size_t slot = sdb::tag_slot(tag);
    return slot == sdb::tag_slots - 1 ? form_of_type(tag) : forms[slot];
}

void write_version(uni::text_buffer& out, std::uint64_t version)
{
    constexpr std::uint16_t unset = 0xffff;
    for (int word = 3; word >= 0; --word) {
        const auto part = static_cast<std::uint16_t>(version >> (16 * word));
        if (part == unset) {
            return;
        }
        if (word != 3) {
            out.character('.');
        }
        out.decimal(part);
    }
}

void write_number(uni::text_buffer& out, std::uint64_t value, unsigned digits,
                  const request::cmd_params& style)
{
    if (!style.base16) {
        out.decimal(value);
        return;
    }
    char* const start = out.room(2 + 16);
    start[0] = '0';
    start[1] = 'x';
    out.taken(uni::put_hex(start + 2, value, digits));
}

void write_number_of(uni::text_buffer& out, std::uint16_t tag, std::uint64_t number,
                     const request::cmd_params& style)
{
    switch (form_of(tag)) {
    case value_form::unix_time:
        write_unix_time(out, static_cast<std::uint32_t>(number), style);
        return;
    case value_form::filetime:
        write_moment(out, uni::time_value_from(number, uni::time_kind::filetime), style);
        return;
    case value_form::version:
        write_version(out, number);
        return;
    default:
        write_number(out, number, sdb::hex_digits_of(tag), style);
    }
}

void write_tag_name(uni::text_buffer& out, std::uint16_t tag)
{
    const std::string_view known = sdb::known_tag_name(tag);
    if (known.empty()) {
        out.text(sdb::tag_name(tag));
    } else {
        out.text(known);
    }
}

std::string_view stored_text(uni::text_buffer& aside, uni::byte_view stored, bool& plain)
{
    aside.clear();
    char* const begin = aside.room(uni::stored_text_room(stored.size()));
    aside.taken(uni::put_stored_utf16(begin, stored, plain));
    return aside.view();
}

std::optional<std::string> stored_text_of(const sdb::sdb_database& database, std::uint16_t tag,
                                          std::uint32_t offset, std::size_t longest)
{
    const bool is_reference = form_of(tag) == value_form::reference;
    const uni::byte_view stored = is_reference ? database.string_bytes(database.word_behind(offset))
                                               : database.payload_at(offset);
    if (is_reference && stored.empty()) {
        return std::nullopt;
    }
    std::string text;
    uni::utf16_to_text(uni::beginning_of(stored, longest), text);
    return text;
}

std::string marked_text(std::string_view text, const request::cmd_params& style)
{
    return uni::marked(text, tabs_of(style));
}

void write_marked_text(uni::text_buffer& out, std::string_view text,
                       const request::cmd_params& style)
{
    uni::write_marked(out, text, tabs_of(style));
}

bool write_tag_text(uni::text_buffer& out, const sdb::sdb_database& database, std::uint16_t tag,
                    std::uint32_t offset, const request::cmd_params& style)
{
    const uni::byte_view image = database.image();
    const std::uint64_t value = std::uint64_t{offset} + 2;
    switch (form_of(tag)) {
    case value_form::nothing:
        return false;
    case value_form::null_word:
        out.text(set_word);
        return true;
    case value_form::number:
        write_number(out, number_at(image, value, tag), sdb::hex_digits_of(tag), style);
        return true;
    case value_form::word:
        write_word(out, image.u16(value), style);
        return true;
    case value_form::tag_offset:
        out.hex_min(image.u32(value), 1);
        return true;
    case value_form::unix_time:
        write_unix_time(out, image.u32(value), style);
        return true;
    case value_form::filetime:
        write_moment(out, uni::time_value_from(image.u64(value), uni::time_kind::filetime), style);
        return true;
    case value_form::version:
        write_version(out, image.u64(value));
        return true;
    case value_form::reference: {
        const uni::byte_view stored = database.string_bytes(image.u32(value));
        write_stored_text(out, stored, style);
        return !stored.empty();
    }
    case value_form::stored_text:
        write_stored_text(out, database.payload_at(offset), style);
        return true;
    case value_form::guid:
        return write_guid(out, database.payload_at(offset));
    case value_form::index_bits:
        return write_index_mark(out, database.payload_at(offset));
    }
    return false;
}

std::optional<std::string> comparable_text(const sdb::sdb_database& database, std::uint32_t offset,
                                           std::size_t longest, const request::cmd_params& style)
{
    const std::uint16_t tag = database.tag_from(offset);
    if (const auto type = sdb::tag_type(tag); type == type::stringref || type == type::string) {
        return stored_text_of(database, tag, offset, longest);
    }
    uni::text_buffer text;
    if (!write_tag_text(text, database, tag, offset, style)) {
        return std::nullopt;
    }
    return std::string(text.view());
}

} // namespace form
