#include "model/packed_bytes.h"

#include <algorithm>
#include <array>
#include <bitset>
#include <cmath>
#include <numeric>

namespace model {

namespace {

constexpr double high_entropy = 7.2;         // bits a byte
constexpr std::uint64_t shortest = 256;      // bytes
constexpr std::uint64_t longest_short = 512; // beyond it what is random has far more
constexpr std::uint64_t step_of_short = 32;
constexpr std::array<std::uint64_t, 4> long_ones = {768, 1024, 4096, 16384};
constexpr std::size_t fewest_values = 148; // 2 to the 7.2 is 147.03
constexpr std::uint64_t block = 128;       // for which its values are kept
constexpr double unit = 1 << 20;           // of the sums, which are whole numbers

using value_set = std::bitset<256>;

// n times the logarithm of n, for as many as a window has.
class weighted_logarithms {
public:
    weighted_logarithms()
    {
        for (std::size_t n = 1; n < table_.size(); ++n) {
            const auto number = static_cast<double>(n);
            table_[n] = std::llround(number * std::log2(number) * unit);
        }
    }
    std::int64_t operator[](std::size_t n) const { return table_[n]; }

private:
    std::array<std::int64_t, long_ones.back() + 1> table_{};
};

// Holds every window of one length that begins in a stretch against the bound: as it moves on by a byte, two
// counts change.
std::optional<std::uint64_t> find_window(uni::byte_view bytes, std::uint64_t begin,
                                         std::uint64_t end, std::uint64_t length,
                                         const weighted_logarithms& logarithms)
{
    end = std::min(end, bytes.size() - length + 1);
    if (begin >= end) {
        return std::nullopt;
    }
    const auto size = static_cast<double>(length);
    // The entropy times the length is n log n less the sum of all c log c.
    const std::int64_t most = std::llround((std::log2(size) - high_entropy) * size * unit);
    std::array<std::uint32_t, 256> counts{};
    std::int64_t sum = 0;
    const auto add = [&](std::uint8_t value) {
        std::uint32_t& count = counts[value];
        sum += logarithms[count + 1] - logarithms[count];
        ++count;
    };
    for (std::uint64_t at = begin; at < begin + length; ++at) {
        add(bytes.u8(at));
    }
    for (std::uint64_t at = begin; sum > most; ++at) {
        if (at + 1 == end) {
            return std::nullopt;
        }
        std::uint32_t& count = counts[bytes.u8(at)];
        sum += logarithms[count - 1] - logarithms[count];
        --count;
        add(bytes.u8(at + length));
        begin = at + 1;
    }
    return begin;
}

double entropy_of(uni::byte_view bytes)
{
    std::array<std::uint64_t, 256> counts{};
    for (const std::uint8_t byte : bytes.bytes()) {
        ++counts[byte];
    }
    const auto all = static_cast<double>(bytes.size());
    double bits = 0;
    for (const std::uint64_t count : counts) {
        if (count != 0) {
            const double share = static_cast<double>(count) / all;
            bits -= share * std::log2(share);
        }
    }
    return bits;
}

bool has_enough_values(uni::byte_view bytes)
{
    constexpr std::uint64_t at_a_time = 1024;
    std::array<std::uint8_t, 256> seen{};
    for (std::uint64_t at = 0; at < bytes.size(); at += at_a_time) {
        const uni::byte_view some = bytes.slice(at, std::min(at_a_time, bytes.size() - at));
        for (const std::uint8_t byte : some.bytes()) {
            seen[byte] = 1;
        }
        if (std::accumulate(seen.begin(), seen.end(), std::size_t{0}) >= fewest_values) {
            return true;
        }
    }
    return false;
}

// The places from which short windows may have enough different values, in stretches of blocks.
template <typename taker>
bool for_each_rich_stretch(uni::byte_view bytes, taker&& take)
{
    constexpr std::uint64_t longest_stretch = 4096; // so that what is packed is soon found
    constexpr std::size_t blocks = longest_short / block + 1; // that a window may touch
    std::array<value_set, blocks> values;                     // of those from the block in work on
    const auto values_from = [bytes](std::uint64_t at) {
        value_set made;
        for (const std::uint8_t byte :
             bytes.slice(at, std::min(block, bytes.size() - at)).bytes()) {
            made[byte] = true;
        }
        return made;
    };
    if (bytes.size() <= blocks * block) { // all of which are known to have enough
        return take(0, bytes.size());
    }
    for (std::size_t i = 0; i + 1 < blocks; ++i) {
        values[i] = i * block < bytes.size() ? values_from(i * block) : value_set();
    }
    std::uint64_t begin = 0; // of the stretch in work
    bool is_in_stretch = false;
    std::uint64_t at = 0;
    for (std::size_t i = blocks - 1; at + shortest <= bytes.size(); at += block, ++i) {
        const std::uint64_t last = i * block;
        values[i % blocks] = last < bytes.size() ? values_from(last) : value_set();
        value_set all;
        for (const value_set& one : values) {
            all |= one;
        }
        const bool is_rich = all.count() >= fewest_values;
        const bool ends = is_in_stretch && (!is_rich || at - begin >= longest_stretch);
        if (ends && take(begin, at)) {
            return true;
        }
        begin = is_in_stretch && !ends ? begin : at;
        is_in_stretch = is_rich;
    }
    return is_in_stretch && take(begin, at);
}

} // namespace

std::optional<byte_run> find_packed_run(uni::byte_view bytes)
{
    if (bytes.size() < shortest || !has_enough_values(bytes)) {
        return std::nullopt;
    }
    static const weighted_logarithms logarithms;
    std::optional<byte_run> found;
    const auto find_in = [&](std::uint64_t begin, std::uint64_t end, std::uint64_t length) {
        if (length <= bytes.size()) {
            if (const auto at = find_window(bytes, begin, end, length, logarithms)) {
                found = {*at, length};
            }
        }
        return found.has_value();
    };
    for_each_rich_stretch(bytes, [&](std::uint64_t begin, std::uint64_t end) {
        std::uint64_t length = longest_short;
        while (length >= shortest && !find_in(begin, end, length)) {
            length -= step_of_short;
        }
        return found.has_value();
    });
    for (std::size_t i = 0; i < long_ones.size() && !found; ++i) {
        find_in(0, bytes.size(), long_ones[i]);
    }
    if (!found && entropy_of(bytes) >= high_entropy) {
        found = {0, bytes.size()};
    }
    return found;
}

} // namespace model
