#include <memory>

#include "form/fields.h"
#include "form/lines_form.h"
#include "form/value_text.h"

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
};

// The columns behind date and time.
struct timeline_column {
    std::string_view head;
    std::string (*text)(const row_source& from);
};
constexpr timeline_column columns[] = {
    {"timezone", [](const row_source&) { return std::string(time_zone); }},
    {"MACB", [](const row_source& from) { return from.row.macb; }},
    {"source", [](const row_source& from) { return std::string(from.item.source); }},
    {"sourcetype", [](const row_source& from) { return std::string(from.item.source_type); }},
    {"type", [](const row_source& from) { return from.row.meaning; }},
    {"user", [](const row_source& from) { return from.style.username; }},
    {"host", [](const row_source& from) { return from.style.hostname; }},
    {"short", [](const row_source& from) { return field_text(from.item.short_text, from.style); }},
    {"desc", [](const row_source& from) { return field_text(from.item.description, from.style); }},
    {"version", [](const row_source&) { return std::string(row_version); }},
    {"filename",
     [](const row_source& from) { return field_text(from.item.file_name, from.style); }},
    {"inode", [](const row_source&) { return std::string(); }},
    {"notes", [](const row_source& from) { return field_text(from.item.notes, from.style); }},
    {"format",
     [](const row_source& from) { return from.style.program_name + std::string(program_mark); }},
    {"extra", [](const row_source& from) { return field_text(from.item.extra, from.style); }},
};

void write_head(uni::text_buffer& out, const request::cmd_params& style)
{
    out.text("date");
    out.text(style.pair_datetime ? std::string_view("/") : style.csv_separator);
    out.text("time");
    for (const timeline_column& column : columns) {
        out.text(style.csv_separator);
        out.text(column.head);
    }
    out.line_end();
}

void write_moment_columns(uni::text_buffer& out, const timeline_row& row,
                          const request::cmd_params& style)
{
    const std::string_view pad = style.no_whitespace ? "" : " ";
    const moment_text text({row.moment.filetime, uni::time_kind::filetime}, style);
    if (style.pair_datetime) {
        out.text(pad);
        out.text(text.date);
        out.character(' ');
    } else {
        out.text(text.date);
        out.text(style.csv_separator);
        out.text(pad);
    }
    out.text(text.time);
}

// The rows of an item, under one head for the whole stream.
bool write_timeline(uni::text_buffer& out, const timeline_item& item,
                    const request::cmd_params& style, stream_state& state)
{
    if (!state.head_stands) {
        write_head(out, style);
        state.head_stands = true;
    }
    for (const timeline_row& row : expand_stamps(item.stamps)) {
        write_moment_columns(out, row, style);
        for (const timeline_column& column : columns) {
            out.text(style.csv_separator);
            out.text(column.text({item, row, style}));
        }
        out.line_end();
    }
    return out.good();
}

// A row for each moment; what has no events is not said, nor are records.
class timeline_form : public writer {
public:
    using writer::writer;

    bool record(const model::record_groups&) override { return goes_on(); }
    bool subject(const entry& facts) override
    {
        const std::optional<timeline_item> events = facts.events();
        return events ? write_timeline(out_, *events, style_, state_) : goes_on();
    }

private:
    std::unique_ptr<writer> make_fork(uni::text_buffer& out) const override
    {
        return std::make_unique<timeline_form>(out, style_, state_);
    }
    std::optional<std::string> patch_text(const sdb::sdb_tag_item&) const override
    {
        return std::nullopt;
    }
};

// A row for each moment, and lines for what has no events.
class bodyfile_form : public lines_form {
public:
    using lines_form::lines_form;

    bool subject(const entry& facts) override
    {
        const std::optional<timeline_item> events = facts.events();
        return events ? write_timeline(out_, *events, style_, state_) : lines_form::subject(facts);
    }
};

} // namespace

std::unique_ptr<writer> make_timeline_form(uni::text_buffer& out, const request::cmd_params& style,
                                           stream_state state)
{
    return std::make_unique<timeline_form>(out, style, state);
}

std::unique_ptr<writer> make_bodyfile_form(uni::text_buffer& out, const request::cmd_params& style,
                                           stream_state state)
{
    return std::make_unique<bodyfile_form>(out, style, state);
}

} // namespace form
