#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "io/large_vector.h"
#include "model/folded_records.h"
#include "model/record.h"

namespace model {

// Groups of a record that make one of its followed records with all that it leads to. What is made of
// them is worth keeping: it will be the same again.
struct foldable_groups {
    std::size_t first;
    std::size_t end;
    folded_record fold; // without items and text
};

class record_expander;

// A record's items as groups.
class record_groups {
public:
    void clear();
    // Room for that many groups.
    void reserve(std::size_t groups);
    // Takes the next items, which stay where they are; where a group is made of many that do not stand
    // together, they are its own from finish() on. A list starts a group. A scalar goes to the
    // open group if it is deeper than the group's list; otherwise it closes that group and goes to
    // the last group whose list is less deep, or is dropped when there is none.
    void add(std::span<const record_item> items);
    // Takes the groups of a followed record as one that stands for all of them, which must stay where it
    // is.
    void add(const folded_record& folded);
    // Takes note of groups, each behind those noted before.
    void note(foldable_groups groups) { foldable_.push_back(std::move(groups)); }
    // To be called behind the last add(), before any group is asked for; where all that was added is
    // what an expander gathered, in its order, with that one.
    void finish(const record_expander* source = nullptr);
    const record_expander* source() const noexcept { return source_; }

    std::size_t size() const noexcept { return firsts_.size(); }
    bool empty() const noexcept { return firsts_.empty(); }
    std::span<const record_item> operator[](std::size_t group) const noexcept
    {
        return {firsts_[group], sizes_[group]};
    }

    // A group that stands for a followed record, whose first it is.
    struct folded_group {
        std::size_t group;
        const folded_record* folded;
    };
    // These, ascending; and the one of a group, null for any other.
    std::span<const folded_group> folded() const noexcept { return folded_; }
    const folded_record* folded(std::size_t group) const noexcept;
    std::span<const foldable_groups> foldable() const noexcept { return foldable_; }

private:
    struct depth_mark {
        std::uint16_t depth;
        std::uint32_t group;
    };

    // Scalars in a row that go to a group behind which they do not stand.
    struct late_run {
        const record_item* first;
        std::uint32_t count;
        std::uint32_t group;

        std::span<const record_item> items() const noexcept { return {first, count}; }
    };

    void start_group(const record_item& head);
    void add_scalar(const record_item& item);
    void add_late(std::size_t group, const record_item& item);
    void make_room();
    void take(const late_run& late);
    static void forget(auto taken);
    void append(std::size_t group, std::span<const record_item> items);

    // Of each group its first item and how many it has.
    io::roomy_vector<const record_item*> firsts_;
    io::roomy_vector<std::uint32_t> sizes_;
    io::roomy_vector<late_run> late_;
    io::roomy_vector<std::uint32_t> late_items_; // of each group
    io::roomy_vector<record_item> grown_;        // the groups that take late scalars, with these
    // The groups that a scalar may still find: ever deeper, each the last of its depth.
    io::roomy_vector<depth_mark> reachable_;
    std::vector<folded_group> folded_; // ascending by group
    std::vector<foldable_groups> foldable_;
    const record_expander* source_ = nullptr;
    bool is_open_ = false;
};

} // namespace model
