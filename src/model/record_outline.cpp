#include "model/record_outline.h"

#include <utility>

namespace model {

void record_outline::arrange(const record_groups& groups)
{
    parts_.clear();
    parts_.push_back({0});
    if (const record_expander* const source = groups.source()) {
        arrange_subrecords(*source);
    }
}

// An expander gives sub-records as it walks them, depth first and the last first: what belongs together
// comes in the reverse of file order, and behind that in which it belongs.
void record_outline::arrange_subrecords(const record_expander& source)
{
    const auto lists_in = [](std::span<const record_item> items) {
        return static_cast<std::uint32_t>(std::ranges::count_if(items, is_list));
    };
    std::uint32_t groups = lists_in(source.own_items());
    last_parts_.assign(1, 0);
    last_bodies_.assign(1, 0);
    for (std::uint32_t index = 0; index < source.subrecord_count(); ++index) {
        const subrecord_place place = source.place_of(index);
        const std::uint32_t number = index + 1;
        parts_.push_back({groups});
        groups += source.folded(index) != nullptr ? 1 : lists_in(source.subrecord(index));
        // A reference list belongs in the record that is around it, a followed record in whatever part was
        // walked last.
        const std::size_t level = place.chain_length;
        last_parts_.resize(level + 1);
        last_bodies_.resize(level + 1);
        part& outer = parts_[place.is_followed ? last_parts_[level] : last_bodies_[level]];
        std::uint32_t& first = place.is_followed ? outer.followed : outer.references;
        parts_.back().next = std::exchange(first, number);
        if (place.is_followed) {
            last_parts_.push_back(number);
            last_bodies_.push_back(number);
        } else {
            last_parts_[level] = number;
        }
    }
}

} // namespace model
