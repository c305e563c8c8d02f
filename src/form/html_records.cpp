#include "form/html_records.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "form/html_text.h"
#include "sdb/tags.h"
#include "uni/numbers.h"

namespace form {

namespace {

namespace tag = sdb::tag;
namespace type = sdb::type;

// What a scalar without its text takes at most.
constexpr std::size_t most_in_a_piece = 256;

html_member make_member(std::uint16_t tag)
{
    html_member made;
    const std::string name =
        " " + sdb::tag_name(tag) + (tag == tag::name ? "</dt><dd class=\"n\">" : "</dt><dd>");
    std::ranges::copy(name, made.name.begin());
    made.length = static_cast<std::uint8_t>(name.size());
    made.is_dword = form_of(tag) == value_form::number && sdb::tag_type(tag) == type::dword;
    return made;
}

#define SDB_TAG(number, name) static_assert(sizeof #name + 20 <= longest_html_member);
#include "sdb/tag_list.inc"

std::span<const html_member> known_members()
{
    static const std::vector<html_member> members = [] {
        std::vector<html_member> made;
        for (std::size_t slot = 0; slot + 1 < sdb::tag_slots; ++slot) {
            made.push_back(make_member(sdb::tag_of_slot(slot)));
        }
        return made;
    }();
    return members;
}

// A list that is a fix, or refers to one.
bool is_fix(std::uint16_t tag)
{
    switch (tag) {
    case tag::shim:
    case tag::patch:
    case tag::msi_transform:
    case tag::flag:
    case tag::context:
    case tag::kshim:
    case tag::kflag:
    case tag::kflag_ref:
    case tag::quirk:
    case tag::migration_data:
    case tag::migration_shim:
        return true;
    default:
        return tag != tag::matching_reg && sdb::is_reference_list_tag(tag);
    }
}

template <std::size_t size>
char* put(char* out, const char (&text)[size])
{
    std::memcpy(out, text, size - 1);
    return out + size - 1;
}

} // namespace

template class record_tree<html_record_writer>;

html_record_writer::html_record_writer(uni::text_buffer& out, const sdb::sdb_database& database,
                                       const request::cmd_params& style)
    : record_tree(out, database, style.bounds, 0), style_(style), known_(known_members())
{}

void html_record_writer::begin_root(std::uint32_t within, std::uint32_t)
{
    is_root_ = true;
    within_ = within;
    out_.literal("<details class=\"c\">");
}

void html_record_writer::begin_child(bool, std::uint32_t)
{
    is_root_ = false;
    out_.literal("<div>");
}

void html_record_writer::write_list(item_span items)
{
    const model::record_item& head = items.front();
    if (is_root_) {
        write_summary(items);
    } else {
        out_.room(most_in_a_piece); // for all of it
        out_.text(is_fix(head.tag) ? "<p class=\"f\">0x" : "<p>0x");
        out_.hex(head.offset, 8);
        out_.character(' ');
        write_tag_name(out_, head.tag);
        out_.literal("</p>");
    }
    if (items.size() == 1) {
        return;
    }
    out_.literal("<dl>");
    completion_ = "</dl>";
    for (const model::record_item& item : items.subspan(1)) {
        if (!has_room()) {
            break;
        }
        write_scalar(item);
    }
    out_.literal("</dl>");
}

void html_record_writer::end_list(bool is_root, bool is_cut)
{
    out_.room(most_in_a_piece);
    if (is_cut && is_root) {
        out_.literal("<p><em>not all of it</em></p>");
    }
    out_.text(is_root ? "</details>\n" : "</div>");
}

// Which record it is, by its name and that of its application.
void html_record_writer::write_summary(item_span items)
{
    const model::record_item& head = items.front();
    out_.room(most_in_a_piece);
    out_.literal("<summary>0x");
    out_.hex(head.offset, 8);
    out_.text(is_fix(head.tag) ? " <b class=\"f\">" : " <b>");
    write_tag_name(out_, head.tag);
    out_.literal("</b>");
    completion_ = "</summary>";
    if (within_ != 0) {
        out_.literal(" <em>in 0x");
        out_.hex(within_, 8);
        out_.literal("</em>");
    }
    for (const std::uint16_t wanted : {tag::name, tag::app_name}) {
        const auto found = std::ranges::find(items, wanted, &model::record_item::tag);
        if (found == items.end()) {
            continue;
        }
        out_.text(wanted == tag::name ? " <span>" : " <em>");
        completion_ = wanted == tag::name ? "</span></summary>" : "</em></summary>";
        write_html_stored_text(out_, database_.string_bytes(database_.word_behind(found->offset)));
        out_.text(wanted == tag::name ? "</span>" : "</em>");
        completion_ = "</summary>";
    }
    out_.literal("</summary>");
    completion_ = {};
}

const html_member& html_record_writer::uncommon_member(std::uint16_t tag)
{
    uncommon_ = make_member(tag);
    return uncommon_;
}

void html_record_writer::write_scalar(const model::record_item& item)
{
    const html_member& member = member_of(item.tag);
    char* end = put(out_.room(most_in_a_piece), "<dt>0x");
    end = uni::put_hex(end, item.offset, 8);
    std::memcpy(end, member.name.data(), member.name.size());
    end += member.length;
    if (member.is_dword && style_.base16) {
        end = uni::put_hex(put(end, "0x"), database_.word_behind(item.offset), 8);
        out_.taken(put(end, "</dd>"));
        return;
    }
    out_.taken(end);
    completion_ = "</dd></dl>";
    write_html_tag(out_, database_, item.tag, item.offset, style_);
    out_.literal("</dd>");
    completion_ = "</dl>";
}

} // namespace form
