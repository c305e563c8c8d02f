// Brings together what stands in two databases.
#pragma once

#include <compare>
#include <cstdint>
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
};

// Takes out those whose key no other has, as far as that is told fast: where much differs it spares most of
// the sorting.
void leave_lonely(candidates& ones, const candidates& others);

// Brings together candidates of one key, those first that say the same. What is left over stays.
void pair_equal_keys(candidates& before, candidates& after, std::vector<pair_of>& pairs);

// In the order of the second database, then what only the first has.
void put_in_order(std::vector<pair_of>& pairs);

} // namespace model
