#include "form/value_text.h"

#include "form/tag_text.h"
#include "uni/text_targets.h"

namespace form {

namespace {

void write_stored_value(uni::text_buffer& out, const stored_value& stored,
                        const request::cmd_params& style, const sdb::sdb_database* database)
{
    if (database != nullptr && database->is_recorded(stored.offset)) {
        write_tag_text(out, *database, database->image().u16(stored.offset), stored.offset, style);
    }
}

} // namespace

moment_text::moment_text(const moment& shown, const request::cmd_params& style)
{
    uni::filetime_text(date, time, uni::time_value_from(shown.raw, shown.kind), style.date_style);
}

bool is_long(const value& shown, const sdb::sdb_database* database)
{
    constexpr std::uint64_t long_text = 0x8000;
    if (const std::string* const text = std::get_if<std::string>(&shown)) {
        return text->size() > long_text;
    }
    const stored_value* const stored = std::get_if<stored_value>(&shown);
    if (stored == nullptr || database == nullptr || !database->is_recorded(stored->offset)) {
        return false;
    }
    switch (form_of(database->tag_from(stored->offset))) {
    case value_form::reference:
        return database->string_bytes(database->word_behind(stored->offset)).size() > long_text;
    case value_form::stored_text:
        return database->payload_at(stored->offset).size() > long_text;
    default:
        return false;
    }
}

void write_value(uni::text_buffer& out, const value& shown, const request::cmd_params& style,
                 const sdb::sdb_database* database)
{
    std::visit(overloaded{
                   [](std::monostate) {},
                   [&](const std::string& text) { write_marked_text(out, text, style); },
                   [&](const moment& one) { out.text(moment_text(one, style).joined()); },
                   [&](const dword_value& one) { write_number(out, one.number, 8, style); },
                   [&](const count& one) { out.decimal(one.number); },
                   [&](const hex_number& one) {
                       out.literal("0x");
                       out.hex_min(one.number, 8);
                   },
                   [&](const tag_count& one) { out.decimal(one.number); },
                   [&](const tag_word& one) { write_tag_name(out, one.tag); },
                   [&](const stored_value& one) { write_stored_value(out, one, style, database); },
                   [&](const tag_number& one) { write_number_of(out, one.tag, one.number, style); },
                   [&](const truth& one) { out.text(one.holds ? "yes" : "no"); },
                   [&](const texts& several) {
                       for (const std::string& one : several.all) {
                           out.text(&one == &several.all.front() ? "" : several.separator);
                           write_marked_text(out, one, style);
                       }
                   },
               },
               shown);
}

std::string value_text(const value& shown, const request::cmd_params& style,
                       const sdb::sdb_database* database)
{
    std::string text;
    if (is_long(shown, database)) { // what grows is held twice
        uni::text_counter counted;
        write_value(counted, shown, style, database);
        text.reserve(static_cast<std::size_t>(counted.total()));
    }
    uni::string_text to(text);
    write_value(to, shown, style, database);
    to.finish();
    return text;
}

} // namespace form
