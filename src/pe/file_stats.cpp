#include "pe/file_stats.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace pe {

namespace {

constexpr std::size_t byte_values = 256;
using byte_counts = std::array<std::uint64_t, byte_values>;

// Four tables, since counting runs of one byte value in one table waits for each count in turn.
class byte_counter {
public:
    void add(std::span<const std::uint8_t> bytes)
    {
        std::size_t i = 0;
        for (; i + 4 <= bytes.size(); i += 4) {
            for (std::size_t lane = 0; lane < 4; ++lane) {
                ++lanes_[lane][bytes[i + lane]];
            }
        }
        for (; i < bytes.size(); ++i) {
            ++lanes_[0][bytes[i]];
        }
    }
    byte_counts total() const
    {
        byte_counts counts{};
        for (const byte_counts& lane : lanes_) {
            std::transform(counts.begin(), counts.end(), lane.begin(), counts.begin(),
                           std::plus<>());
        }
        return counts;
    }

private:
    std::array<byte_counts, 4> lanes_{};
};

double log2_of(double value)
{
    return std::log(value) / std::log(2.0);
}

void fill_moments(STATS& stats, const byte_counts& counts, double length)
{
    // Whole numbers below 2^53, so that their order of summing does not show.
    double sum = 0;
    double squares = 0;
    for (std::size_t value = 0; value < byte_values; ++value) {
        const auto count = static_cast<double>(counts[value]);
        sum += count * static_cast<double>(value);
        squares += count * static_cast<double>(value * value);
    }
    stats.mean = sum / length;
    stats.variance = squares / length - stats.mean * stats.mean;
    stats.std_dev = std::sqrt(stats.variance);
}

void fill_extremes_and_entropy(STATS& stats, double length)
{
    stats.min_count = 0xffff; // the most that it can tell: meant
    double bits = 0;
    for (std::uint32_t value = 0; value < byte_values; ++value) {
        const std::uint32_t count = stats.histogram[value];
        if (count < stats.min_count) {
            stats.min_count = count;
            stats.min_byte = value;
        }
        if (count > stats.max_count) {
            stats.max_count = count;
            stats.max_byte = value;
        }
        if (count != 0) {
            const double share = count / length;
            bits -= share * log2_of(share);
        }
    }
    stats.entropy = bits / log2_of(byte_values);
}

} // namespace

bool is_high_entropy(const STATS& stats)
{
    const double spread = (double{1} * stats.max_count - stats.min_count) / stats.max_count * 100;
    return stats.mean >= 120.0 && stats.mean <= 130.0 && stats.std_dev >= 65.0 &&
           stats.entropy >= 0.987 && spread <= 40.0;
}

bool FILE_STATS::read_at(std::span<std::uint8_t> buffer, std::uint64_t offset)
{
    return !buffer.empty() && file_valid() && contains(offset, buffer.size()) &&
           source_->read(buffer, offset) == buffer.size();
}

bool FILE_STATS::read_into(io::byte_vector& bytes, std::uint64_t length, std::uint64_t offset)
{
    bytes.clear();
    if (!file_valid() || !contains(offset, length)) {
        return false;
    }
    bytes.resize(static_cast<std::size_t>(length));
    if (length == 0 || source_->read(bytes, offset) == length) {
        return true;
    }
    bytes.clear();
    return false;
}

uni::byte_view FILE_STATS::peek(std::uint64_t offset, std::uint64_t length)
{
    if (length == 0 || length > block_size || !file_valid() || !contains(offset, length)) {
        return {};
    }
    if (offset < block_offset_ ||
        !uni::byte_view(block_).contains(offset - block_offset_, length)) {
        const std::uint64_t whole_block = offset / block_size * block_size;
        block_offset_ = offset + length <= whole_block + block_size ? whole_block : offset;
        block_.resize(static_cast<std::size_t>(std::min(block_size, size() - block_offset_)));
        block_.resize(source_->read(block_, block_offset_));
    }
    const uni::byte_view found = uni::byte_view(block_).slice(offset - block_offset_, length);
    return found.size() == length ? found : uni::byte_view();
}

bool FILE_STATS::compute_stats(std::uint64_t offset, std::uint64_t length, STATS& stats)
{
    stats = {};
    if (length == 0 || !file_valid() || !contains(offset, length)) {
        return false;
    }
    byte_counter counter;
    io::byte_vector block;
    for (std::uint64_t done = 0; done < length; done += block.size()) {
        const std::uint64_t wanted = std::min(block_size, length - done);
        block.resize(static_cast<std::size_t>(wanted));
        block.resize(source_->read(block, offset + done));
        if (block.empty()) {
            break;
        }
        counter.add(block);
    }
    const byte_counts counts = counter.total();
    for (const std::uint64_t count : counts) {
        stats.histogram.push_back(static_cast<std::uint32_t>(count));
    }
    // The length asked for, whatever could be read: meant.
    fill_moments(stats, counts, static_cast<double>(length));
    fill_extremes_and_entropy(stats, static_cast<double>(length));
    return true;
}

const STATS* FILE_STATS::whole_file_stats()
{
    if (!stats_valid_) {
        stats_valid_ = compute_stats(0, size(), *this);
    }
    return *stats_valid_ ? this : nullptr;
}

} // namespace pe
