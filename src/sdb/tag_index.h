#pragma once

#include <cstdint>
#include <optional>

#include "io/large_vector.h"
#include "sdb/tag_ordinal.h"

namespace sdb {

// Which offsets of an image hold a recorded tag, and each one's ordinal: one bit a byte of image
// and one running count for 64 of them. Filled in ascending order by the scan; looking an offset up
// takes the same short time in every image.
class tag_index {
public:
    void reset(std::uint64_t image_size)
    {
        words_.assign(static_cast<std::size_t>(image_size / 64 + 1), 0);
        counts_.clear();
    }
    void clear() noexcept
    {
        words_.clear();
        counts_.clear();
    }
    void add(std::uint32_t offset) noexcept
    {
        words_[offset / 64] |= std::uint64_t{1} << (offset % 64);
    }
    // To be called once, when all offsets are in.
    void finish()
    {
        counts_.resize(words_.size());
        std::uint32_t count = 0;
        for (std::size_t i = 0; i < words_.size(); ++i) {
            counts_[i] = count;
            count += count_bits(words_[i]);
        }
    }

    bool contains(std::uint64_t offset) const noexcept
    {
        return offset / 64 < words_.size() && ((words_[offset / 64] >> (offset % 64)) & 1) != 0;
    }
    // The number of recorded tags whose offset lies below `offset`.
    std::uint32_t count_below(std::uint64_t offset) const noexcept
    {
        if (words_.empty()) {
            return 0;
        }
        if (offset / 64 >= words_.size()) {
            return counts_.back() + count_bits(words_.back());
        }
        const std::uint64_t below = (std::uint64_t{1} << (offset % 64)) - 1;
        const auto word = static_cast<std::size_t>(offset / 64);
        return counts_[word] + count_bits(words_[word] & below);
    }
    std::optional<tag_ordinal> ordinal_of(std::uint64_t offset) const noexcept
    {
        return contains(offset) ? std::optional(tag_ordinal(count_below(offset))) : std::nullopt;
    }

    // How many bits are set. Written out, since a build for any processor calls a slow routine for std::popcount.
    static constexpr std::uint32_t count_bits(std::uint64_t word) noexcept
    {
        word -= (word >> 1) & 0x5555555555555555;
        word = (word & 0x3333333333333333) + ((word >> 2) & 0x3333333333333333);
        word = (word + (word >> 4)) & 0x0f0f0f0f0f0f0f0f;
        return static_cast<std::uint32_t>((word * 0x0101010101010101) >> 56);
    }

private:
    io::large_vector<std::uint64_t> words_;
    io::large_vector<std::uint32_t> counts_;
};

} // namespace sdb
