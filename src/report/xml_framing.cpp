#include "report/xml_framing.h"

#include <algorithm>
#include <array>

#include "report/tag_line.h"
#include "report/tag_text.h"
#include "sdb/tags.h"
#include "sdb/vocabulary.h"
#include "uni/numbers.h"
#include "uni/text.h"

namespace report {

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

// What a byte of text calls for.
enum byte_need : std::uint8_t { needs_cdata = 1, needs_single_quote = 2, needs_escape = 4 };

constexpr std::array<std::uint8_t, 256> byte_needs = [] {
    std::array<std::uint8_t, 256> needs{};
    for (std::size_t byte = 0; byte < needs.size(); ++byte) {
        const bool line_end = byte == '\r' || byte == '\n';
        if ((byte < 0x20 || byte > 0x7e) && !line_end) {
            needs[byte] = needs_escape;
        }
    }
    needs['<'] = needs['>'] = needs['&'] = needs_cdata | needs_escape;
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

void write_xml_prologue(uni::text_buffer& out, const front::sdb_opts& options)
{
    out.text("<shimdb>\n");
    std::vector<std::string> lines = uni::split(options.header_info_text, '\n', false);
    if (lines.empty()) {
        return;
    }
    out.text(" <header>\n");
    for (std::string& line : lines) {
        uni::remove_char(line, '"');
        out.text("  <meta info=\"");
        out.text(line);
        out.text("\" />\n");
    }
    out.text("  <meta file=\"");
    out.text(options.current_path);
    out.text("\" />\n </header>\n");
}

void write_xml_closing(uni::text_buffer& out)
{
    out.text("</shimdb>\n");
}

void xml_record_writer::write_name(std::uint16_t tag, std::string_view name)
{
    if (name.empty()) {
        write_tag_name(out_, tag);
    } else {
        out_.text(name);
    }
}

void xml_record_writer::close_down_to(std::uint16_t depth)
{
    while (!open_.empty() && open_.back().depth >= depth) {
        const open_element closed = open_.back();
        open_.pop_back();
        out_.blanks(closed.depth);
        out_.text("</");
        write_name(closed.tag, closed.name);
        out_.text(">\n");
    }
}

void xml_record_writer::write_group(std::span<const record_item> group, bool has_nested)
{
    const record_item& head = group.front();
    close_down_to(head.depth);
    cdata_children_.clear();
    has_tag_children_ = std::ranges::any_of(
        group.subspan(1), [](const record_item& item) { return is_child_element(item.tag); });
    self_closed_ = !has_nested && !has_tag_children_;
    open_.push_back({head.depth, head.tag, {}});
    write_head(group);
    out_.text(self_closed_ ? " />\n" : ">\n");
    write_children(group.subspan(1));
    if (self_closed_) {
        open_.pop_back();
    }
}

// Writes the element's name and attributes, up to what closes its tag.
void xml_record_writer::write_head(std::span<const record_item> group)
{
    const record_item& head = group.front();
    const std::span<const record_item> scalars = group.subspan(1);
    const bool has_attributes = std::ranges::any_of(
        scalars, [](const record_item& item) { return !is_child_element(item.tag); });
    if (head.tag == tag::inexclude && has_attributes) {
        const bool includes = std::ranges::any_of(
            scalars, [](const record_item& item) { return item.tag == tag::include; });
        open_.back().name = includes ? include_word : exclude_word;
    }
    out_.blanks(head.depth);
    out_.character('<');
    write_name(head.tag, open_.back().name);
    write_attributes(group);
}

void xml_record_writer::write_attributes(std::span<const record_item> group)
{
    const std::uint16_t head_tag = group.front().tag;
    const std::span<const record_item> scalars = group.subspan(1);
    if (has_app_element(head_tag)) {
        write_application(scalars);
        return;
    }
    const bool escapes = head_tag == tag::matching_file && !options_.record_name.empty();
    for (const record_item& item : scalars) {
        if (is_child_element(item.tag)) {
            continue;
        }
        if (escapes) {
            write_matching(item);
        } else if (head_tag == tag::apphelp) {
            write_apphelp(item);
        } else if (head_tag != tag::inexclude || item.tag != tag::include) {
            write_general(item);
        }
    }
}

void xml_record_writer::write_pair(std::uint16_t tag, std::string_view value)
{
    out_.character(' ');
    write_tag_name(out_, tag);
    out_.text("=\"");
    out_.text(value);
    out_.character('"');
}

void xml_record_writer::write_general(const record_item& item)
{
    out_.character(' ');
    write_tag_name(out_, item.tag);
    out_.text("=\"");
    write_value(out_, item);
    out_.character('"');
}

// In a matching file values are escaped, and the name "*" stands for the record's own.
void xml_record_writer::write_matching(const record_item& item)
{
    const std::uint16_t type_bits = sdb::tag_type(item.tag);
    if (type_bits != type::stringref && type_bits != type::string) {
        write_general(item);
        return;
    }
    const std::string_view value = value_aside(item);
    const bool is_own_name = item.tag == tag::name && value == any_name;
    if (is_own_name || (needs_of(value) & needs_escape) != 0) {
        write_pair(item.tag, uni::xml_escape(is_own_name ? options_.record_name : value));
    } else {
        write_pair(item.tag, value);
    }
}

void xml_record_writer::write_apphelp(const record_item& item)
{
    if (item.tag == tag::langid) {
        return;
    }
    const std::string_view value = value_aside(item);
    if (item.tag != tag::problemseverity) {
        if (value != zero_dword) {
            write_pair(item.tag, value);
        }
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
    write_pair(item.tag, words.empty() ? value : words);
}

void xml_record_writer::write_application(std::span<const record_item> scalars)
{
    bool has_app = false;
    for (const record_item& item : scalars) {
        if (is_child_element(item.tag)) {
            continue;
        }
        if (moves_to_app_element(item.tag)) {
            has_app = true;
        } else if (item.tag == tag::os_platform) {
            const bool wide = value_aside(item).find('2') != std::string_view::npos;
            write_pair(item.tag, wide ? win64_word : win32_word);
        } else {
            write_general(item);
        }
    }
    if (!has_app) {
        return;
    }
    // The element's tag ends here, and what closes it stands on the child's line: so an element
    // without children ends in a doubled " /" and has no closing tag. Meant.
    out_.text(">\n");
    out_.blanks(open_.back().depth + 1u);
    out_.character('<');
    out_.text(app_word);
    for (const record_item& item : scalars) {
        if (moves_to_app_element(item.tag)) {
            write_general(item);
        }
    }
    out_.text(" /");
}

void xml_record_writer::write_value(uni::text_buffer& out, const record_item& item)
{
    const sdb::sdb_tag_item decoded = database_.item_at(item.ordinal);
    if (sdb::tag_type(item.tag) == type::stringref) {
        write_reference_value(out, item, database_.string_bytes(decoded.size));
    } else {
        write_tag_text(out, database_, decoded, options_);
    }
}

void xml_record_writer::write_reference_value(uni::text_buffer& out, const record_item& item,
                                              uni::byte_view stored)
{
    // With the room taken beforehand the text stays where it is written and can be changed there.
    char* const start = out.room(static_cast<std::size_t>(stored.size()) / 2 * 3);
    const std::string_view text = write_stored_text(out, stored);
    const unsigned needs = needs_of(text);
    if ((needs & needs_cdata) != 0) {
        out.taken(start);
        out.text(cdata_word);
        cdata_children_.push_back(&item);
        self_closed_ = false;
    } else if ((needs & needs_single_quote) != 0) {
        std::replace(start, start + text.size(), '"', '\'');
    }
}

std::string_view xml_record_writer::value_aside(const record_item& item)
{
    aside_.clear();
    write_value(aside_, item);
    return aside_.view();
}

void xml_record_writer::write_children(std::span<const record_item> scalars)
{
    // In the order of the group, though an <app> element's come later.
    std::ranges::sort(cdata_children_);
    for (const record_item* const item : cdata_children_) {
        write_cdata_child(*item);
    }
    if (!has_tag_children_) {
        return;
    }
    for (const record_item& item : scalars) {
        if (is_child_element(item.tag)) {
            print_tag_element(out_, database_, options_, item);
        }
    }
}

void xml_record_writer::write_cdata_child(const record_item& item)
{
    aside_.clear();
    const sdb::sdb_tag_item decoded = database_.item_at(item.ordinal);
    const std::string_view text = write_stored_text(aside_, database_.string_bytes(decoded.size));
    const bool on_own_line = text.size() >= long_cdata;
    out_.blanks(item.depth);
    out_.character('<');
    write_tag_name(out_, item.tag);
    out_.text(">\n");
    out_.blanks(item.depth + 1u);
    out_.text("<![CDATA[");
    if (on_own_line) {
        out_.line_end();
        out_.blanks(item.depth + 2u);
    }
    out_.text(text);
    if (on_own_line) {
        out_.line_end();
        out_.blanks(item.depth + 1u);
    }
    out_.text("]]>\n");
    out_.blanks(item.depth);
    out_.text("</");
    write_tag_name(out_, item.tag);
    out_.text(">\n");
}

} // namespace report
