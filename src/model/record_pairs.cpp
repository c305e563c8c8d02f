#include "model/record_pairs.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdlib>
#include <tuple>
#include <utility>

namespace model {

namespace {

// A part of a candidate; parts have their numbers as they stand in the file.
struct part {
    content_digest digest;
    std::uint32_t number;
    std::uint32_t weight;
    auto operator<=>(const part&) const = default;
};
using parts = std::vector<part>; // ascending

// How much two candidates have in common.
struct likeness {
    std::uint32_t before; // number
    std::uint32_t after;  // number
    std::uint64_t weight;
};

parts parts_of_all(const candidates& ones, const parts_of_candidate& parts_of)
{
    parts all;
    std::uint32_t number = 0;
    for (const candidate& one : ones) {
        for (const weighty_part& own : parts_of(one.offset)) {
            all.push_back({own.digest, number, own.weight});
        }
        ++number;
    }
    std::ranges::sort(all);
    return all;
}

// How many parts from `at` on are the same.
std::size_t length_of_run(const parts& ones, std::size_t at)
{
    const auto is_other = [&](const part& one) { return one.digest != ones[at].digest; };
    const auto from = ones.begin() + static_cast<std::ptrdiff_t>(at);
    return static_cast<std::size_t>(std::find_if(from, ones.end(), is_other) - from);
}

// Of all that have a part in common, unless so many have it that it tells little.
std::vector<likeness> likenesses_of(const parts& before, const parts& after)
{
    constexpr std::size_t most = 64; // pairs that a part in common makes
    std::vector<likeness> found;
    std::size_t a = 0;
    std::size_t b = 0;
    while (a < before.size() && b < after.size()) {
        if (before[a].digest != after[b].digest) {
            ++(before[a].digest < after[b].digest ? a : b);
            continue;
        }
        const std::size_t in_a = length_of_run(before, a);
        const std::size_t in_b = length_of_run(after, b);
        for (std::size_t i = 0; in_a * in_b <= most && i < in_a * in_b; ++i) {
            const part& one = before[a + i / in_b];
            found.push_back({one.number, after[b + i % in_b].number, one.weight});
        }
        a += in_a;
        b += in_b;
    }
    return found;
}

// The sum for either two, the most first; of the same weight those that come first in both, which is the same
// whichever of the databases is the first.
void add_up_and_rank(std::vector<likeness>& all)
{
    const auto two = [](const likeness& one) { return std::pair(one.before, one.after); };
    std::ranges::sort(all, {}, two);
    std::size_t kept = 0;
    for (std::size_t i = 0; i < all.size(); ++i) {
        if (kept > 0 && two(all[kept - 1]) == two(all[i])) {
            all[kept - 1].weight += all[i].weight;
        } else {
            all[kept++] = all[i];
        }
    }
    all.resize(kept);
    std::ranges::sort(all, {}, [](const likeness& one) {
        const std::int64_t apart = std::int64_t{one.before} - one.after;
        return std::tuple(~one.weight, std::uint64_t{one.before} + one.after, std::abs(apart),
                          one.before);
    });
}

void leave_out(candidates& ones, const std::vector<bool>& are_paired)
{
    std::size_t number = 0;
    std::erase_if(ones, [&](const candidate&) { return are_paired[number++]; });
}

// Brings together those that have the most in common.
void pair_by_parts(candidates& before, candidates& after, std::vector<pair_of>& pairs,
                   const parts_of_candidate& parts_before, const parts_of_candidate& parts_after)
{
    std::vector<likeness> all =
        likenesses_of(parts_of_all(before, parts_before), parts_of_all(after, parts_after));
    add_up_and_rank(all);
    std::vector<bool> are_paired_before(before.size());
    std::vector<bool> are_paired_after(after.size());
    for (const likeness& one : all) {
        if (!are_paired_before[one.before] && !are_paired_after[one.after]) {
            pairs.push_back({before[one.before].offset, after[one.after].offset});
            are_paired_before[one.before] = are_paired_after[one.after] = true;
        }
    }
    leave_out(before, are_paired_before);
    leave_out(after, are_paired_after);
}

} // namespace

void pair_equal_keys(candidates& before, candidates& after, std::vector<pair_of>& pairs,
                     const parts_of_candidate& parts_before, const parts_of_candidate& parts_after)
{
    std::ranges::sort(before);
    std::ranges::sort(after);
    candidates left_before;
    candidates left_after;
    std::size_t a = 0;
    std::size_t b = 0;
    while (a < before.size() || b < after.size()) {
        const bool only_before =
            b == after.size() || (a < before.size() && before[a].key < after[b].key);
        if (only_before) {
            left_before.push_back(before[a++]);
            continue;
        }
        if (a == before.size() || after[b].key < before[a].key) {
            left_after.push_back(after[b++]);
            continue;
        }
        const content_digest key = before[a].key;
        candidates other_before;
        candidates other_after;
        while ((a < before.size() && before[a].key == key) ||
               (b < after.size() && after[b].key == key)) {
            const bool has_before = a < before.size() && before[a].key == key;
            const bool has_after = b < after.size() && after[b].key == key;
            if (has_before && has_after && before[a].content == after[b].content) {
                pairs.push_back({before[a++].offset, after[b++].offset});
            } else if (has_before && (!has_after || before[a].content < after[b].content)) {
                other_before.push_back(before[a++]);
            } else {
                other_after.push_back(after[b++]);
            }
        }
        std::ranges::sort(other_before, {}, &candidate::offset);
        std::ranges::sort(other_after, {}, &candidate::offset);
        const bool has_choice = std::max(other_before.size(), other_after.size()) > 1;
        if (parts_before && has_choice && !other_before.empty() && !other_after.empty()) {
            pair_by_parts(other_before, other_after, pairs, parts_before, parts_after);
        }
        const std::size_t both = std::min(other_before.size(), other_after.size());
        for (std::size_t i = 0; i < both; ++i) {
            pairs.push_back({other_before[i].offset, other_after[i].offset});
        }
        left_before.insert(left_before.end(),
                           other_before.begin() + static_cast<std::ptrdiff_t>(both),
                           other_before.end());
        left_after.insert(left_after.end(), other_after.begin() + static_cast<std::ptrdiff_t>(both),
                          other_after.end());
    }
    before = std::move(left_before);
    after = std::move(left_after);
}

void leave_lonely(candidates& ones, const candidates& others)
{
    constexpr std::size_t few = 256;
    if (ones.size() <= few && !others.empty()) {
        return;
    }
    constexpr std::size_t room = 8; // places for each
    const std::size_t places = std::bit_ceil(others.size() * room + 1);
    std::vector<bool> has(places);
    for (const candidate& other : others) {
        has[other.key.low & (places - 1)] = true;
    }
    std::erase_if(ones, [&](const candidate& one) { return !has[one.key.low & (places - 1)]; });
}

void put_in_order(std::vector<pair_of>& pairs)
{
    const auto place = [](const pair_of& one) {
        constexpr std::uint64_t behind_all = std::uint64_t{1} << 32;
        return one.after == 0 ? behind_all + one.before : one.after;
    };
    const auto stands_before = [&](const pair_of& one, const pair_of& other) {
        return place(one) < place(other);
    };
    const auto tail =
        std::is_sorted_until(pairs.begin(), pairs.end(), stands_before); // often a few alone
    std::sort(tail, pairs.end(), stands_before);
    std::inplace_merge(pairs.begin(), tail, pairs.end(), stands_before);
}

} // namespace model
