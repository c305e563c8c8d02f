#include "form/xml_records.h"

#include <algorithm>
#include <array>
#include <utility>

#include "form/folding.h"
#include "form/tag_text.h"
#include "sdb/tags.h"
#include "sdb/vocabulary.h"
#include "uni/marks.h"
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

// What stands in the place of a character; nothing where it stays.
std::string_view replacement(char c, replacing what, std::array<char, 3>& room)
{
    const bool is_printable = (c >= 0x20 && c <= 0x7e) || c == '\r' || c == '\n';
    const bool to_ascii =
        what == replacing::markup_to_ascii || what == replacing::quotes_and_markup_to_ascii;
    if (to_ascii && !is_printable) {
        room[0] = '%';
        uni::put_hex(room.data() + 1, static_cast<unsigned char>(c), 2);
        return {room.data(), room.size()};
    }
    if (c == '"' && what != replacing::markup && what != replacing::markup_to_ascii) {
        return "'";
    }
    return what == replacing::quotes ? std::string_view() : uni::xml_entity(c);
}

void write_replaced(uni::text_buffer& out, std::string_view text, replacing what)
{
    std::array<char, 3> room;
    std::size_t done = 0;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (const std::string_view other = replacement(text[at], what, room); !other.empty()) {
            out.text(text.substr(done, at - done));
            out.text(other);
            done = at + 1;
        }
    }
    out.text(text.substr(done));
}

// What ends a CDATA ends its first half and stands behind the beginning of the second. Marks end in what
// may begin one.
void write_cdata(uni::text_buffer& out, std::string_view text)
{
    unsigned brackets = 0;
    uni::marked_pieces pieces(text);
    for (std::string_view piece = pieces.next(); !piece.empty(); piece = pieces.next()) {
        std::size_t done = 0;
        for (std::size_t at = 0; at < piece.size(); ++at) {
            if (piece[at] == '>' && brackets >= 2) {
                out.text(piece.substr(done, at - done));
                out.literal("]]><![CDATA[");
                done = at;
            }
            brackets = piece[at] == ']' ? brackets + 1 : 0;
        }
        out.text(piece.substr(done));
    }
}

void write_text(uni::text_buffer& out, const protected_text& shown)
{
    if (shown.plain) {
        out.long_text(shown.text);
        return;
    }
    uni::marked_pieces pieces(shown.text);
    for (std::string_view piece = pieces.next(); !piece.empty(); piece = pieces.next()) {
        if (shown.what == replacing::nothing) {
            out.text(piece);
        } else {
            write_replaced(out, piece, shown.what);
        }
    }
}

} // namespace

void write_patch_element(uni::text_buffer& out, const sdb::patch_op& op, bool is_bare)
{
    uni::text_buffer aside;
    bool plain = false;
    const std::string_view name = stored_text(aside, op.module_name, plain);
    out.text("<op module=\"");
    write_text(out, {name, plain, replacing::markup});
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

void xml_record_writer::write_pair(std::uint16_t tag, const protected_text& shown)
{
    open_attribute(tag);
    write_text(out_, shown);
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
    protected_text shown = reference_text(scalar);
    if (scalar.item.tag == tag::name && shown.text == any_name) {
        shown = {record_name_, false, replacing::quotes};
    }
    shown.what = shown.what == replacing::quotes ? replacing::quotes_and_markup_to_ascii
                                                 : replacing::markup_to_ascii;
    write_pair(scalar.item.tag, shown);
}

void xml_record_writer::write_apphelp(const member& scalar)
{
    if (scalar.item.tag == tag::langid) {
        return;
    }
    const bool is_severity = scalar.item.tag == tag::problemseverity;
    const std::string_view plain = is_text(scalar) ? text_of(scalar).text : number_of(scalar);
    if (plain == zero_dword && !is_severity) {
        return;
    }
    if (!is_first_of_its_tag(scalar)) {
        move_to_child(scalar);
    } else if (!is_severity) {
        write_general(scalar);
    } else {
        write_severity(plain);
    }
}

void xml_record_writer::write_severity(std::string_view number)
{
    const std::uint32_t severity = uni::read_u32_auto(number).value_or(0);
    std::string words;
    if ((severity & 1) != 0) {
        words = softblock_word;
    }
    if ((severity & 2) != 0) {
        words.append(words.empty() ? "" : " ").append(hardblock_word);
    }
    write_pair(tag::problemseverity, {words.empty() ? number : words, true});
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
            const bool wide = number_of(scalar).find('2') != std::string_view::npos;
            write_pair(scalar.item.tag, {wide ? win64_word : win32_word, true});
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
    bool plain = true;
    const bool is_reference = sdb::tag_type(scalar.item.tag) == type::stringref;
    const std::string_view text =
        stored_text(aside_,
                    is_reference ? database_.string_bytes(database_.word_behind(scalar.item.offset))
                                 : database_.payload_at(scalar.item.offset),
                    plain);
    return {text, plain};
}

// The text of a member under the rules for references: one whose text cannot stand in an attribute
// becomes a child.
protected_text xml_record_writer::reference_text(const member& scalar)
{
    const known_text known = text_of(scalar);
    protected_text shown{known.text, known.plain};
    if (known.plain || sdb::tag_type(scalar.item.tag) != type::stringref) {
        return shown;
    }
    const unsigned needs = needs_of(known.text);
    if ((needs & needs_cdata) != 0) {
        move_to_child(scalar);
        return {cdata_word, true};
    }
    if ((needs & needs_single_quote) != 0) {
        shown.what = replacing::quotes;
    }
    return shown;
}

// The text of a member as an attribute can hold it.
protected_text xml_record_writer::attribute_text(const member& scalar)
{
    protected_text shown = reference_text(scalar);
    if (sdb::tag_type(scalar.item.tag) != type::stringref) {
        shown.what = replacing::markup;
    }
    return shown;
}

// The text of a member that is a number; good until the next is made.
std::string_view xml_record_writer::number_of(const member& scalar)
{
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
    const known_text known = is_text(scalar) ? text_of(scalar) : known_text{};
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
        write_text(out_, {known.text, known.plain, replacing::quotes_and_markup});
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
    const std::string_view text = text_of(scalar).text;
    // Marks make it no shorter.
    const bool on_own_line = text.size() >= long_cdata || uni::marked(text).size() >= long_cdata;
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
    write_cdata(out_, text);
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
