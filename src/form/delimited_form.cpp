#include <memory>

#include "form/value_text.h"
#include "form/with_fields.h"
#include "form/writer.h"

namespace form {

namespace {

// A row for each subject, under one head for the whole stream. Records are not said in this form.
class delimited_form : public with_fields<writer> {
public:
    delimited_form(uni::text_buffer& out, const request::cmd_params& style, stream_state state)
        : with_fields(out, style, state), lead_(style.pad_separator ? " " : "")
    {}

    bool subject(const entry& facts) override
    {
        const std::vector<column> columns = facts.columns();
        if (!state_.head_stands) {
            for (const column& one : columns) {
                write_cell(one.head, one.leads_head, one.width);
                end_cell(&one == &columns.back());
            }
            state_.head_stands = true;
        }
        for (const column& one : columns) {
            write_value_cell(one, database_of(facts));
            end_cell(&one == &columns.back());
        }
        return goes_on();
    }

private:
    void write_value_cell(const column& one, const sdb::sdb_database* database)
    {
        const std::size_t width = one.is_padded ? one.width : 0;
        const moment* const stamp = std::get_if<moment>(&one.shown);
        if (stamp == nullptr || one.part == column_part::whole) {
            write_cell(field_text(value_text(one.shown, style_, database), style_), one.leads_value,
                       width);
            return;
        }
        const moment_text text(*stamp, style_);
        if (one.is_blank_if_empty && text.date.empty()) {
            write_cell(" ", false, width);
        } else {
            write_cell(field_text(one.part == column_part::date ? text.date : text.time, style_),
                       one.leads_value, width);
        }
    }

    void write_cell(std::string_view text, bool leads, std::size_t width)
    {
        write_field(out_, text, style_.csv_separator, style_.no_whitespace ? 0 : width,
                    leads ? lead_ : std::string_view());
    }

    void end_cell(bool is_last)
    {
        if (is_last) {
            out_.line_end();
        } else {
            out_.text(style_.csv_separator);
        }
    }

    bool write_record(const model::record_groups&) override { return true; }
    std::unique_ptr<writer> make_fork(uni::text_buffer& out) const override
    {
        return std::make_unique<delimited_form>(out, style_, state_);
    }
    std::optional<std::string> patch_text(const sdb::patch_op&) const override
    {
        return std::nullopt;
    }

    std::string_view lead_;
};

} // namespace

std::unique_ptr<writer> make_delimited_form(uni::text_buffer& out, const request::cmd_params& style,
                                            stream_state state)
{
    return std::make_unique<delimited_form>(out, style, state);
}

} // namespace form
