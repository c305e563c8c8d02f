#pragma once

#include <algorithm>
#include <cstdint>

#include "hive/hive_image.h"

namespace hive {

// Bytes that may still be taken: some by each list or key in any case, further ones by each as long
// as all of them together leave any.
class allowance {
public:
    allowance(std::uint64_t granted, std::uint64_t each, std::uint64_t all) noexcept
        : granted_(granted), each_(each), all_left_(all)
    {
        renew();
    }

    void renew() noexcept // for the next list or key
    {
        granted_left_ = granted_;
        each_left_ = each_;
    }
    void exhaust() noexcept { each_left_ = 0; }
    std::uint64_t left() const noexcept { return std::min(each_left_, all_left_); }
    bool take(std::uint64_t bytes) noexcept
    {
        const bool is_granted = bytes <= granted_left_;
        if (!is_granted && bytes > left()) {
            return false; // what needs less may still have it
        }
        granted_left_ -= is_granted ? bytes : 0;
        each_left_ -= is_granted ? 0 : bytes;
        all_left_ -= is_granted ? 0 : bytes;
        return true;
    }

private:
    std::uint64_t granted_;
    std::uint64_t each_;
    std::uint64_t granted_left_ = 0;
    std::uint64_t each_left_ = 0;
    std::uint64_t all_left_;
};

// An image for each list or key, eight for all.
inline allowance shares_of(const hive_image& image, std::uint64_t granted)
{
    constexpr std::uint64_t least_share = 0x10000;
    constexpr std::uint64_t shares = 8;
    const std::uint64_t share = image.size() + least_share;
    return {granted, share, shares * share};
}

} // namespace hive
