#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

#include "uni/text_buffer.h"

// Where text may go besides a buffer of its own.
namespace uni {

// Hands text on in blocks.
class text_in_blocks : public text_buffer {
protected:
    ~text_in_blocks() override = default;
    virtual void take(std::string_view block) = 0;

    void hand_on()
    {
        take(view());
        note_handed_on(view().size());
        clear();
    }

private:
    void pass_text(std::string_view text) final
    {
        hand_on();
        take(text);
        note_handed_on(text.size());
    }
    void make_room(std::size_t count) final
    {
        constexpr std::size_t block = 0x1000;
        hand_on();
        if (capacity() < count) {
            grow(std::max(count, block));
        }
    }
};

// Only counts what is written: total() tells how much that is.
class text_counter final : public text_in_blocks {
    void take(std::string_view) override {}
};

// Appends what is written to a string, all of it once finish() was called.
class string_text final : public text_in_blocks {
public:
    explicit string_text(std::string& to) : to_(to) {}
    void finish() { hand_on(); }

private:
    void take(std::string_view block) override { to_ += block; }

    std::string& to_;
};

} // namespace uni
