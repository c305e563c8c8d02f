#include "form/xml_records.h"

#include <algorithm>
#include <array>
#include <utility>

#include "form/folding.h"
#include "form/tag_text.h"
#include "sdb/tags.h"
#include "sdb/vocabulary.h"
#include "uni/numbers.h"
#include "uni/text.h"
#include "uni/utf.h"

namespace form {

namespace {

namespace tag = sdb::tag;
namespace type = sdb::type;

constexpr std::string_view include_word = "include";
constexpr std::string_view exclude_word = "exclude";
constexpr std::string_view win64_word = "win64";
constexpr std::string_view win32_word = "win32";
constexpr std::string_view app_word = "app";
constexpr std::string_view softblock_word = "softblock";
constexpr std::string_view hardblock_word = "hardblock";
constexpr std::string_view cdata_word = "CDATA";
constexpr std::string_view any_name = "*";
constexpr std::string_view zero_dword = "0x00000000";
// Text of that many bytes stands on a line of its own inside its CDATA.
constexpr std::size_t long_cdata = 80;
// Lists may stand in one another without end.
constexpr unsigned deepest_indentation = 64;

// What a byte of text calls for.
enum byte_need : std::uint8_t { needs_cdata = 1, needs_single_quote = 2 };

constexpr std::array<std::uint8_t, 256> byte_needs = [] {
    std::array<std::uint8_t, 256> needs{};
    needs['<'] = needs['>'] = needs['&'] = needs_cdata;
    needs['"'] = needs_single_quote;
    return needs;
}();

unsigned needs_of(std::string_view text)
{
    unsigned needs = 0;
    for (const char c : text) {
        needs |= byte_needs[static_cast<std::uint8_t>(c)];
    }
    return needs;
}

// Binaries that are child elements; all other scalars are attributes.
bool is_child_element(std::uint16_t tag)
{
    return tag == tag::patch_bits || tag == tag::file_bits || tag == tag::data_bits ||
           tag == tag::text;
}

// Lists whose name and vendor move to an <app> element of their own.
bool has_app_element(std::uint16_t tag)
{
    switch (tag) {
    case tag::exe:
    case tag::lookup:
    case tag::bios_block:
    case tag::matching_info_block:
    case tag::device_block:
    case tag::machine_block:
    case tag::os_upgrade:
    case tag::package:
    case tag::upgrade_driver_block:
    case tag::msi_package:
        return true;
    default:
        return false;
    }
}

bool moves_to_app_element(std::uint16_t tag)
{
    return tag == tag::app_name || tag == tag::vendor;
}

} // namespace

void write_patch_element(uni::text_buffer& out, const sdb::patch_op& op, bool is_bare)
{
    uni::text_buffer module_name;
    bool plain = false;
    const std::string_view name = write_stored_text(module_name, op.module_name, plain);
    const std::string shown = plain ? std::string(name) : uni::xml_escape(name);
    out.text("<op module=\"");
    out.text(shown);
    out.text("\" type=\"");
    out.text(sdb::op_name(op.opcode));
    out.text("\" address=\"0x");
    out.hex(op.address, 8);
    out.text("\">");
    bool first = true;
    for (const std::uint8_t byte : is_bare ? uni::byte_view().bytes() : op.data.bytes()) {
        if (!first) {
            out.character(' ');
        }
        first = false;
        out.hex(byte, 2);
    }
    out.text("</op>");
}

void xml_record_writer::indent(unsigned depth)
{
    out_.blanks(std::min(depth, deepest_indentation));
}

void xml_record_writer::write_name(const open_element& element)
{
    switch (element.name) {
    case name_of::tag:
        write_tag_name(out_, element.tag);
        break;
    case name_of::include:
        out_.text(include_word);
        break;
    case name_of::exclude:
        out_.text(exclude_word);
        break;
    }
}

void xml_record_writer::close_down_to(std::uint16_t depth)
{
    while (!open_.empty() && open_.back().depth >= depth) {
        const open_element closed = open_.back();
        open_.pop_back();
        indent(closed.depth);
        out_.literal("</");
        write_name(closed);
        out_.literal(">\n");
    }
}

void xml_record_writer::abandon_record()
{
    switch (std::exchange(place_, place::content)) {
    case place::content:
        break;
    case place::app_tag:
        out_.literal(" />\n");
        break;
    case place::tag:
        out_.literal(" />\n");
        open_.pop_back();
        break;
    case place::operations:
        out_.literal("</");
        write_tag_name(out_, operations_tag_);
        out_.literal(">\n");
        break;
    }
    close_down_to(0);
}

// Calls `act` for each scalar of a group, until there is no more room.
void xml_record_writer::for_each_scalar(item_span group, auto&& act)
{
    for (std::size_t index = 1; index < group.size() && has_room(); ++index) {
        act(member{group[index], index});
    }
}

// Notes the name that "*" stands for in the record's matching files.
void xml_record_writer::note_record_name(item_span first_group)
{
    record_name_.clear();
    bool is_named = false;
    for_each_scalar(first_group, [&](const member& scalar) {
        if (scalar.item.tag == tag::name && !std::exchange(is_named, true)) {
            record_name_ = text_of(scalar).text;
            uni::replace_char(record_name_, '"', '\'');
        }
    });
}

bool xml_record_writer::write_record(const model::record_groups& groups, std::uint64_t most_text,
                                     model::folded_records& folds)
{
    most_text_ = most_text;
    is_cut_ = false;
    open_.reserve(database_.children().lists().size() + 1);
    note_record_name(groups[0]);
    folding(*this, folds, out_).say(groups);
    const bool is_whole = has_room();
    close_down_to(0);
    return is_whole;
}

void xml_record_writer::say(item_span group, bool nests)
{
    const model::record_item& head = group.front();
    close_down_to(head.depth);
    moved_.clear();
    ++element_;
    uncommon_tags_.clear();
    const auto children = std::ranges::count_if(group, is_child_element, &model::record_item::tag);
    has_tag_children_ = children != 0;
    self_closed_ = !nests && !has_tag_children_;
    open_.push_back({head.depth, head.tag, name_of::tag});
    if (head.tag == tag::inexclude && group.size() > static_cast<std::size_t>(children) + 1) {
        const bool includes =
            std::ranges::find(group, tag::include, &model::record_item::tag) != group.end();
        open_.back().name = includes ? name_of::include : name_of::exclude;
    }
    indent(head.depth);
    out_.character('<');
    write_name(open_.back());
    place_ = place::tag;
    write_attributes(group);
    place_ = place::content;
    if (self_closed_) {
        out_.literal(" />\n");
        open_.pop_back();
    } else {
        out_.literal(">\n");
        write_children(group);
    }
}

void xml_record_writer::write_attributes(item_span group)
{
    const std::uint16_t head_tag = group.front().tag;
    if (has_app_element(head_tag)) {
        write_application(group);
        return;
    }
    const bool escapes = head_tag == tag::matching_file && !record_name_.empty();
    for_each_scalar(group, [&](const member& scalar) {
        if (is_child_element(scalar.item.tag)) {
            return;
        }
        if (head_tag == tag::apphelp) {
            write_apphelp(scalar);
        } else if (head_tag == tag::inexclude && scalar.item.tag == tag::include) {
            return;
        } else if (!is_first_of_its_tag(scalar)) {
            move_to_child(scalar);
        } else if (escapes) {
            write_matching(scalar);
        } else {
            write_general(scalar);
        }
    });
}

// Whether the element in work has no attribute of that tag, or rather of its name, yet; from now on
// it has.
bool xml_record_writer::is_first_of_its_tag(const member& scalar)
{
    const bool shares_name = sdb::tag_type(scalar.item.tag) == type::byte_;
    const std::uint16_t tag = shares_name ? type::byte_ : scalar.item.tag;
    const std::size_t slot = sdb::tag_slot(tag);
    if (slot != sdb::tag_slots - 1) [[likely]] {
        return std::exchange(seen_in_[slot], element_) != element_;
    }
    return uncommon_tags_.insert(tag).second;
}

void xml_record_writer::move_to_child(const member& scalar)
{
    if (moved_.size() <= scalar.index) {
        moved_.resize(scalar.index + 1);
    }
    moved_[scalar.index] = true;
    self_closed_ = false;
}

void xml_record_writer::open_attribute(std::uint16_t tag)
{
    if (!names_.write_attribute(out_, tag)) {
        out_.character(' ');
        write_tag_name(out_, tag);
        out_.literal("=\"");
    }
}

void xml_record_writer::write_pair(std::uint16_t tag, std::string_view value)
{
    out_.room(value.size()); // which is what may fail, before anything is written
    open_attribute(tag);
    out_.text(value);
    out_.character('"');
}

void xml_record_writer::write_general(const member& scalar)
{
    if (is_text(scalar)) {
        write_pair(scalar.item.tag, attribute_text(scalar));
        return;
    }
    open_attribute(scalar.item.tag);
    write_tag_text(out_, database_, scalar.item.tag, scalar.item.offset, style_);
    out_.character('"');
}

// In a matching file values are escaped to plain ASCII, and the name "*" stands for the record's own.
void xml_record_writer::write_matching(const member& scalar)
{
    if (!is_text(scalar)) {
        write_general(scalar);
        return;
    }
    const known_text known = protected_text(scalar);
    if (scalar.item.tag == tag::name && known.text == any_name) {
        write_pair(scalar.item.tag, uni::xml_escape_to_ascii(record_name_));
    } else if (known.plain) {
        write_pair(scalar.item.tag, known.text);
    } else {
        write_pair(scalar.item.tag, uni::xml_escape_to_ascii(known.text));
    }
}

void xml_record_writer::write_apphelp(const member& scalar)
{
    if (scalar.item.tag == tag::langid) {
        return;
    }
    const std::string_view plain = is_text(scalar) ? text_of(scalar).text : value_of(scalar);
    if (plain == zero_dword && scalar.item.tag != tag::problemseverity) {
        return;
    }
    if (!is_first_of_its_tag(scalar)) {
        move_to_child(scalar);
        return;
    }
    const std::string_view value = value_of(scalar);
    if (scalar.item.tag != tag::problemseverity) {
        write_pair(scalar.item.tag, value);
        return;
    }
    const std::uint32_t severity = uni::read_u32_auto(value).value_or(0);
    std::string words;
    if ((severity & 1) != 0) {
        words = softblock_word;
    }
    if ((severity & 2) != 0) {
        words.append(words.empty() ? "" : " ").append(hardblock_word);
    }
    write_pair(scalar.item.tag, words.empty() ? value : words);
}

void xml_record_writer::write_application(item_span group)
{
    bool has_app = false;
    for_each_scalar(group, [&](const member& scalar) {
        if (is_child_element(scalar.item.tag)) {
            return;
        }
        if (moves_to_app_element(scalar.item.tag)) {
            has_app = true;
        } else if (!is_first_of_its_tag(scalar)) {
            move_to_child(scalar);
        } else if (scalar.item.tag == tag::os_platform) {
            const bool wide = value_of(scalar).find('2') != std::string_view::npos;
            write_pair(scalar.item.tag, wide ? win64_word : win32_word);
        } else {
            write_general(scalar);
        }
    });
    if (!has_app) {
        return;
    }
    // The element's tag ends here, and the child's where the caller ends a tag.
    self_closed_ = false;
    out_.text(">\n");
    indent(open_.back().depth + 1u);
    out_.character('<');
    out_.text(app_word);
    place_ = place::app_tag;
    for_each_scalar(group, [&](const member& scalar) {
        if (!moves_to_app_element(scalar.item.tag)) {
            return;
        }
        if (is_first_of_its_tag(scalar)) {
            write_general(scalar);
        } else {
            move_to_child(scalar);
        }
    });
    out_.text(" /");
}

bool xml_record_writer::is_text(const member& scalar) const
{
    const std::uint16_t type_bits = sdb::tag_type(scalar.item.tag);
    return type_bits == type::stringref || type_bits == type::string;
}

// The text of a member that is one.
xml_record_writer::known_text xml_record_writer::text_of(const member& scalar)
{
    aside_.clear();
    bool plain = true;
    const bool is_reference = sdb::tag_type(scalar.item.tag) == type::stringref;
    const std::string_view text = write_stored_text(
        aside_,
        is_reference ? database_.string_bytes(database_.word_behind(scalar.item.offset))
                     : database_.payload_at(scalar.item.offset),
        plain);
    return {text, plain};
}

// The text of a member under the rules for references: one whose text cannot stand in an attribute
// becomes a child.
xml_record_writer::known_text xml_record_writer::protected_text(const member& scalar)
{
    const known_text known = text_of(scalar);
    if (known.plain || sdb::tag_type(scalar.item.tag) != type::stringref) {
        return known;
    }
    const unsigned needs = needs_of(known.text);
    if ((needs & needs_cdata) != 0) {
        move_to_child(scalar);
        return {cdata_word, true};
    }
    if ((needs & needs_single_quote) == 0) {
        return known;
    }
    quoted_ = uni::replace_all(known.text, "\"", "'");
    return {quoted_, false};
}

// The text of a member as an attribute can hold it.
std::string_view xml_record_writer::attribute_text(const member& scalar)
{
    const known_text known = protected_text(scalar);
    if (known.plain || sdb::tag_type(scalar.item.tag) == type::stringref) {
        return known.text;
    }
    quoted_ = uni::xml_escape(known.text);
    return quoted_;
}

// The value of any member as an attribute can hold it; good until the next is made.
std::string_view xml_record_writer::value_of(const member& scalar)
{
    if (is_text(scalar)) {
        return attribute_text(scalar);
    }
    aside_.clear();
    write_tag_text(aside_, database_, scalar.item.tag, scalar.item.offset, style_);
    return aside_.view();
}

void xml_record_writer::write_children(item_span group)
{
    if (!moved_.empty()) {
        for_each_scalar(group, [&](const member& scalar) {
            if (scalar.index < moved_.size() && moved_[scalar.index]) {
                write_moved(scalar);
            }
        });
    }
    if (has_tag_children_) {
        for_each_scalar(group, [&](const member& scalar) {
            if (is_child_element(scalar.item.tag)) {
                write_child(scalar);
            }
        });
    }
}

// What could be no attribute, since it holds markup or is not the first of its tag.
void xml_record_writer::write_moved(const member& scalar)
{
    const bool has_markup = sdb::tag_type(scalar.item.tag) == type::stringref &&
                            (needs_of(text_of(scalar).text) & needs_cdata) != 0;
    has_markup ? write_cdata_child(scalar) : write_child(scalar);
}

// A tag as an element with the value as its one attribute, named after the type.
void xml_record_writer::write_child(const member& scalar)
{
    const model::record_item& item = scalar.item;
    std::string text;
    if (is_text(scalar)) {
        text = uni::xml_escape(uni::replace_all(text_of(scalar).text, "\"", "'"));
        out_.room(text.size());
    }
    indent(item.depth);
    out_.character('<');
    write_tag_name(out_, item.tag);
    if (item.tag == tag::patch_bits) {
        write_patch_children(item);
        return;
    }
    out_.character(' ');
    out_.text(sdb::known_type_name(sdb::tag_type(item.tag)));
    out_.literal("=\"");
    if (is_text(scalar)) {
        out_.text(text);
    } else {
        write_tag_text(out_, database_, item.tag, item.offset, style_);
    }
    out_.literal("\" />\n");
}

// What stands behind the name of an element of patch operations.
void xml_record_writer::write_patch_children(const model::record_item& item)
{
    out_.literal(">\n");
    place_ = place::operations;
    operations_tag_ = item.tag;
    const uni::byte_view value = database_.payload_at(item.offset);
    sdb::patch_shares shares(value);
    sdb::for_each_patch_op(value, [&](const sdb::patch_op& op, std::uint64_t position) {
        indent(item.depth + 1u);
        write_patch_element(out_, op, shares.take(op, position));
        out_.line_end();
        return has_room();
    });
    place_ = place::content;
    indent(item.depth);
    out_.literal("</");
    write_tag_name(out_, item.tag);
    out_.literal(">\n");
}

void xml_record_writer::write_cdata_child(const member& scalar)
{
    const std::string_view stored = text_of(scalar).text;
    const bool on_own_line = stored.size() >= long_cdata;
    const std::string text = uni::replace_all(stored, "]]>", "]]]]><![CDATA[>");
    out_.room(text.size());
    indent(scalar.item.depth);
    out_.character('<');
    write_tag_name(out_, scalar.item.tag);
    out_.text(">\n");
    indent(scalar.item.depth + 1u);
    out_.text("<![CDATA[");
    if (on_own_line) {
        out_.line_end();
        indent(scalar.item.depth + 2u);
    }
    out_.text(text);
    if (on_own_line) {
        out_.line_end();
        indent(scalar.item.depth + 1u);
    }
    out_.text("]]>\n");
    indent(scalar.item.depth);
    out_.text("</");
    write_tag_name(out_, scalar.item.tag);
    out_.text(">\n");
}

} // namespace form
