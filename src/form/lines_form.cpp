#include "form/lines_form.h"

#include <algorithm>
#include <memory>

#include "form/fields.h"
#include "form/folding.h"
#include "form/screen.h"
#include "form/tag_text.h"
#include "form/value_text.h"
#include "form/with_fields.h"
#include "sdb/patch_op.h"
#include "sdb/tags.h"
#include "sdb/vocabulary.h"
#include "uni/marks.h"
#include "uni/text.h"
#include "uni/text_targets.h"

namespace form {

namespace {

constexpr std::size_t tag_name_columns = 30;
constexpr std::size_t type_name_columns = 10;
constexpr std::size_t count_columns = 5;
constexpr std::string_view no_list_size = "     ";
constexpr std::string_view record_rule = "-------------------- ";
constexpr std::string_view utc_mark = " [UTC]";
constexpr std::size_t rule_length = 75;

void write_padded_name(uni::text_buffer& out, std::uint16_t tag)
{
    const std::string_view known = sdb::known_tag_name(tag);
    if (known.empty()) {
        out.left(sdb::tag_name(tag), tag_name_columns);
    } else {
        out.left(known, tag_name_columns);
    }
}

void write_tag_count(uni::text_buffer& out, const tag_count& counted)
{
    out.literal("tag 0x");
    out.hex(counted.tag, 4);
    out.literal(": ");
    out.right(std::to_string(counted.number), count_columns);
    out.text(counted.number > 1 ? " items" : " item");
}

} // namespace

bool lines_form::write_record(const model::record_groups& groups)
{
    out_.text(style_.safe_csv ? "'" : "");
    const bool paints = has_colors();
    out_.text(paints ? shade::heading : "");
    out_.text(record_rule);
    out_.character('[');
    out_.text(marked_path_);
    out_.character(']');
    out_.text(paints ? shade::end : "");
    out_.line_end();
    is_whole_ = true;
    folding(*this, folds(), out_).say(groups);
    if (is_whole_) {
        out_.line_end();
    }
    return is_whole_;
}

bool lines_form::has_room_for(const model::folded_record& folded) const noexcept
{
    return out_.total() + folded.text.size() <= most_in_record();
}

void lines_form::say(std::span<const model::record_item> items, bool)
{
    for (const model::record_item& item : items) {
        is_whole_ = is_whole_ && out_.good() && out_.total() <= most_in_record();
        if (!is_whole_) {
            return;
        }
        if (columns() == 0) {
            write_tag_line(out_, item);
        } else {
            write_wrapped_tag_line(item);
        }
    }
    out_.line_end();
}

void lines_form::write_wrapped_tag_line(const model::record_item& item)
{
    constexpr std::size_t hanging = 4;
    uni::text_buffer lines;
    write_tag_line(lines, item);
    for (std::string_view left = lines.view(); !left.empty();) {
        const std::size_t end = left.find('\n');
        write_wrapped(out_, left.substr(0, end), 0, hanging, columns());
        out_.line_end();
        left.remove_prefix(end + 1);
    }
}

// The fields, parted by the separator: depth (left out when 0), offset in 6 hexadecimal digits, tag
// in 4, a list's size in 5 or as many blanks, the tag's name in 30 columns, its type's in 10, and
// the value of what is neither a list nor a patch value. A patch value shows as one empty line for
// each of its operations, one at least.
void lines_form::write_tag_line(uni::text_buffer& out, const model::record_item& item)
{
    const std::string_view separator = style_.csv_separator;
    write_depth(out, item.depth);
    out.hex_min(item.offset, 6);
    out.text(separator);
    out.hex(item.tag, 4);
    out.text(separator);
    if (is_list(item)) {
        out.hex_min(database().word_behind(item.offset), 5);
    } else {
        out.text(no_list_size);
    }
    out.text(separator);
    write_padded_name(out, item.tag);
    out.text(separator);
    out.left(sdb::known_type_name(sdb::tag_type(item.tag)), type_name_columns);
    if (item.tag == sdb::tag::patch_bits) {
        write_patch_lines(out, item, database());
    } else if (!is_list(item)) {
        out.text(separator);
        if (style_.safe_csv) {
            write_safe_value(out, stored_value{item.offset}, style_, document_.database);
        } else {
            write_tag_text(out, database(), item.tag, item.offset, style_);
        }
    }
    out.line_end();
}

// The first depth of a stream is decimal, all others hexadecimal: readers of these lines know them
// so.
void lines_form::write_depth(uni::text_buffer& out, std::uint16_t depth)
{
    if (depth != 0) {
        if (state_.depths_in_hexadecimal) {
            out.hex_min(depth, 1);
        } else {
            out.decimal(depth);
        }
        out.text(style_.csv_separator);
    }
    state_.depths_in_hexadecimal = true;
}

void lines_form::write_patch_lines(uni::text_buffer& out, const model::record_item& item,
                                   const sdb::sdb_database& database)
{
    std::size_t operations = 0;
    sdb::for_each_patch_op(database.payload_at(item.offset),
                           [&](const sdb::patch_op&, std::uint64_t) {
                               ++operations;
                               return true;
                           });
    for (std::size_t line = 0; line < std::max<std::size_t>(operations, 1); ++line) {
        out.line_end();
    }
}

void lines_form::write_line_text(uni::text_buffer& out, const labelled_line& line,
                                 const sdb::sdb_database* database) const
{
    if (const tag_count* const counted = std::get_if<tag_count>(&line.shown)) {
        write_tag_count(out, *counted);
    } else {
        write_safe_value(out, line.shown, style_, database);
        out.text(std::holds_alternative<moment>(line.shown) ? utc_mark : std::string_view());
    }
}

// The remark does not count for the width, which the values alone settle.
void lines_form::write_remarked_text(uni::text_buffer& out, const labelled_line& line,
                                     const sdb::sdb_database* database) const
{
    write_line_text(out, line, database);
    if (line.remark) {
        out.text(" [" + moment_text(*line.remark, style_).joined() + " UTC]");
    }
}

bool lines_form::heading(std::string_view text)
{
    write_in(out_, shade::heading, uni::marked(text), has_colors());
    out_.line_end();
    return goes_on();
}

bool lines_form::row(std::string_view kind, std::span<const cell> cells)
{
    if (columns() == 0) {
        return writer::row(kind, cells);
    }
    constexpr std::size_t hanging = 4;
    uni::text_buffer text;
    lines_form whole(text, style_, state_);
    whole.document_ = document_;
    whole.writer::row(kind, cells);
    write_wrapped(out_, text.view().substr(0, text.view().size() - 1), 0, hanging, columns());
    out_.line_end();
    return goes_on();
}

bool lines_form::line(std::string_view text)
{
    return say_line(text, {});
}

bool lines_form::title(std::string_view text)
{
    return say_line(text, shade::heading);
}

// What stands below the first line of a row has no colour of its own.
bool lines_form::entry_row(std::string_view, std::span<const cell> cells,
                           std::span<const std::string> lines)
{
    const auto weighs = [cells](emphasis one) {
        return std::ranges::any_of(cells, [one](const cell& of) { return of.weighs == one; });
    };
    std::string_view begin = weighs(emphasis::high)     ? shade::high
                             : weighs(emphasis::medium) ? shade::medium
                                                        : std::string_view();
    for (const std::string& text : lines) {
        say_line(text, begin);
        begin = {};
    }
    return goes_on();
}

bool lines_form::say_line(std::string_view text, std::string_view shade_begin)
{
    const bool paints = has_colors() && !shade_begin.empty();
    if (!paints && columns() == 0) {
        return writer::line(text);
    }
    const std::string shown = uni::marked(safe_text(std::string(text), style_));
    out_.text(paints ? shade_begin : "");
    if (columns() == 0) {
        out_.text(shown);
    } else {
        write_fitting(shown, shade_begin == shade::heading);
    }
    out_.text(paints ? shade::end : "");
    out_.line_end();
    return goes_on();
}

// A line as the screen has room for it. The second column of a table, and what stands below it, begins in
// the first third.
void lines_form::write_fitting(std::string_view text, bool is_title)
{
    constexpr std::size_t hanging = 4;
    constexpr std::size_t least_gap = 2;
    const std::size_t column = columns() / 3;
    const std::size_t lead = std::min(text.find_first_not_of(' '), text.size());
    const std::size_t name_end = std::min(text.find("  ", lead), text.size());
    const std::size_t second = std::min(text.find_first_not_of(' ', name_end), text.size());
    const std::size_t name_columns = uni::columns_of(text.substr(0, name_end));
    if (is_title && lead == 0 && second > column && second < text.size() &&
        name_columns <= 2 * column) {
        const std::size_t begin = std::max(column, name_columns + least_gap);
        out_.text(text.substr(0, name_end));
        out_.blanks(begin - name_columns);
        write_wrapped(out_, text.substr(second), begin, column, columns());
        return;
    }
    const bool is_below_second = lead > column;
    const std::size_t begin = is_below_second ? column : lead;
    out_.blanks(begin);
    write_wrapped(out_, text.substr(lead), begin, is_below_second ? begin : begin + hanging,
                  columns());
}

bool lines_form::subject(const entry& facts)
{
    const labelled_lines shape = facts.lines();
    std::uint64_t value_width = shape.pads_values ? shape.narrowest_value : 0;
    for (const labelled_line& line : shape.lines) {
        if (line.sets_width && shape.pads_values) {
            uni::text_counter counted;
            write_line_text(counted, line, database_of(facts));
            value_width = std::max(value_width, counted.total());
        }
    }
    for (const labelled_line& line : shape.lines) {
        out_.left(line.label, shape.label_width);
        out_.text(style_.csv_separator);
        if (columns() == 0) {
            const std::uint64_t end = out_.total() + value_width;
            write_remarked_text(out_, line, database_of(facts));
            out_.blanks(end - std::min(end, out_.total()));
        } else {
            uni::text_buffer text;
            write_remarked_text(text, line, database_of(facts));
            const std::size_t begin = shape.label_width + style_.csv_separator.size();
            write_wrapped(out_, text.view(), begin, begin, columns());
        }
        out_.line_end();
    }
    return goes_on();
}

bool lines_form::separate()
{
    const std::size_t length = columns() == 0 ? rule_length : std::min(rule_length, columns());
    return note(safe_text(std::string(length, '-'), style_));
}

std::unique_ptr<writer> lines_form::make_fork(uni::text_buffer& out) const
{
    return std::make_unique<lines_form>(out, style_, state_);
}

// Operations are only counted in this form, by lines without a text.
std::optional<std::string> lines_form::patch_text(const sdb::patch_op&) const
{
    return std::string();
}

namespace {

// The same lines, and rows of several cells whose fields are quoted where they must be.
class general_form : public with_fields<lines_form> {
public:
    using with_fields::with_fields;

private:
    bool is_for_people() const noexcept override { return false; }
    std::unique_ptr<writer> make_fork(uni::text_buffer& out) const override
    {
        return std::make_unique<general_form>(out, style_, state_);
    }
};

} // namespace

std::unique_ptr<writer> make_general_form(uni::text_buffer& out, const request::cmd_params& style,
                                          stream_state state)
{
    return std::make_unique<general_form>(out, style, state);
}

std::unique_ptr<writer> make_lines_form(uni::text_buffer& out, const request::cmd_params& style,
                                        stream_state state)
{
    return std::make_unique<lines_form>(out, style, state);
}

} // namespace form
