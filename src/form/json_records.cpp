#include "form/json_records.h"

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

#include "form/json_text.h"
#include "sdb/tags.h"
#include "sdb/vocabulary.h"
#include "uni/numbers.h"
#include "uni/utf.h"

namespace form {

namespace {

namespace type = sdb::type;

constexpr std::size_t all_tags = 0x10000;

// A name that many tags have is that of one of them.
std::uint16_t key_of(std::uint16_t tag)
{
    const std::uint16_t kind = sdb::tag_type(tag);
    if (kind == type::byte_) {
        return type::byte_;
    }
    return sdb::is_known_type(kind) ? tag : 0;
}

json_member make_member(std::uint16_t tag)
{
    json_member made;
    const std::string name = ",\"" + sdb::tag_name(tag) + "\":";
    std::ranges::copy(name, made.name.begin());
    made.length = static_cast<std::uint8_t>(name.size());
    made.form = json_form_of(tag);
    made.is_dword = made.form == value_form::number && sdb::tag_type(tag) == type::dword;
    made.key = key_of(tag);
    made.shares_name = made.key == type::byte_ || made.key == 0;
    return made;
}

#define SDB_TAG(number, name) static_assert(sizeof #name + 3 <= longest_member);
#include "sdb/tag_list.inc"

std::span<const json_member> known_members()
{
    static const std::vector<json_member> members = [] {
        std::vector<json_member> made;
        for (std::size_t slot = 0; slot + 1 < sdb::tag_slots; ++slot) {
            made.push_back(make_member(sdb::tag_of_slot(slot)));
        }
        return made;
    }();
    return members;
}

// Text whose length the compiler knows, into room that is there.
template <std::size_t size>
char* put(char* out, const char (&text)[size])
{
    std::memcpy(out, text, size - 1);
    return out + size - 1;
}

// What a list's beginning, or a scalar without its text, takes at most.
constexpr std::size_t most_in_a_piece = 256;

} // namespace

template class record_tree<json_record_writer>;

json_record_writer::json_record_writer(uni::text_buffer& out, const sdb::sdb_database& database,
                                       const request::bounds& bounds, std::string line_begin)
    : record_tree(out, database, bounds, line_begin.size()), line_begin_(std::move(line_begin)),
      known_(known_members()), seen_in_(all_tags, 0), repeats_in_(all_tags, 0)
{}

void json_record_writer::begin_root(std::uint32_t within, std::uint32_t reference)
{
    out_.text(line_begin_);
    out_.character(',');
    if (within != 0) {
        write_offset("within", within);
    }
    begin_members(reference);
}

void json_record_writer::begin_child(bool is_first, std::uint32_t reference)
{
    out_.text(is_first ? "{" : ",{");
    begin_members(reference);
}

void json_record_writer::begin_members(std::uint32_t reference)
{
    if (reference != 0) {
        write_offset("reference", reference);
    }
    completion_ = "\"values\":{},\"at\":{},\"children\":[";
}

// Writes a member in front of others.
void json_record_writer::write_offset(std::string_view name, std::uint32_t offset)
{
    out_.character('"');
    out_.text(name);
    out_.literal("\":");
    out_.decimal(offset);
    out_.character(',');
}

void json_record_writer::write_list(item_span items)
{
    const model::record_item& head = items.front();
    const json_member& member = member_of(head.tag);
    char* end = put(out_.room(most_in_a_piece), "\"tag\":");
    std::memcpy(end, member.name.data() + 1, member.name.size() - 1);
    end += member.length - 2; // without the comma and the colon
    end = put(uni::put_decimal(put(end, ",\"offset\":"), head.offset), ",\"size\":");
    end = uni::put_decimal(end, database_.word_behind(head.offset));
    out_.taken(end);
    completion_ = ",\"values\":{},\"at\":{},\"children\":[";
    write_values(items);
    write_places(items);
    write_more(",\"raw\":{", hidden_, [&](const model::record_item& item) {
        write_json_raw(out_, database_, item.tag, item.offset);
    });
    write_more(",\"tags\":{", sharing_,
               [&](const model::record_item& item) { out_.decimal(item.tag); });
    if (has_repeated_) {
        write_repeated(items);
    }
    out_.literal(",\"children\":[");
}

void json_record_writer::end_list(bool is_root, bool is_cut)
{
    out_.text(is_cut ? "],\"cut\":true}" : "]}");
    if (is_root) {
        out_.line_end();
    }
}

const json_member& json_record_writer::uncommon_member(std::uint16_t tag)
{
    uncommon_ = make_member(tag);
    return uncommon_;
}

// Writes what stands in front of a value. Gives the end, behind which is room for a value without a text.
char* json_record_writer::open_member(const json_member& member, bool is_first)
{
    const std::size_t skipped = is_first ? 1 : 0; // the comma
    char* const end = out_.room(most_in_a_piece);
    std::memcpy(end, member.name.data() + skipped, member.name.size() - 1);
    out_.taken(end + member.length - skipped);
    return end + member.length - skipped;
}

// Writes the text of a reference, if it leads to a short one that ends its string; false, and nothing
// written, if not.
bool json_record_writer::write_short_text(std::uint32_t reference)
{
    constexpr std::uint64_t longest = 0x1000;
    const uni::byte_view stored = database_.string_bytes(reference);
    if (stored.empty() || stored.size() > longest) {
        return false;
    }
    char* const begin = out_.room(uni::stored_text_room(stored.size()) + 2);
    bool is_plain = false;
    char* end = uni::put_stored_utf16(begin + 1, stored, is_plain);
    const std::string_view text(begin + 1, static_cast<std::size_t>(end - begin - 1));
    const bool is_as_it_is =
        is_plain ? stored.size() == text.size() * 2 + 2 && text.find('\\') == text.npos
                 : ends_with_its_text(stored) && !needs_json_escape(text);
    if (!is_as_it_is) {
        return false;
    }
    *begin = '"';
    *end++ = '"';
    out_.taken(end);
    return true;
}

// Writes a scalar as a member; false where it does not show all its bits.
bool json_record_writer::write_member(const model::record_item& item, const json_member& member,
                                      bool is_first)
{
    char* const end = open_member(member, is_first);
    if (member.is_dword) {
        out_.taken(uni::put_decimal(end, database_.word_behind(item.offset)));
        return true;
    }
    return (member.form == value_form::reference &&
            write_short_text(database_.word_behind(item.offset))) ||
           write_json_value(out_, database_, item.tag, item.offset);
}

void json_record_writer::write_values(item_span items)
{
    hidden_.clear();
    sharing_.clear();
    has_repeated_ = false;
    ++pass_;
    written_ = 0;
    out_.literal(",\"values\":{");
    completion_ = "},\"at\":{},\"children\":[";
    for (const model::record_item& item : items.subspan(1)) {
        const json_member& member = member_of(item.tag);
        if (!is_first_of_its_name(member)) {
            repeats_in_[member.key] = pass_;
            has_repeated_ = true;
            continue;
        }
        if (!has_room()) {
            break;
        }
        if (!write_member(item, member, written_++ == 0)) {
            hidden_.push_back(item);
        }
        if (member.shares_name) {
            sharing_.push_back(item);
        }
    }
    out_.character('}');
    completion_ = ",\"at\":{},\"children\":[";
}

void json_record_writer::write_places(item_span items)
{
    std::size_t left = written_;
    out_.literal(",\"at\":{");
    completion_ = "},\"children\":[";
    ++pass_;
    for (const model::record_item& item : items.subspan(1)) {
        const json_member& member = member_of(item.tag);
        if (left == 0) {
            break;
        }
        if (!has_repeated_ || is_first_of_its_name(member)) {
            char* const end = open_member(member, left == written_);
            out_.taken(uni::put_decimal(end, item.offset));
            --left;
        }
    }
    out_.character('}');
    completion_ = ",\"children\":[";
}

// Writes an object of what else is to be told of some of the scalars that stand in `values`.
void json_record_writer::write_more(std::string_view opening,
                                    std::span<const model::record_item> items, auto&& write)
{
    if (items.empty()) {
        return;
    }
    out_.text(opening);
    for (const model::record_item& item : items) {
        open_member(member_of(item.tag), &item == &items.front());
        write(item);
    }
    out_.character('}');
}

void json_record_writer::write_repeated(item_span items)
{
    // What repeats is noted under a pass of its own, since others came between.
    ++pass_;
    for (const model::record_item& item : items.subspan(1)) {
        const json_member& member = member_of(item.tag);
        if (!is_first_of_its_name(member)) {
            repeats_in_[member.key] = pass_;
        }
    }
    repeated_.clear();
    for (std::size_t place = 1; place < items.size(); ++place) {
        if (repeats_in_[key_of(items[place].tag)] == pass_) {
            repeated_.push_back(static_cast<std::uint32_t>(place));
        }
    }
    const auto in_order = [&](std::uint32_t place) {
        return std::pair(key_of(items[place].tag), place);
    };
    if (!std::ranges::is_sorted(repeated_, {}, in_order)) {
        std::ranges::sort(repeated_, {}, in_order);
    }
    out_.literal(",\"repeated\":{");
    std::size_t i = 0;
    for (; i < repeated_.size() && has_room(); ++i) {
        const model::record_item& item = items[repeated_[i]];
        const json_member& member = member_of(item.tag);
        const bool begins = i == 0 || key_of(items[repeated_[i - 1]].tag) != member.key;
        if (begins) {
            out_.text(i == 0 ? "" : "]");
            open_member(member, i == 0);
        }
        out_.text(begins ? "[{\"at\":" : ",{\"at\":");
        out_.decimal(item.offset);
        out_.literal(",\"value\":");
        if (!write_json_value(out_, database_, item.tag, item.offset)) {
            out_.literal(",\"raw\":");
            write_json_raw(out_, database_, item.tag, item.offset);
        }
        if (member.shares_name) {
            out_.literal(",\"tag\":");
            out_.decimal(item.tag);
        }
        out_.character('}');
    }
    out_.text(i == 0 ? "}" : "]}");
}

} // namespace form
