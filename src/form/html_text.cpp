#include "form/html_text.h"

#include <algorithm>

#include "form/tag_text.h"
#include "form/value_text.h"
#include "sdb/patch_op.h"
#include "sdb/tags.h"
#include "sdb/vocabulary.h"
#include "uni/marks.h"
#include "uni/numbers.h"
#include "uni/text.h"
#include "uni/text_targets.h"
#include "uni/time.h"
#include "uni/utf.h"

namespace form {

namespace {

namespace type = sdb::type;

constexpr std::string_view utc_mark = " UTC";

// Hands text on with its markup escaped.
class escaped_text final : public uni::text_in_blocks {
public:
    explicit escaped_text(uni::text_buffer& to) : to_(to) {}
    void finish() { hand_on(); }

private:
    void take(std::string_view block) override { uni::write_xml_escaped(to_, block); }

    uni::text_buffer& to_;
};

bool needs_escape(std::string_view text)
{
    return text.find_first_of("<>&\"") != text.npos;
}

void write_none(uni::text_buffer& out, std::string_view why)
{
    uni::text_buffer text;
    text.literal("<em>");
    text.text(why);
    text.literal("</em>");
    out.text(text.view());
}

void write_size(uni::text_buffer& out, std::uint64_t size)
{
    write_none(out, std::to_string(size) + (size == 1 ? " byte" : " bytes"));
}

std::string operation_text(const sdb::patch_op& op, bool is_bare)
{
    uni::text_buffer text;
    text.text(sdb::op_name(op.opcode));
    text.character(' ');
    write_html_stored_text(text, op.module_name);
    text.literal(" 0x");
    text.hex(op.address, 8);
    text.text(is_bare ? " without its bytes" : ":");
    return std::string(text.view());
}

void write_patch(uni::text_buffer& out, uni::byte_view value)
{
    sdb::patch_shares shares(value);
    sdb::for_each_patch_op(value, [&](const sdb::patch_op& op, std::uint64_t position) {
        const bool is_bare = shares.take(op, position);
        const std::string head = operation_text(op, is_bare);
        constexpr std::string_view end = "<br/>";
        const std::uint64_t bytes = is_bare ? 0 : op.data.size();
        char* to = out.room(head.size() + bytes * 3 + end.size());
        to = std::ranges::copy(head, to).out;
        for (std::uint64_t i = 0; i < bytes; ++i) {
            *to++ = ' ';
            to = uni::put_hex(to, op.data.u8(i), 2);
        }
        out.taken(std::ranges::copy(end, to).out);
        return out.good();
    });
}

void write_reference(uni::text_buffer& out, const sdb::sdb_database& database,
                     std::uint32_t reference)
{
    const uni::byte_view stored = database.string_bytes(reference);
    if (!database.has_string(reference)) {
        uni::text_buffer text;
        text.literal("no text at 0x");
        text.hex_min(reference, 1);
        write_none(out, text.view());
    } else {
        write_html_stored_text(out, stored);
    }
}

} // namespace

std::string html_text(std::string_view text)
{
    return uni::xml_escape(uni::marked(text));
}

void write_html_text(uni::text_buffer& out, std::string_view text)
{
    uni::marked_pieces pieces(text);
    for (std::string_view piece = pieces.next(); !piece.empty(); piece = pieces.next()) {
        uni::write_xml_escaped(out, piece);
    }
}

void write_html_stored_text(uni::text_buffer& out, uni::byte_view stored)
{
    constexpr std::uint64_t long_text = 0x8000;
    bool is_plain = false;
    if (stored.size() > long_text) {
        uni::text_buffer aside;
        write_html_text(out, stored_text(aside, stored, is_plain));
        return;
    }
    char* const begin = out.room(uni::stored_text_room(stored.size()));
    char* const end = uni::put_stored_utf16(begin, stored, is_plain);
    const std::string_view text(begin, static_cast<std::size_t>(end - begin));
    if (is_plain || !(needs_escape(text) || uni::needs_marks(text))) {
        out.taken(end);
    } else {
        write_html_text(out, std::string(text));
    }
}

void write_html_tag(uni::text_buffer& out, const sdb::sdb_database& database, std::uint16_t tag,
                    std::uint32_t offset, const request::cmd_params& style)
{
    switch (form_of(tag)) {
    case value_form::reference:
        write_reference(out, database, database.word_behind(offset));
        return;
    case value_form::stored_text:
        write_html_stored_text(out, database.payload_at(offset));
        return;
    case value_form::filetime:
        out.text(html_moment({database.image().u64(std::uint64_t{offset} + 2)}, style));
        return;
    case value_form::unix_time:
        out.text(html_moment(unix_moment(database.word_behind(offset)), style));
        return;
    default:
        break;
    }
    if (tag == sdb::tag::patch_bits) {
        write_patch(out, database.payload_at(offset));
    } else if (form_of(tag) == value_form::index_bits ||
               !write_tag_text(out, database, tag, offset, style)) {
        if (sdb::tag_type(tag) == type::binary_) {
            write_size(out, database.word_behind(offset));
        } else {
            write_none(out, "no value");
        }
    }
}

std::string html_moment(const moment& shown, const request::cmd_params& style)
{
    const uni::time_value when = uni::told_moment(shown.raw, shown.kind);
    uni::text_buffer text;
    if (when.valid) {
        char* const begin = text.room(uni::longest_moment_text);
        text.taken(uni::put_moment(begin, when, style.date_style));
    } else if (shown.raw != 0) {
        const bool is_dword = shown.kind == uni::time_kind::unix_seconds;
        text.literal("0x");
        text.hex(is_dword ? static_cast<std::uint32_t>(shown.raw) : shown.raw, is_dword ? 8 : 16);
    }
    return std::string(text.view());
}

void write_html_value(uni::text_buffer& out, const value& shown, const request::cmd_params& style,
                      const sdb::sdb_database* database)
{
    const stored_value* const stored = std::get_if<stored_value>(&shown);
    if (stored != nullptr && database != nullptr && database->is_recorded(stored->offset)) {
        write_html_tag(out, *database, database->tag_from(stored->offset), stored->offset, style);
        return;
    }
    if (const moment* const when = std::get_if<moment>(&shown)) {
        out.text(html_moment(*when, style));
        out.text(uni::told_moment(when->raw, when->kind).valid ? utc_mark : std::string_view());
        return;
    }
    escaped_text to(out);
    write_value(to, shown, style, database);
    to.finish();
}

} // namespace form
