#include "report/xml_framing.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "report/tag_line.h"
#include "report/tag_text.h"
#include "sdb/tags.h"
#include "sdb/vocabulary.h"
#include "uni/numbers.h"
#include "uni/text.h"
#include "uni/utf.h"

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
constexpr char cdata_word[] = "CDATA";
constexpr std::string_view any_name = "*";
constexpr std::string_view zero_dword = "0x00000000";
// Text of that many bytes stands on a line of its own inside its CDATA.
constexpr std::size_t long_cdata = 80;

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

// The beginning of an attribute, as in ` name="`, for every known tag, in slots of one size that
// are copied whole.
struct xml_record_writer::attribute_openings {
    static constexpr std::size_t slot_size = 48;
    struct slot {
        char text[slot_size];
        std::uint64_t length;
        std::uint64_t unused; // makes the size a power of two
    };
    std::array<slot, sdb::tag_slots> slots{};

    attribute_openings()
    {
        for (std::size_t place = 0; place + 1 < sdb::tag_slots; ++place) {
            const std::uint16_t tag = sdb::tag_of_slot(place);
            const std::string_view name = sdb::known_tag_name(tag);
            if (name.empty() || name.size() > slot_size - 4) {
                continue;
            }
            slot& opening = slots[sdb::tag_slot(tag)];
            opening.text[0] = ' ';
            name.copy(opening.text + 1, name.size());
            opening.text[name.size() + 1] = '=';
            opening.text[name.size() + 2] = '"';
            opening.length = name.size() + 3;
        }
    }
};

const xml_record_writer::attribute_openings& xml_record_writer::openings()
{
    static const attribute_openings table;
    return table;
}

xml_record_writer::xml_record_writer(uni::text_buffer& out, const sdb::sdb_database& database,
                                     const front::sdb_opts& options)
    : out_(out), database_(database), options_(options), openings_(openings()), texts_(database)
{}

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
    const attribute_openings::slot& opening = openings_.slots[sdb::tag_slot(tag)];
    if (!name.empty()) {
        out_.text(name);
    } else if (opening.length == 0) {
        write_tag_name(out_, tag);
    } else {
        // The blank in front and what stands behind the name are left out.
        char* const out = out_.room(attribute_openings::slot_size);
        std::memcpy(out, opening.text + 1, attribute_openings::slot_size - 1);
        out_.taken(out + opening.length - 3);
    }
}

void xml_record_writer::close_down_to(std::uint16_t depth)
{
    while (!open_.empty() && open_.back().depth >= depth) {
        const open_element closed = open_.back();
        open_.pop_back();
        out_.blanks(closed.depth);
        out_.literal("</");
        write_name(closed.tag, closed.name);
        out_.literal(">\n");
    }
}

void xml_record_writer::collect_entries(const record_groups& groups)
{
    std::size_t count = 0;
    for (std::size_t group = 0; group < groups.size(); ++group) {
        count += groups[group].size();
    }
    entries_.resize(count);
    references_.resize(count);
    entry* next = entries_.data();
    std::size_t references = 0;
    std::size_t children = 0;
    for (std::size_t group = 0; group < groups.size(); ++group) {
        for (const record_item& item : groups[group]) {
            next->item = item;
            children += is_child_element(item.tag) ? 1 : 0;
            references_[references] = next;
            references += sdb::tag_type(item.tag) == type::stringref ? 1 : 0;
            ++next;
        }
    }
    record_has_children_ = children != 0;
    texts_.begin_record();
    for (std::size_t i = 0; i < references; ++i) {
        entry& one = *references_[i];
        one.text = texts_.look_up(database_.word_behind(one.item.offset));
    }
}

void xml_record_writer::write_record(const record_groups& groups)
{
    collect_entries(groups);
    entries rest = entries_;
    for (std::size_t group = 0; group < groups.size(); ++group) {
        const std::size_t count = groups[group].size();
        const bool has_nested =
            rest.size() > count && rest[count].item.depth > rest.front().item.depth;
        write_group(rest.first(count), has_nested);
        rest = rest.subspan(count);
    }
    close_down_to(0);
}

void xml_record_writer::write_group(entries group, bool has_nested)
{
    const record_item& head = group.front().item;
    close_down_to(head.depth);
    cdata_children_.clear();
    const auto children =
        !record_has_children_ ? 0 : std::ranges::count_if(group, [](const entry& one) {
            return is_child_element(one.item.tag);
        });
    has_tag_children_ = children != 0;
    self_closed_ = !has_nested && !has_tag_children_;
    open_.push_back({head.depth, head.tag, {}});
    if (head.tag == tag::inexclude && group.size() > static_cast<std::size_t>(children) + 1) {
        const bool includes = std::ranges::any_of(
            group, [](const entry& one) { return one.item.tag == tag::include; });
        open_.back().name = includes ? include_word : exclude_word;
    }
    out_.blanks(head.depth);
    out_.character('<');
    write_name(head.tag, open_.back().name);
    write_attributes(group);
    if (self_closed_) {
        out_.literal(" />\n");
        open_.pop_back();
    } else {
        out_.literal(">\n");
        write_children(group.subspan(1));
    }
}

void xml_record_writer::write_attributes(entries group)
{
    const std::uint16_t head_tag = group.front().item.tag;
    const entries scalars = group.subspan(1);
    if (has_app_element(head_tag)) {
        write_application(scalars);
        return;
    }
    const bool escapes = head_tag == tag::matching_file && !options_.record_name.empty();
    for (const entry& scalar : scalars) {
        if (is_child_element(scalar.item.tag)) {
            continue;
        }
        if (escapes) {
            write_matching(scalar);
        } else if (head_tag == tag::apphelp) {
            write_apphelp(scalar);
        } else if (head_tag != tag::inexclude || scalar.item.tag != tag::include) {
            write_general(scalar);
        }
    }
}

void xml_record_writer::open_attribute(std::uint16_t tag)
{
    const attribute_openings::slot& opening = openings_.slots[sdb::tag_slot(tag)];
    if (opening.length == 0) {
        out_.character(' ');
        write_tag_name(out_, tag);
        out_.literal("=\"");
        return;
    }
    char* const out = out_.room(attribute_openings::slot_size);
    std::memcpy(out, opening.text, attribute_openings::slot_size);
    out_.taken(out + opening.length);
}

void xml_record_writer::write_pair(std::uint16_t tag, std::string_view value)
{
    open_attribute(tag);
    out_.text(value);
    out_.character('"');
}

void xml_record_writer::write_general(const entry& scalar)
{
    open_attribute(scalar.item.tag);
    bool plain = true;
    write_value(out_, scalar, plain);
    out_.character('"');
}

// In a matching file values are escaped, and the name "*" stands for the record's own.
void xml_record_writer::write_matching(const entry& scalar)
{
    open_attribute(scalar.item.tag);
    bool plain = true;
    const std::string_view value = write_value(out_, scalar, plain);
    const bool is_own_name = scalar.item.tag == tag::name && value == any_name;
    if (is_own_name || !plain) {
        const std::string escaped =
            uni::xml_escape(is_own_name ? std::string_view(options_.record_name) : value);
        out_.take_back(value.size());
        out_.text(escaped);
    }
    out_.character('"');
}

void xml_record_writer::write_apphelp(const entry& scalar)
{
    if (scalar.item.tag == tag::langid) {
        return;
    }
    const std::string_view value = value_aside(scalar);
    if (scalar.item.tag != tag::problemseverity) {
        if (value != zero_dword) {
            write_pair(scalar.item.tag, value);
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
    write_pair(scalar.item.tag, words.empty() ? value : words);
}

void xml_record_writer::write_application(entries scalars)
{
    bool has_app = false;
    for (const entry& scalar : scalars) {
        if (is_child_element(scalar.item.tag)) {
            continue;
        }
        if (moves_to_app_element(scalar.item.tag)) {
            has_app = true;
        } else if (scalar.item.tag == tag::os_platform) {
            const bool wide = value_aside(scalar).find('2') != std::string_view::npos;
            write_pair(scalar.item.tag, wide ? win64_word : win32_word);
        } else {
            write_general(scalar);
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
    for (const entry& scalar : scalars) {
        if (moves_to_app_element(scalar.item.tag)) {
            write_general(scalar);
        }
    }
    out_.text(" /");
}

// Gives what was written of a value that is text, and whether that is plain; other values are.
std::string_view xml_record_writer::write_value(uni::text_buffer& out, const entry& scalar,
                                                bool& plain)
{
    const std::uint16_t type_bits = sdb::tag_type(scalar.item.tag);
    if (type_bits == type::stringref) {
        const std::string_view text = write_reference(out, scalar, plain);
        return plain ? text : protect_reference(out, scalar, text);
    }
    if (type_bits == type::string) {
        return write_stored_text(out, database_.payload_at(scalar.item.offset), plain);
    }
    write_tag_text(out, database_, scalar.item.tag, scalar.item.offset, options_);
    return {};
}

std::string_view xml_record_writer::write_reference(uni::text_buffer& out, const entry& scalar,
                                                    bool& plain)
{
    if (!scalar.text.is_kept) {
        return write_stored_text(out, database_.string_bytes(scalar.text.reference), plain);
    }
    const std::string_view text = texts_.text(scalar.text);
    const char* const start = out.room(text.size());
    out.text(text);
    plain = scalar.text.plain;
    return {start, text.size()};
}

// Puts what stands for it in the place of text that no attribute can hold as it is.
std::string_view xml_record_writer::protect_reference(uni::text_buffer& out, const entry& scalar,
                                                      std::string_view text)
{
    const unsigned needs = needs_of(text);
    if ((needs & needs_cdata) != 0) {
        out.take_back(text.size());
        out.literal(cdata_word);
        cdata_children_.push_back(&scalar);
        self_closed_ = false;
        return {};
    }
    if ((needs & needs_single_quote) == 0) {
        return text;
    }
    const std::string quoted = uni::replace_all(text, "\"", "'");
    out.take_back(text.size());
    out.text(quoted);
    return out.view().substr(out.view().size() - quoted.size());
}

std::string_view xml_record_writer::value_aside(const entry& scalar)
{
    aside_.clear();
    bool plain = true;
    write_value(aside_, scalar, plain);
    return aside_.view();
}

void xml_record_writer::write_children(entries scalars)
{
    // In the order of the group, though an <app> element's come later.
    std::ranges::sort(cdata_children_);
    for (const entry* const scalar : cdata_children_) {
        write_cdata_child(*scalar);
    }
    if (!has_tag_children_) {
        return;
    }
    for (const entry& scalar : scalars) {
        if (is_child_element(scalar.item.tag)) {
            print_tag_element(out_, database_, options_, scalar.item);
        }
    }
}

void xml_record_writer::write_cdata_child(const entry& scalar)
{
    aside_.clear();
    bool plain = false;
    const std::string_view text = write_reference(aside_, scalar, plain);
    const bool on_own_line = text.size() >= long_cdata;
    out_.blanks(scalar.item.depth);
    out_.character('<');
    write_tag_name(out_, scalar.item.tag);
    out_.text(">\n");
    out_.blanks(scalar.item.depth + 1u);
    out_.text("<![CDATA[");
    if (on_own_line) {
        out_.line_end();
        out_.blanks(scalar.item.depth + 2u);
    }
    out_.text(text);
    if (on_own_line) {
        out_.line_end();
        out_.blanks(scalar.item.depth + 1u);
    }
    out_.text("]]>\n");
    out_.blanks(scalar.item.depth);
    out_.text("</");
    write_tag_name(out_, scalar.item.tag);
    out_.text(">\n");
}

} // namespace report
