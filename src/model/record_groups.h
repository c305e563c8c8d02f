#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <vector>

#include "model/record.h"

namespace model {

// A record's items as groups.
class record_groups {
public:
    void clear();
    // Takes the next items, which stay where they are. A list starts a group. A scalar goes to the
    // open group if it is deeper than the group's list; otherwise it closes that group and goes to
    // the last group whose list is less deep, or is dropped when there is none.
    void add(std::span<const record_item> items);

    std::size_t size() const noexcept { return groups_.size(); }
    bool empty() const noexcept { return groups_.empty(); }
    std::span<const record_item> operator[](std::size_t group) const noexcept
    {
        return groups_[group];
    }

private:
    struct depth_mark {
        std::uint16_t depth;
        std::size_t group;
    };

    void start_group(const record_item& head);
    void add_scalar(const record_item& item);
    void append(std::size_t group, const record_item& item);

    std::vector<std::span<const record_item>> groups_;
    // Groups that took an item from elsewhere, copied to grow, by their place in groups_.
    std::map<std::size_t, std::vector<record_item>> copied_;
    // The groups that a scalar may still find: ever deeper, each the last of its depth.
    std::vector<depth_mark> reachable_;
    bool is_open_ = false;
};

} // namespace model
