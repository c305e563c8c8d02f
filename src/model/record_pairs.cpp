#include "model/record_pairs.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <utility>

namespace model {

namespace {

// One of the parts of a candidate.
struct part {
    content_digest digest;
    std::uint32_t offset;
    auto operator<=>(const part&) const = default;
};
using parts = std::vector<part>; // ascending

std::array<parts, 2> parts_of_all(const candidates& ones, const parts_of_candidate& parts_of)
{
    std::array<parts, 2> all;
    for (const candidate& one : ones) {
        const candidate_parts own = parts_of(one.offset);
        for (std::size_t i = 0; i < own.size(); ++i) {
            all[i].push_back({own[i], one.offset});
        }
    }
    for (parts& each : all) {
        std::ranges::sort(each);
    }
    return all;
}

void leave_out(auto& ones, std::vector<std::uint32_t>& offsets)
{
    std::ranges::sort(offsets);
    std::erase_if(ones,
                  [&](const auto& one) { return std::ranges::binary_search(offsets, one.offset); });
}

// How many parts from `at` on are the same.
std::size_t length_of_run(const parts& ones, std::size_t at)
{
    const auto is_other = [&](const part& one) { return one.digest != ones[at].digest; };
    const auto from = ones.begin() + static_cast<std::ptrdiff_t>(at);
    return static_cast<std::size_t>(std::find_if(from, ones.end(), is_other) - from);
}

// Brings together those that alone have a part in common.
void pair_by_parts(candidates& before, candidates& after, std::vector<pair_of>& pairs,
                   const parts_of_candidate& parts_before, const parts_of_candidate& parts_after)
{
    std::array<parts, 2> all_before = parts_of_all(before, parts_before);
    std::array<parts, 2> all_after = parts_of_all(after, parts_after);
    std::vector<std::uint32_t> paired_before;
    std::vector<std::uint32_t> paired_after;
    for (std::size_t i = 0; i < all_before.size(); ++i) {
        parts& a = all_before[i];
        parts& b = all_after[i];
        leave_out(a, paired_before);
        leave_out(b, paired_after);
        std::size_t at_a = 0;
        std::size_t at_b = 0;
        while (at_a < a.size() && at_b < b.size()) {
            if (a[at_a].digest != b[at_b].digest) {
                ++(a[at_a].digest < b[at_b].digest ? at_a : at_b);
                continue;
            }
            const std::size_t in_a = length_of_run(a, at_a);
            const std::size_t in_b = length_of_run(b, at_b);
            if (in_a == 1 && in_b == 1) {
                pairs.push_back({a[at_a].offset, b[at_b].offset});
                paired_before.push_back(a[at_a].offset);
                paired_after.push_back(b[at_b].offset);
            }
            at_a += in_a;
            at_b += in_b;
        }
    }
    leave_out(before, paired_before);
    leave_out(after, paired_after);
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
        const bool has_choice = std::max(other_before.size(), other_after.size()) > 1;
        if (parts_before && has_choice && !other_before.empty() && !other_after.empty()) {
            pair_by_parts(other_before, other_after, pairs, parts_before, parts_after);
        }
        std::ranges::sort(other_before, {}, &candidate::offset);
        std::ranges::sort(other_after, {}, &candidate::offset);
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
