#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "uni/large_vector.h"

namespace sdb {

class sdb_database;

// Which tags stand in which list, by ordinal.
//
// The relation follows the described way of charging a list's size with its children, oddities
// included: a binary's pad byte is not charged, and a list ends when less than 2 bytes of it are
// left. A list with two odd-sized binaries thus stays open too long and takes its next sibling for
// a child, and a list whose remainder wraps stays open to the end of the file. That is meant.
//
// Whatever the sizes say, lists close in the order of a stack, so that the tags in a list and in
// its lists are one run of ordinals, and a tag's children are found by stepping over their runs.
class child_relation {
public:
    explicit child_relation(const sdb_database& database);

    // Nesting depth: the children of a root list have depth 2. Wraps in 16 bits.
    std::uint16_t depth(std::uint32_t ordinal) const noexcept { return depths_[ordinal]; }
    // The first ordinal behind a tag and all that stands in it.
    std::uint32_t end(std::uint32_t ordinal) const noexcept { return ends_[ordinal]; }
    bool has_children(std::uint32_t ordinal) const noexcept { return ends_[ordinal] > ordinal + 1; }

    template <typename action>
    void for_each_child(std::uint32_t list, action&& act) const
    {
        for (std::uint32_t child = list + 1; child < ends_[list]; child = ends_[child]) {
            act(child);
        }
    }

    // The last list with children whose ordinal lies below the given one.
    std::optional<std::uint32_t> list_before(std::uint32_t ordinal) const;

    // The list around a list with children, found as described: backward over the rows of the
    // relation, to the first whose depth is one less; the relation's very first row never counts.
    std::optional<std::uint32_t> list_around(std::uint32_t list) const;

private:
    // A list with children, filed under the depth of its children.
    struct keyed_list {
        std::uint16_t child_depth;
        std::uint32_t ordinal;
        friend auto operator<=>(const keyed_list&, const keyed_list&) = default;
    };

    const std::vector<std::uint32_t>& lists() const;
    const std::vector<keyed_list>& lists_by_depth() const;

    uni::large_vector<std::uint16_t> depths_;
    uni::large_vector<std::uint32_t> ends_;
    mutable std::optional<std::vector<std::uint32_t>> lists_;
    mutable std::optional<std::vector<keyed_list>> lists_by_depth_;
};

} // namespace sdb
