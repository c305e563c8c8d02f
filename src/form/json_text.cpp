#include "form/json_text.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "form/tag_text.h"
#include "sdb/tags.h"
#include "sdb/vocabulary.h"
#include "uni/guid.h"
#include "uni/marks.h"
#include "uni/numbers.h"
#include "uni/utf.h"

namespace form {

namespace {

namespace tag = sdb::tag;
namespace type = sdb::type;

// Long values are written piece by piece, so that no memory is asked for in the middle of one.
constexpr std::size_t piece_bytes = 0x4000;

constexpr bool is_special(char c)
{
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte >= 0x7f || c == '"' || c == '\\';
}

// How many bytes at the beginning are plain ASCII. Loops of a fixed count without branches, so that the
// compiler can do them at once.
std::size_t plain_beginning(std::string_view text)
{
    constexpr std::size_t block = 16;
    std::size_t at = 0;
    for (; at + block <= text.size(); at += block) {
        unsigned any = 0;
        for (std::size_t i = 0; i < block; ++i) {
            any |= static_cast<unsigned>(is_special(text[at + i]));
        }
        if (any != 0) {
            break;
        }
    }
    while (at < text.size() && !is_special(text[at])) {
        ++at;
    }
    return at;
}

bool needs_escape(char32_t c)
{
    return c < 0x20 || (c >= 0x7f && c < 0xa0) || uni::turns_order(c) || c == 0x2028 ||
           c == 0x2029 || c == 0xfffe || c == 0xffff;
}

void put_unit_escape(uni::text_buffer& out, char32_t unit)
{
    out.literal("\\u");
    out.hex(unit, 4);
}

void put_in_pieces(uni::text_buffer& out, std::string_view text)
{
    for (; text.size() > piece_bytes; text.remove_prefix(piece_bytes)) {
        out.text(text.substr(0, piece_bytes));
    }
    out.text(text);
}

// The whole units of stored text up to the first zero.
uni::byte_view units_of(uni::byte_view stored)
{
    std::uint64_t length = 0;
    while (length + 2 <= stored.size() && stored.u16(length) != 0) {
        length += 2;
    }
    return stored.slice(0, length);
}

bool ends_behind(uni::byte_view stored, uni::byte_view shown)
{
    return stored.size() == shown.size() || stored.size() == shown.size() + 2;
}

char* put_iso_moment(char* out, const uni::time_value& moment, unsigned fraction_digits)
{
    const std::array<std::uint16_t, 5> fields = {moment.month, moment.day, moment.hour,
                                                 moment.minute, moment.second};
    out = uni::put_decimal_min(out, moment.year, 4);
    for (std::size_t i = 0; i < fields.size(); ++i) {
        *out++ = "--T::"[i];
        out = uni::put_two_decimals(out, fields[i]);
    }
    if (fraction_digits != 0) {
        *out++ = '.';
        out = uni::put_decimal_min(out, moment.nanoseconds / 100, fraction_digits);
    }
    *out++ = 'Z';
    return out;
}

// Answers whether the moment says all that the number does.
bool write_time(uni::text_buffer& out, std::uint64_t raw, uni::time_kind kind)
{
    constexpr std::size_t longest = 40;
    constexpr unsigned digits_of_a_tick = 7;
    const uni::time_value moment = uni::told_moment(raw, kind);
    if (!moment.valid) {
        out.literal("null");
        return raw == 0;
    }
    char* end = out.room(longest);
    *end++ = '"';
    end = put_iso_moment(end, moment, kind == uni::time_kind::filetime ? digits_of_a_tick : 0);
    *end++ = '"';
    out.taken(end);
    return true;
}

void write_hex_number(uni::text_buffer& out, std::uint64_t number, unsigned digits)
{
    out.literal("\"0x");
    out.hex(number, digits);
    out.character('"');
}

// Whether nothing stands behind the first word of a version that is 0xffff, and so is not shown.
bool shows_whole_version(std::uint64_t version)
{
    bool is_cut = false;
    for (int shift = 48; shift >= 0; shift -= 16) {
        const bool is_unset = ((version >> shift) & 0xffff) == 0xffff;
        if (is_cut && !is_unset) {
            return false;
        }
        is_cut |= is_unset;
    }
    return true;
}

// A number under its tag, whatever its type. Answers whether it is shown whole.
bool write_number_of(uni::text_buffer& out, std::uint16_t tag, std::uint64_t number)
{
    switch (json_form_of(tag)) {
    case value_form::unix_time:
        return write_time(out, unix_moment(static_cast<std::uint32_t>(number)).raw,
                          uni::time_kind::unix_seconds);
    case value_form::filetime:
        return write_time(out, number, uni::time_kind::filetime);
    case value_form::version:
        out.character('"');
        write_version(out, number);
        out.character('"');
        return shows_whole_version(number);
    default:
        if (sdb::tag_type(tag) == type::qword) {
            write_hex_number(out, number, 16);
        } else {
            out.decimal(number);
        }
        return true;
    }
}

std::uint64_t number_at(const sdb::sdb_database& database, std::uint16_t tag, std::uint32_t offset)
{
    const uni::byte_view image = database.image();
    const std::uint64_t value = std::uint64_t{offset} + 2;
    switch (sdb::tag_type(tag)) {
    case type::byte_:
        return image.u8(value);
    case type::word:
        return image.u16(value);
    case type::qword:
        return image.u64(value);
    default:
        return image.u32(value);
    }
}

void write_bytes(uni::text_buffer& out, const sdb::sdb_database& database, std::uint32_t offset)
{
    out.literal("{\"size\":");
    out.decimal(database.word_behind(offset));
    out.literal(",\"hex\":");
    write_json_hex(out, database.payload_at(offset).bytes());
    out.character('}');
}

void write_patch(uni::text_buffer& out, uni::byte_view value)
{
    bool is_first = true;
    sdb::patch_shares shares(value);
    out.character('[');
    sdb::for_each_patch_op(value, [&](const sdb::patch_op& op, std::uint64_t position) {
        out.text(is_first ? "{\"op\":\"" : ",{\"op\":\"");
        is_first = false;
        out.text(sdb::op_name(op.opcode));
        out.literal("\",\"module\":");
        write_json_stored_text(out, op.module_name);
        out.literal(",\"address\":");
        out.decimal(op.address);
        out.literal(",\"bytes\":");
        if (shares.take(op, position)) {
            out.literal("null");
        } else {
            write_json_hex(out, op.data.bytes());
        }
        out.character('}');
        return out.good();
    });
    out.character(']');
}

// Whether operations that stand side by side are all that a patch value holds.
bool is_all_operations(uni::byte_view value)
{
    constexpr std::uint32_t known_opcodes[] = {1, 2, 4};
    std::uint64_t end = 0;
    bool is_plain = true;
    sdb::for_each_patch_op(value, [&](const sdb::patch_op& op, std::uint64_t position) {
        is_plain = position == end && op.reserved_word == 0 &&
                   std::ranges::find(known_opcodes, op.opcode) != std::end(known_opcodes);
        end = position + sdb::patch_op_head + op.data.size();
        return is_plain;
    });
    return is_plain && end == value.size();
}

bool leads_to_text(const sdb::sdb_database& database, std::uint32_t reference)
{
    return database.is_recorded(std::uint64_t{database.string_table_offset()} + reference);
}

bool write_reference(uni::text_buffer& out, const sdb::sdb_database& database,
                     std::uint32_t reference)
{
    if (!leads_to_text(database, reference)) {
        out.literal("null");
        return false;
    }
    return write_json_stored_text(out, database.string_bytes(reference));
}

bool write_quoted_guid(uni::text_buffer& out, uni::byte_view value)
{
    if (value.size() != uni::guid_size) {
        out.literal("null");
        return false;
    }
    char* end = out.room(uni::guid_text_length + 2);
    *end++ = '"';
    end = uni::put_guid(end, value.bytes().first<uni::guid_size>());
    *end++ = '"';
    out.taken(end);
    return true;
}

void begin_raw(uni::text_buffer& out, std::string_view name)
{
    out.literal(",\"");
    out.text(name);
    out.literal("_raw\":");
}

void write_value_of_fact(uni::text_buffer& out, std::string_view name, const value& shown,
                         const sdb::sdb_database* database)
{
    std::visit(overloaded{
                   [&](std::monostate) { out.literal("null"); },
                   [&](const std::string& text) { write_json_text(out, text); },
                   [&](const moment& one) {
                       if (!write_time(out, one.raw, one.kind)) {
                           begin_raw(out, name);
                           write_hex_number(out, one.raw, 16);
                       }
                   },
                   [&](const dword_value& one) { out.decimal(one.number); },
                   [&](const count& one) { out.decimal(one.number); },
                   [&](const hex_number& one) { out.decimal(one.number); },
                   [&](const tag_count& one) { out.decimal(one.number); },
                   [&](const tag_word& one) {
                       out.character('"');
                       write_tag_name(out, one.tag);
                       out.character('"');
                   },
                   [&](const stored_value& one) {
                       if (database == nullptr || !database->is_recorded(one.offset)) {
                           out.literal("null");
                           return;
                       }
                       const std::uint16_t tag = database->tag_from(one.offset);
                       if (!write_json_value(out, *database, tag, one.offset)) {
                           begin_raw(out, name);
                           write_json_raw(out, *database, tag, one.offset);
                       }
                   },
                   [&](const tag_number& one) {
                       if (!write_number_of(out, one.tag, one.number)) {
                           begin_raw(out, name);
                           write_hex_number(out, one.number, sdb::hex_digits_of(one.tag));
                       }
                   },
                   [&](const truth& one) { out.text(one.holds ? "true" : "false"); },
                   [&](const texts& several) {
                       out.character('[');
                       for (const std::string& one : several.all) {
                           out.text(&one == &several.all.front() ? "" : ",");
                           write_json_text(out, one);
                       }
                       out.character(']');
                   },
               },
               shown);
}

} // namespace

value_form json_form_of(std::uint16_t tag)
{
    switch (tag) {
    case tag::from_link_date:
        return value_form::unix_time;
    case tag::modtime:
        return value_form::filetime;
    case tag::packageid_version:
    case tag::osmaxversiontested:
    case tag::quirk_enabled_version_lt:
        return value_form::version;
    default:
        return form_of(tag);
    }
}

bool needs_json_escape(std::string_view text)
{
    for (std::size_t at = plain_beginning(text); at < text.size();) {
        const uni::utf8_character one = uni::decode_utf8(text.substr(at));
        if (!one.is_valid || one.character == '"' || one.character == '\\' ||
            needs_escape(one.character)) {
            return true;
        }
        at += one.length;
        at += plain_beginning(text.substr(at));
    }
    return false;
}

bool ends_with_its_text(uni::byte_view stored)
{
    return ends_behind(stored, units_of(stored));
}

bool put_json_text(uni::text_buffer& out, std::string_view text)
{
    bool is_utf8 = true;
    while (true) {
        const std::size_t plain = plain_beginning(text);
        put_in_pieces(out, text.substr(0, plain));
        text.remove_prefix(plain);
        if (text.empty()) {
            return is_utf8;
        }
        const uni::utf8_character one = uni::decode_utf8(text);
        if (!one.is_valid) {
            is_utf8 = false;
            out.literal("[x");
            out.hex(one.character, 2);
            out.character(']');
        } else if (one.character == '"' || one.character == '\\') {
            out.character('\\');
            out.character(text.front());
        } else if (needs_escape(one.character)) {
            put_unit_escape(out, one.character);
        } else {
            out.text(text.substr(0, one.length));
        }
        text.remove_prefix(one.length);
    }
}

void write_json_text(uni::text_buffer& out, std::string_view text)
{
    out.character('"');
    put_json_text(out, text);
    out.character('"');
}

bool write_json_stored_text(uni::text_buffer& out, uni::byte_view stored)
{
    constexpr std::uint64_t most_units = 1024;
    std::array<char, uni::stored_text_room(most_units * 2)> piece;
    out.character('"');
    const uni::byte_view shown = units_of(stored);
    for (uni::byte_view left = shown; left.size() != 0;) {
        std::uint64_t units = std::min(left.size() / 2, most_units);
        const bool is_half_a_pair =
            units * 2 < left.size() && (left.u16(units * 2 - 2) & 0xfc00) == 0xd800;
        units -= is_half_a_pair ? 1 : 0; // which goes with its other half
        const char* const end = uni::put_stored_utf16(piece.data(), left.slice(0, units * 2));
        put_json_text(out, {piece.data(), static_cast<std::size_t>(end - piece.data())});
        left = left.from(units * 2);
    }
    out.character('"');
    return ends_behind(stored, shown);
}

void write_json_moment(uni::text_buffer& out, const moment& shown)
{
    write_time(out, shown.raw, shown.kind);
}

void write_json_hex(uni::text_buffer& out, std::span<const std::uint8_t> bytes)
{
    out.character('"');
    while (!bytes.empty()) {
        const std::size_t count = std::min(bytes.size(), piece_bytes / 2);
        char* end = out.room(count * 2);
        for (const std::uint8_t byte : bytes.first(count)) {
            std::memcpy(end, uni::hex_pairs.data() + std::size_t{byte} * 2, 2);
            end += 2;
        }
        out.taken(end);
        bytes = bytes.subspan(count);
    }
    out.character('"');
}

bool write_json_value(uni::text_buffer& out, const sdb::sdb_database& database, std::uint16_t tag,
                      std::uint32_t offset)
{
    switch (json_form_of(tag)) {
    case value_form::null_word:
        out.literal("true");
        return true;
    case value_form::reference:
        return write_reference(out, database, database.word_behind(offset));
    case value_form::stored_text:
        return write_json_stored_text(out, database.payload_at(offset));
    case value_form::guid:
        return write_quoted_guid(out, database.payload_at(offset));
    case value_form::nothing:
    case value_form::index_bits:
        if (tag == tag::patch_bits) {
            write_patch(out, database.payload_at(offset));
            return is_all_operations(database.payload_at(offset));
        }
        if (sdb::tag_type(tag) == type::binary_) {
            write_bytes(out, database, offset);
        } else {
            out.literal("null");
        }
        return true;
    default:
        return write_number_of(out, tag, number_at(database, tag, offset));
    }
}

void write_json_raw(uni::text_buffer& out, const sdb::sdb_database& database, std::uint16_t tag,
                    std::uint32_t offset)
{
    if (const auto kind = sdb::tag_type(tag); kind == type::binary_ || kind == type::string) {
        write_bytes(out, database, offset);
    } else {
        write_hex_number(out, number_at(database, tag, offset), sdb::hex_digits_of(tag));
    }
}

void write_json_member(uni::text_buffer& out, std::string_view name, const value& shown,
                       const sdb::sdb_database* database, bool is_first)
{
    out.text(is_first ? "\"" : ",\"");
    out.text(name);
    out.literal("\":");
    const std::string* const text = std::get_if<std::string>(&shown);
    if (text == nullptr) {
        write_value_of_fact(out, name, shown, database);
        return;
    }
    out.character('"');
    const bool is_utf8 = put_json_text(out, *text);
    out.character('"');
    if (!is_utf8) {
        out.literal(",\"");
        out.text(name);
        out.literal("_bytes\":");
        write_json_hex(out, uni::bytes_of(*text));
    }
}

} // namespace form
