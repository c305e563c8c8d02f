#include "model/record_pairs.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <utility>

namespace model {

void pair_equal_keys(candidates& before, candidates& after, std::vector<pair_of>& pairs)
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
