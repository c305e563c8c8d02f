#pragma once

#include <cstddef>
#include <string_view>

#include "uni/text_buffer.h"

namespace report {

// Keeps a text up to some length; a longer one is of no use and is not made to its end.
class bounded_text : public uni::text_buffer {
public:
    // Gives what was written since, and begins anew.
    void hand_over(uni::text_buffer& made)
    {
        swap(made);
        clear();
        overflowed_ = false;
    }
    bool good() const noexcept final { return !overflowed_; }

private:
    static constexpr std::size_t longest = 0x200000;

    void pass_text(std::string_view text) final
    {
        if (view().size() + text.size() > longest) {
            overflowed_ = true;
            clear();
        } else {
            text_buffer::pass_text(text);
        }
    }
    void make_room(std::size_t count) final
    {
        if (view().size() + count > longest) {
            overflowed_ = true;
            clear();
        }
        if (capacity() - view().size() < count) {
            grow(count);
        }
    }

    bool overflowed_ = false;
};

} // namespace report
