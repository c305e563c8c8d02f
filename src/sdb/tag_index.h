#pragma once

#include <bit>
#include <cstdint>
#include <optional>
#include <vector>

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
            count += static_cast<std::uint32_t>(std::popcount(words_[i]));
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
            return counts_.back() + static_cast<std::uint32_t>(std::popcount(words_.back()));
        }
        const std::uint64_t below = (std::uint64_t{1} << (offset % 64)) - 1;
        const auto word = static_cast<std::size_t>(offset / 64);
        return counts_[word] + static_cast<std::uint32_t>(std::popcount(words_[word] & below));
    }
    std::optional<std::uint32_t> ordinal_of(std::uint64_t offset) const noexcept
    {
        return contains(offset) ? std::optional(count_below(offset)) : std::nullopt;
    }

private:
    std::vector<std::uint64_t> words_;
    std::vector<std::uint32_t> counts_;
};

} // namespace sdb
