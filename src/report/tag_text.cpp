#include "report/tag_text.h"

#include <span>

#include "sdb/tags.h"
#include "sdb/vocabulary.h"
#include "uni/guid.h"
#include "uni/text.h"
#include "uni/time.h"
#include "uni/utf.h"

namespace report {

namespace {

namespace tag = sdb::tag;
namespace type = sdb::type;

constexpr std::uint64_t shortest_index_bits = 12;
constexpr std::string_view set_word = "set";
constexpr std::string_view cut_mark = "...";

unsigned digits_of(std::uint16_t type_bits)
{
    switch (type_bits) {
    case type::byte_:
        return 2;
    case type::word:
        return 4;
    case type::dword:
        return 8;
    default:
        return 16;
    }
}

void write_number(uni::text_buffer& out, std::uint64_t value, unsigned digits,
                  const front::sdb_opts& options)
{
    if (options.base16) {
        out.text("0x");
        out.hex(value, digits);
    } else {
        out.decimal(value);
    }
}

void write_moment(uni::text_buffer& out, const uni::time_value& moment,
                  const front::sdb_opts& options)
{
    std::string date;
    std::string time;
    uni::filetime_text(date, time, moment, options.date_style);
    out.text(date);
    out.character(' ');
    out.text(time);
}

// The four words from the highest down, up to the first that is 0xffff.
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

bool holds_unix_time(std::uint16_t tag)
{
    return tag == tag::link_date || tag == tag::upto_link_date;
}

// A reference of the listings that is shown as a bare offset. Unlike is_expanded_dword_tag this
// leaves one tag out, which shows as a plain dword: meant.
bool shows_as_offset(std::uint16_t tag)
{
    return sdb::is_expanded_dword_tag(tag) && tag != tag::unnamed_tagid_4888;
}

bool holds_version(std::uint16_t tag)
{
    switch (tag) {
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
        return true;
    default:
        return false;
    }
}

bool holds_guid(std::uint16_t tag)
{
    switch (tag) {
    case tag::exe_id:
    case tag::msi_package_id:
    case tag::database_id:
    case tag::context_platform_id:
    case tag::context_branch_id:
    case tag::fix_id:
    case tag::app_id:
        return true;
    default:
        return false;
    }
}

void write_word(uni::text_buffer& out, std::uint16_t value, const front::sdb_opts& options)
{
    // A word that looks like a tag is shown as that tag's name.
    if (sdb::is_known_type(sdb::tag_type(value))) {
        write_tag_name(out, value);
    } else {
        write_number(out, value, 4, options);
    }
}

void write_dword(uni::text_buffer& out, std::uint16_t tag, std::uint32_t value,
                 const front::sdb_opts& options)
{
    if (holds_unix_time(tag)) {
        const std::int64_t seconds = static_cast<std::int32_t>(value);
        write_moment(
            out,
            uni::time_value_from(static_cast<std::uint64_t>(seconds), uni::time_kind::unix_seconds),
            options);
    } else if (shows_as_offset(tag)) {
        out.hex_min(value, 1);
    } else {
        write_number(out, value, 8, options);
    }
}

void write_qword(uni::text_buffer& out, std::uint16_t tag, std::uint64_t value,
                 const front::sdb_opts& options)
{
    if (tag == tag::time) {
        write_moment(out, uni::time_value_from(value, uni::time_kind::filetime), options);
    } else if (holds_version(tag)) {
        write_version(out, value);
    } else {
        write_number(out, value, 16, options);
    }
}

bool write_binary(uni::text_buffer& out, const sdb::sdb_tag_item& item)
{
    if (holds_guid(item.tag)) {
        if (item.value.size() != uni::guid_size) {
            return false;
        }
        char* const text = out.room(uni::guid_text_length);
        out.taken(uni::put_guid(text, item.value.bytes().first<uni::guid_size>()));
        return true;
    }
    if (item.tag == tag::index_bits && item.value.size() >= shortest_index_bits) {
        out.text(cut_mark);
        return true;
    }
    return false;
}

// In the plain form an operation is only counted, by an empty line; other forms show nothing.
std::map<std::uint32_t, std::string> patch_lines(const sdb::sdb_tag_item& item,
                                                 const front::sdb_opts& options)
{
    constexpr std::uint32_t value_position = 6;
    std::map<std::uint32_t, std::string> lines;
    if (!options.xml && !options.section_rules) {
        return lines;
    }
    sdb::for_each_patch_op(item.value, [&](const sdb::patch_op& op, std::uint64_t position) {
        const auto key = item.offset + static_cast<std::uint32_t>(position);
        if (options.xml) {
            uni::text_buffer element;
            write_patch_element(element, op);
            lines.emplace(key, element.view());
        } else {
            lines.emplace(key + value_position, std::string());
        }
        return true;
    });
    return lines;
}

} // namespace

void write_tag_name(uni::text_buffer& out, std::uint16_t tag)
{
    const std::string_view known = sdb::known_tag_name(tag);
    if (known.empty()) {
        out.text(sdb::tag_name(tag));
    } else {
        out.text(known);
    }
}

std::string_view write_stored_text(uni::text_buffer& out, uni::byte_view stored)
{
    char* const start = out.room(static_cast<std::size_t>(stored.size()) / 2 * 3);
    char* const end = uni::put_stored_utf16(start, stored);
    out.taken(end);
    return {start, static_cast<std::size_t>(end - start)};
}

bool write_tag_text(uni::text_buffer& out, const sdb::sdb_database& database,
                    const sdb::sdb_tag_item& item, const front::sdb_opts& options)
{
    switch (sdb::tag_type(item.tag)) {
    case type::null_:
        out.text(set_word);
        return true;
    case type::byte_:
        write_number(out, item.value.u8(0), 2, options);
        return true;
    case type::word:
        write_word(out, item.value.u16(0), options);
        return true;
    case type::dword:
        write_dword(out, item.tag, item.value.u32(0), options);
        return true;
    case type::qword:
        write_qword(out, item.tag, item.value.u64(0), options);
        return true;
    case type::stringref: {
        const uni::byte_view stored = database.string_bytes(item.size);
        write_stored_text(out, stored);
        return !stored.empty();
    }
    case type::string:
        write_stored_text(out, item.value);
        return true;
    case type::binary_:
        return write_binary(out, item);
    default:
        return false;
    }
}

void write_patch_element(uni::text_buffer& out, const sdb::patch_op& op)
{
    out.text("<op module=\"");
    write_stored_text(out, op.module_name);
    out.text("\" type=\"");
    out.text(sdb::op_name(op.opcode));
    out.text("\" address=\"0x");
    out.hex(op.address, 8);
    out.text("\">");
    bool first = true;
    for (const std::uint8_t byte : op.data.bytes()) {
        if (!first) {
            out.character(' ');
        }
        first = false;
        out.hex(byte, 2);
    }
    out.text("</op>");
}

rendered_value render_tag_value(const sdb::sdb_database& database, const sdb::sdb_tag_item& item,
                                const front::sdb_opts& options)
{
    rendered_value rendered;
    uni::text_buffer text;
    const std::uint16_t type_bits = sdb::tag_type(item.tag);
    switch (type_bits) {
    case type::null_:
        rendered.value_text = set_word;
        rendered.value_number = 1;
        break;
    case type::byte_:
    case type::word:
    case type::dword:
    case type::qword:
        rendered.value_number = item.value.u64(0);
        write_number(text, rendered.value_number, digits_of(type_bits), options);
        rendered.value_text = text.view();
        text.clear();
        break;
    case type::stringref:
        // Hexadecimal whatever the base: meant.
        text.text("0x");
        text.hex_min(item.size, 4);
        rendered.value_text = text.view();
        text.clear();
        break;
    default:
        break;
    }
    if (item.tag == tag::patch_bits) {
        rendered.lines = patch_lines(item, options);
    } else if (write_tag_text(text, database, item, options)) {
        rendered.lines.emplace(item.offset, text.view());
    }
    return rendered;
}

std::string tag_text(const sdb::sdb_database& database, std::uint32_t tag_offset,
                     const front::sdb_opts& options, bool all_lines, bool quote)
{
    sdb::sdb_tag_item item;
    std::string text;
    if (!database.read_item(item, tag_offset)) {
        return text;
    }
    bool first = true;
    for (const auto& [position, line] : render_tag_value(database, item, options).lines) {
        if (!first) {
            text += '\n';
        }
        text += line;
        first = false;
        if (!all_lines) {
            break;
        }
    }
    if (quote) {
        uni::replace_char(text, '"', '\'');
    }
    return text;
}

} // namespace report
