#pragma once

#include <compare>
#include <cstdint>

namespace sdb {

// The place of a recorded tag in the order of the file, counted from 0. Not to be taken for an
// offset, which is the place of a tag's first byte in the image.
class tag_ordinal {
public:
    constexpr tag_ordinal() noexcept = default;
    constexpr explicit tag_ordinal(std::uint32_t number) noexcept : number_(number) {}

    constexpr std::uint32_t number() const noexcept { return number_; }
    constexpr tag_ordinal next() const noexcept { return tag_ordinal(number_ + 1); }
    constexpr tag_ordinal& operator++() noexcept
    {
        ++number_;
        return *this;
    }
    friend constexpr std::strong_ordering operator<=>(tag_ordinal a, tag_ordinal b) noexcept
    {
        return a.number_ <=> b.number_;
    }
    friend constexpr bool operator==(tag_ordinal, tag_ordinal) noexcept = default;
    // How many tags lie from one to the other.
    friend constexpr std::uint32_t operator-(tag_ordinal a, tag_ordinal b) noexcept
    {
        return a.number_ - b.number_;
    }

private:
    std::uint32_t number_ = 0;
};

} // namespace sdb
