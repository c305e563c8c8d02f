// Brings together what stands in two databases.
#pragma once

#include <compare>
#include <cstdint>
#include <functional>
#include <vector>

#include "model/content.h"

namespace model {

// A tag or list that looks for its counterpart: by what it is called, then by what it says.
struct candidate {
    content_digest key;
    content_digest content;
    std::uint32_t offset = 0;
    auto operator<=>(const candidate&) const = default;
};
using candidates = std::vector<candidate>;

struct pair_of {
    std::uint32_t before = 0;
    std::uint32_t after = 0;
    friend bool operator==(const pair_of&, const pair_of&) = default;
};

// Takes out those whose key no other has, as far as that is told fast: where much differs it spares most of
// the sorting.
void leave_lonely(candidates& ones, const candidates& others);

// A part of what a candidate says, and how much it counts that two have it in common.
struct weighty_part {
    content_digest digest;
    std::uint32_t weight;
};
using parts_of_candidate = std::function<std::vector<weighty_part>(std::uint32_t offset)>;

// Brings together candidates of one key: those first that say the same, then, where it is told how to look at
// their parts, those that have the most in common, then the others as they stand. What is left over stays.
void pair_equal_keys(candidates& before, candidates& after, std::vector<pair_of>& pairs,
                     const parts_of_candidate& parts_before = {},
                     const parts_of_candidate& parts_after = {});

// In the order of the second database, then what only the first has.
void put_in_order(std::vector<pair_of>& pairs);

} // namespace model
