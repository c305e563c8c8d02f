#include "report/value_words.h"

#include <algorithm>

#include "form/tag_text.h"
#include "model/record_facts.h"
#include "sdb/tags.h"
#include "sdb/vocabulary.h"
#include "uni/guid.h"
#include "uni/numbers.h"
#include "uni/text.h"
#include "uni/text_buffer.h"
#include "uni/utf.h"

namespace report {

namespace {

namespace type = sdb::type;

bool is_guid(const sdb::sdb_database& database, std::uint32_t offset)
{
    return form::form_of(database.tag_from(offset)) == form::value_form::guid &&
           database.payload_at(offset).size() == uni::guid_size;
}

} // namespace

namespace {

// Where to cut a text that is too long.
std::size_t end_of_part(std::string_view text)
{
    std::size_t end = longest_part;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xc0) == 0x80) {
        --end;
    }
    return end;
}

// What is looked at of a stored text.
uni::byte_view stored_beginning(const sdb::sdb_database& database, std::uint32_t offset)
{
    const bool is_reference = sdb::tag_type(database.tag_from(offset)) == type::stringref;
    return uni::beginning_of(is_reference ? database.string_bytes(database.word_behind(offset))
                                          : database.payload_at(offset),
                             longest_part);
}

} // namespace

void write_stored_words(uni::text_buffer& to, const sdb::sdb_database& database,
                        std::uint32_t offset)
{
    const uni::byte_view stored = stored_beginning(database, offset);
    char* const text = to.room(uni::stored_text_room((longest_part + 1) * 2));
    const std::string_view made(text, uni::put_stored_utf16(text, stored));
    if (made.size() <= longest_part) {
        to.taken(text + made.size());
    } else {
        to.taken(text + end_of_part(made));
        to.literal("...");
    }
}

std::string shortened(std::string text)
{
    if (text.size() > longest_part) {
        text.resize(end_of_part(text));
        text += "...";
    }
    return text;
}

std::string quoted(const std::string& text)
{
    return '"' + uni::replace_all(text, "\"", "\"\"") + '"';
}

std::string grouped(std::uint64_t number)
{
    std::string text = std::to_string(number);
    for (std::size_t at = text.size(); at > 3;) {
        at -= 3;
        text.insert(at, 1, ',');
    }
    return text;
}

std::string hexadecimal(std::uint64_t number)
{
    uni::text_buffer text;
    text.literal("0x");
    text.hex_min(number, 8);
    return std::string(text.view());
}

std::string bytes_text(uni::byte_view bytes, std::uint64_t of)
{
    std::string text;
    for (std::uint64_t at = 0; at < std::min({bytes.size(), of, most_bytes_shown}); ++at) {
        text += text.empty() ? "" : " ";
        text.append(&uni::hex_pairs[bytes.u8(at) * std::size_t{2}], 2);
    }
    for (std::uint64_t at = bytes.size(); at < std::min(of, most_bytes_shown); ++at) {
        text += text.empty() ? "??" : " ??";
    }
    return of > most_bytes_shown ? text + " ... (" + grouped(of) + " bytes)" : text;
}

void append_item(std::string& list, const std::string& item)
{
    list += list.empty() ? "" : ", ";
    list += item;
}

std::string words_of_tag(std::uint16_t tag)
{
    std::string name = sdb::tag_name(tag);
    uni::replace_char(name, '_', ' ');
    return name;
}

void write_name_of_list(uni::text_buffer& to, const sdb::sdb_database& database, std::uint32_t list)
{
    const std::uint64_t before = to.total();
    if (const std::uint32_t name = model::child_of(database, list, sdb::tag::name)) {
        write_stored_words(to, database, name);
    }
    if (to.total() == before) {
        to.text(model::name_of_list(database, list, longest_part));
    }
}

std::string stored_text(const sdb::sdb_database& database, std::uint32_t offset)
{
    uni::text_buffer text;
    write_stored_words(text, database, offset);
    return std::string(text.view());
}

std::string scalar_text(const sdb::sdb_database& database, std::uint32_t offset,
                        const request::cmd_params& style)
{
    uni::text_buffer text;
    write_scalar(text, database, offset, style);
    return std::string(text.view());
}

void write_scalar(uni::text_buffer& to, const sdb::sdb_database& database, std::uint32_t offset,
                  const request::cmd_params& style)
{
    const std::uint16_t own = database.tag_from(offset);
    if (sdb::tag_type(own) == type::stringref || sdb::tag_type(own) == type::string) {
        const std::span<const std::uint8_t> stored = stored_beginning(database, offset).bytes();
        if (std::ranges::find(stored, std::uint8_t{'"'}) != stored.end()) {
            to.text(quoted(stored_text(database, offset)));
            return;
        }
        to.character('"');
        write_stored_words(to, database, offset);
        to.character('"');
        return;
    }
    if (sdb::tag_type(own) == type::binary_ && !is_guid(database, offset)) {
        to.text(bytes_text(database.payload_at(offset), database.payload_at(offset).size()));
        return;
    }
    const std::uint64_t before = to.total();
    form::write_tag_text(to, database, own, offset, style);
    const bool is_number = sdb::tag_type(own) >= type::byte_ && sdb::tag_type(own) <= type::qword;
    if (to.total() == before && is_number) { // as a moment of 0 is
        to.text(hexadecimal(model::number_at(database, offset)));
    }
}

std::string scalars_of(const sdb::sdb_database& database, std::uint32_t list,
                       const request::cmd_params& style)
{
    std::string words;
    database.for_each_child(list, [&](std::uint32_t offset, std::uint16_t own) {
        if (sdb::tag_type(own) != type::list && words.size() < longest_list) {
            append_item(words, words_of_tag(own) + " " + scalar_text(database, offset, style));
        }
    });
    return words;
}

std::string value_words(const sdb::sdb_database& database, std::uint32_t offset,
                        const request::cmd_params& style)
{
    constexpr std::uint64_t most_hexadecimal = 32;
    const std::uint16_t own = database.tag_from(offset);
    const uni::byte_view value = database.payload_at(offset);
    const bool is_short_binary = sdb::tag_type(own) == type::binary_ &&
                                 !is_guid(database, offset) && value.size() <= most_hexadecimal;
    if (is_short_binary) {
        return uni::hex_text(value.bytes());
    }
    const std::string text = scalar_text(database, offset, style);
    // A reference is told by what it leads to, as offsets say nothing between two databases.
    if (sdb::tag_type(own) == type::dword && sdb::is_expanded_dword_tag(own)) {
        const std::uint32_t target = database.word_behind(offset);
        if (!database.is_recorded(target)) {
            return "tag 0x" + text + ", which is none";
        }
        return sdb::tag_type(database.tag_from(target)) == type::list
                   ? shortened(model::name_of_list(database, target, longest_part))
                   : "tag 0x" + text + ", which is no list";
    }
    return text;
}

} // namespace report
