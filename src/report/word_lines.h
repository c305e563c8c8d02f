#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "uni/text_buffer.h"

namespace report {

// Lines that stand one behind the other in one piece of memory, which the next lines use again: records are
// many, and most have a few short ones.
class word_lines {
public:
    void clear()
    {
        text_.clear();
        ends_.clear();
    }
    // Where the line in work is written, at its end.
    uni::text_buffer& text() { return text_; }
    void end_line() { ends_.push_back(text_.view().size()); }
    void add(std::string_view line)
    {
        text_.text(line);
        end_line();
    }

    std::size_t size() const noexcept { return ends_.size(); }
    std::string_view operator[](std::size_t place) const
    {
        const std::size_t begin = place == 0 ? 0 : ends_[place - 1];
        return text_.view().substr(begin, ends_[place] - begin);
    }

private:
    uni::text_buffer text_;
    std::vector<std::size_t> ends_;
};

} // namespace report
