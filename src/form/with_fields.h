#pragma once

#include <span>
#include <string_view>
#include <type_traits>

#include "form/fields.h"
#include "form/writer.h"

namespace form {

// A writer whose rows, and the headings above them, are made of fields that every reader of RFC 4180
// takes apart again.
template <typename base>
class with_fields : public base {
public:
    using base::base;

    bool heading(std::string_view text) override
    {
        has_said_any_ = true;
        write_heading(this->out_, text, this->style_);
        return this->goes_on();
    }
    bool row(std::string_view, std::span<const cell> cells) override
    {
        has_said_any_ = true;
        write_fields(this->out_, cells, this->style_, this->document_.database);
        return this->goes_on();
    }
    bool line(std::string_view) override { return this->goes_on(); }
    bool shows_lines() const override { return false; }
    bool title(std::string_view) override { return this->goes_on(); }
    bool table_head(std::span<const cell> cells) override
    {
        if (!this->state_.head_stands) {
            has_said_any_ = true;
            write_names(this->out_, cells, this->style_);
            this->state_.head_stands = true;
        }
        return this->goes_on();
    }
    bool entry_row(std::string_view kind, std::span<const cell> cells,
                   std::span<const std::string>) override
    {
        table_head(cells);
        return row(kind, cells);
    }
    // Without a run header the first line is the head of the table: no blank one stands in for records that
    // the form does not say.
    bool end_section() override
    {
        const bool is_nothing =
            std::is_same_v<base, writer> && this->style_.no_header && !has_said_any_;
        return is_nothing ? this->goes_on() : base::end_section();
    }

private:
    bool has_said_any_ = false;
};

} // namespace form
