#pragma once

#include <span>
#include <string_view>

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
        write_heading(this->out_, text, this->style_);
        return this->goes_on();
    }
    bool row(std::string_view, std::span<const cell> cells) override
    {
        write_fields(this->out_, cells, this->style_, this->document_.database);
        return this->goes_on();
    }
    bool line(std::string_view) override { return this->goes_on(); }
    bool shows_lines() const override { return false; }
    bool entry_row(std::string_view kind, std::span<const cell> cells,
                   std::span<const std::string>) override
    {
        if (!this->state_.head_stands) {
            write_names(this->out_, cells, this->style_);
            this->state_.head_stands = true;
        }
        return row(kind, cells);
    }
};

} // namespace form
