#pragma once

#include <cstddef>

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
    void make_room(std::size_t count) final
    {
        constexpr std::size_t longest = 0x200000;
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
