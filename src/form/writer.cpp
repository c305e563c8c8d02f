#include "form/writer.h"

#include <utility>

#include "form/fields.h"
#include "form/tag_text.h"
#include "sdb/tags.h"
#include "sdb/vocabulary.h"
#include "uni/marks.h"

namespace form {

bool writer::begin(document about)
{
    document_ = std::move(about);
    marked_path_ = uni::marked(document_.path);
    const request::bounds& bounds = style_.bounds;
    most_text_ = out_.total() + bounds.most_text(document_.database->image().size());
    most_in_record_ = most_text_ + bounds.last_record_text;
    is_cut_ = false;
    begin_document();
    return goes_on();
}

bool writer::record(const model::record_groups& groups)
{
    ++records_;
    const bool is_whole = write_record(groups);
    is_cut_ = is_cut_ || (!is_whole && out_.good());
    return goes_on();
}

bool writer::end_section()
{
    out_.line_end();
    return goes_on();
}

bool writer::note(std::string_view text)
{
    out_.text(uni::marked(text));
    out_.line_end();
    return goes_on();
}

bool writer::heading(std::string_view text)
{
    return note(text);
}

bool writer::failure(std::string_view path, std::string_view reason, const told_facts* known)
{
    ++failures_;
    write_failure(path, reason, known);
    return goes_on();
}

bool writer::row(std::string_view, std::span<const cell> cells)
{
    bool is_first = true;
    for (const cell& one : cells) {
        if (one.is_named_only) {
            continue;
        }
        if (!is_first) {
            out_.text(style_.csv_separator);
        }
        is_first = false;
        write_safe_value(out_, one.shown, style_, document_.database);
    }
    out_.line_end();
    return goes_on();
}

bool writer::line(std::string_view text)
{
    if (style_.safe_csv || uni::needs_marks(text)) {
        return note(safe_text(std::string(text), style_));
    }
    out_.text(text);
    out_.line_end();
    return goes_on();
}

bool writer::entry_row(std::string_view, std::span<const cell>, std::span<const std::string> lines)
{
    for (const std::string& text : lines) {
        line(text);
    }
    return goes_on();
}

void writer::aside(uni::text_buffer& console, std::string_view line)
{
    console.text(line);
    console.line_end();
}

std::optional<std::string> writer::tag_text(std::uint32_t offset, std::size_t longest) const
{
    const std::uint16_t tag = database().tag_from(offset);
    if (tag == sdb::tag::patch_bits) {
        sdb::patch_op first;
        if (!sdb::decode_patch_op(first, database().payload_at(offset), 0)) {
            return std::nullopt;
        }
        first.data = first.data.slice(0, longest);
        return patch_text(first);
    }
    return comparable_text(database(), offset, longest, style_);
}

std::unique_ptr<writer> writer::fork(uni::text_buffer& out) const
{
    std::unique_ptr<writer> made = make_fork(out);
    made->document_ = document_;
    made->marked_path_ = marked_path_;
    return made;
}

void writer::take(std::string_view text, std::uint64_t records, stream_state state)
{
    out_.long_text(text);
    records_ += records;
    state_ = state;
}

} // namespace form
