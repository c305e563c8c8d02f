#include <memory>

#include "form/tag_text.h"
#include "form/value_text.h"
#include "form/with_fields.h"
#include "form/writer.h"

namespace form {

namespace {

constexpr std::string_view time_zone = "UTC";
constexpr std::string_view row_version = "2";
constexpr std::string_view program_mark = " (morvane)";

// What the rows of an item show; `row` is the one in work.
struct row_source {
    const timeline_item& item;
    const timeline_row& row;
    const request::cmd_params& style;
    std::string_view program;
};

// The columns behind date and time.
struct timeline_column {
    std::string_view head;
    std::string_view (*text)(const row_source& from);
};
constexpr timeline_column columns[] = {
    {"timezone", [](const row_source&) { return time_zone; }},
    {"MACB", [](const row_source& from) -> std::string_view { return from.row.macb; }},
    {"source", [](const row_source& from) { return from.item.source; }},
    {"sourcetype", [](const row_source& from) { return from.item.source_type; }},
    {"type", [](const row_source& from) -> std::string_view { return from.row.meaning; }},
    {"user", [](const row_source& from) -> std::string_view { return from.style.username; }},
    {"host", [](const row_source& from) -> std::string_view { return from.style.hostname; }},
    {"short", [](const row_source& from) -> std::string_view { return from.item.short_text; }},
    {"desc", [](const row_source& from) -> std::string_view { return from.item.description; }},
    {"version", [](const row_source&) { return row_version; }},
    {"filename", [](const row_source& from) -> std::string_view { return from.item.file_name; }},
    {"inode", [](const row_source&) { return std::string_view(); }},
    {"notes", [](const row_source& from) -> std::string_view { return from.item.notes; }},
    {"format", [](const row_source& from) { return from.program; }},
    {"extra", [](const row_source& from) -> std::string_view { return from.item.extra; }},
};

// A row for each moment, under one head for the whole stream; what has no events is not said, nor are
// records.
class timeline_form : public with_fields<writer> {
public:
    using with_fields::with_fields;

    bool subject(const entry& facts) override
    {
        const std::optional<timeline_item> events = facts.events();
        if (!events) {
            return goes_on();
        }
        if (!state_.head_stands) {
            write_head();
            state_.head_stands = true;
        }
        const std::string program = style_.program_name + std::string(program_mark);
        for (const timeline_row& row : expand_stamps(events->stamps)) {
            write_moment_columns(row);
            for (const timeline_column& column : columns) {
                out_.text(style_.csv_separator);
                const std::string_view text = column.text({*events, row, style_, program});
                field(field_text(marked_text(text, style_), style_));
            }
            out_.line_end();
        }
        return goes_on();
    }

private:
    void field(std::string_view text) { write_field(out_, text, style_.csv_separator); }

    void write_head()
    {
        if (style_.pair_datetime) {
            field("date/time");
        } else {
            field("date");
            out_.text(style_.csv_separator);
            field("time");
        }
        for (const timeline_column& column : columns) {
            out_.text(style_.csv_separator);
            field(column.head);
        }
        out_.line_end();
    }

    // A blank stands in front of what pairs them, otherwise in front of the time.
    void write_moment_columns(const timeline_row& row)
    {
        const bool is_padded = !style_.no_whitespace && !style_.quoted_csv_fields;
        const std::string_view lead = is_padded ? " " : "";
        const moment_text text({row.moment.filetime, uni::time_kind::filetime}, style_);
        if (style_.pair_datetime) {
            write_field(out_, text.joined(), style_.csv_separator, 0, lead);
            return;
        }
        field(text.date);
        out_.text(style_.csv_separator);
        write_field(out_, text.time, style_.csv_separator, 0, lead);
    }

    bool write_record(const model::record_groups&) override { return true; }
    std::unique_ptr<writer> make_fork(uni::text_buffer& out) const override
    {
        return std::make_unique<timeline_form>(out, style_, state_);
    }
    std::optional<std::string> patch_text(const sdb::patch_op&) const override
    {
        return std::nullopt;
    }
};

} // namespace

std::unique_ptr<writer> make_timeline_form(uni::text_buffer& out, const request::cmd_params& style,
                                           stream_state state)
{
    return std::make_unique<timeline_form>(out, style, state);
}

} // namespace form
