#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "io/large_vector.h"
#include "model/record_expander.h"
#include "model/record_groups.h"

namespace model {

// A record as a tree: the lists in a list, in file order, each followed record in the place of the tag that
// led to it. Groups come otherwise: what follows references stands behind all else, the last first.
class record_outline {
public:
    // Shows a record to a visitor, list by list:
    //   enter(items, reference)     a list's group, with the offset of the tag that led to it, 0 for one that
    //                               was not followed
    //   leave()                     behind all that stands in it
    //   enter_folded(folded, reference)
    //                               a folded record with all that it leads to; nothing is left behind it
    //   begin_foldable()            in front of a followed record of which it is worth keeping what is made
    //   end_foldable(fold, items)   behind it, with its first group
    // The record's own list is around all others. Ends when one of the enterings answers false, having
    // left what was entered before; then no foldable one ends.
    template <typename visitor>
    void walk(const record_groups& groups, visitor& seen)
    {
        arrange(groups);
        groups_ = &groups;
        depths_.clear();
        static_cast<void>(walk_part(0, 0, seen));
    }

private:
    static constexpr std::uint32_t none = 0xffffffff;

    // The record's own items, or a sub-record: the groups from the first one to that of the next part.
    struct part {
        std::uint32_t first_group;
        // Of what belongs in it, the first reference list and the first followed record, each kind by its
        // place in the file; and what comes behind the part among its own kind.
        std::uint32_t references = none;
        std::uint32_t followed = none;
        std::uint32_t next = none;
    };

    void arrange(const record_groups& groups);
    void arrange_subrecords(const record_expander& source);
    std::size_t groups_end(std::uint32_t number) const noexcept
    {
        return number + 1 < parts_.size() ? parts_[number + 1].first_group : groups_->size();
    }
    // Behind all others for none.
    std::uint64_t place_of(std::uint32_t number) const noexcept
    {
        return number == none ? ~std::uint64_t{0} : groups_->source()->place_of(number - 1).offset;
    }
    // The note about the groups that begin with a part's; null where there is none.
    const foldable_groups* foldable(std::uint32_t number) const noexcept
    {
        const auto found = std::ranges::lower_bound(groups_->foldable(), parts_[number].first_group,
                                                    {}, &foldable_groups::first);
        const bool is_one = found != groups_->foldable().end() &&
                            found->first == parts_[number].first_group &&
                            groups_end(number) != parts_[number].first_group;
        return is_one ? &*found : nullptr;
    }

    // Leaves lists down to a depth, but none of the first `kept`.
    void leave_down_to(std::uint16_t depth, std::size_t kept, auto& seen)
    {
        while (depths_.size() > kept && depths_.back() >= depth) {
            depths_.pop_back();
            seen.leave();
        }
    }

    // Parts stand in one another no deeper than references are followed.
    // NOLINTNEXTLINE(misc-no-recursion)
    bool walk_part(std::uint32_t number, std::uint32_t reference, auto& seen)
    {
        const std::size_t around = depths_.size();
        std::size_t kept = around;
        std::uint32_t references = parts_[number].references;
        std::uint32_t followed = parts_[number].followed;
        // NOLINTNEXTLINE(misc-no-recursion)
        const auto walk_parts_before = [&](std::uint64_t offset) {
            while (references != none || followed != none) {
                const std::uint64_t first_reference = place_of(references);
                const std::uint64_t first_followed = place_of(followed);
                const bool is_followed = first_followed < first_reference;
                const std::uint64_t place = is_followed ? first_followed : first_reference;
                if (place >= offset) {
                    break;
                }
                std::uint32_t& next = is_followed ? followed : references;
                const std::uint32_t inner = next;
                next = parts_[inner].next;
                const bool goes_on =
                    is_followed
                        ? walk_followed(inner, static_cast<std::uint32_t>(place), kept, seen)
                        : walk_inner(inner, 0, kept, seen);
                if (!goes_on) {
                    return false;
                }
            }
            return true;
        };
        bool goes_on = true;
        const std::size_t first = parts_[number].first_group;
        for (std::size_t group = first; goes_on && group < groups_end(number); ++group) {
            const std::span<const record_item> items = (*groups_)[group];
            goes_on = walk_parts_before(items.front().offset);
            if (!goes_on) {
                break;
            }
            leave_down_to(items.front().depth, kept, seen);
            depths_.reserve(depths_.size() + 1); // which may fail, before the visitor enters
            goes_on = seen.enter(items, group == first ? reference : 0);
            if (goes_on) {
                depths_.push_back(items.front().depth);
                kept = around + 1; // all else stands in the part's first list
            }
        }
        goes_on = goes_on && walk_parts_before(~std::uint64_t{0});
        leave_down_to(0, around, seen);
        return goes_on;
    }

    // NOLINTNEXTLINE(misc-no-recursion)
    bool walk_inner(std::uint32_t number, std::uint32_t reference, std::size_t kept, auto& seen)
    {
        leave_down_to(groups_->source()->subrecord(number - 1).front().depth, kept, seen);
        return walk_part(number, reference, seen);
    }

    // NOLINTNEXTLINE(misc-no-recursion)
    bool walk_followed(std::uint32_t number, std::uint32_t reference, std::size_t kept, auto& seen)
    {
        if (const folded_record* const folded = groups_->source()->folded(number - 1)) {
            leave_down_to(folded->depth, kept, seen);
            return seen.enter_folded(*folded, reference);
        }
        if (!is_list(groups_->source()->subrecord(number - 1).front())) {
            return walk_inner(number, 0, kept, seen);
        }
        const foldable_groups* const kind = foldable(number);
        if (kind != nullptr) {
            leave_down_to(kind->fold.depth, kept, seen);
            seen.begin_foldable();
        }
        const bool goes_on = walk_inner(number, reference, kept, seen);
        if (goes_on && kind != nullptr) {
            seen.end_foldable(kind->fold, (*groups_)[kind->first]);
        }
        return goes_on;
    }

    const record_groups* groups_ = nullptr;
    io::large_vector<part> parts_;
    io::large_vector<std::uint16_t> depths_; // of the lists around the one in work
    // While parts are arranged, by how many records were followed to them: the last of all parts and the
    // last that was followed.
    std::vector<std::uint32_t> last_parts_;
    std::vector<std::uint32_t> last_bodies_;
};

} // namespace model
