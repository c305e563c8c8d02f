#include "sdb/tag_table.h"

#include <algorithm>

namespace sdb {

namespace {

constexpr std::uint64_t list_head = 6; // tag word and size word
// Of the room that these take, the shortest tags have it.
constexpr std::size_t tags_of_a_list = 3;
constexpr std::size_t tags_of_a_reference = 3;

} // namespace

void tag_table::reset(std::size_t most_tags)
{
    *this = {};
    // What is never used of a large array takes no memory, and one that never grows is never copied.
    offsets_.reserve(most_tags);
    marks_.reserve(most_tags / tags_of_a_mark + 1);
    lists_.reserve(most_tags / tags_of_a_list);
    around_.reserve(most_tags / tags_of_a_list);
    references_.reserve(most_tags / tags_of_a_reference);
    patches_.reserve(most_tags / tags_of_a_reference);
}

// Closes the lists that the last tag, which ends at `behind`, has filled.
void tag_table::close_finished(std::uint64_t behind)
{
    while (top_.remaining < 2 && top_.number != no_list) {
        close(top_, behind);
        --depth_;
        around_.back().remaining -= top_.total;
        top_ = around_.back();
        around_.pop_back();
    }
}

void tag_table::close(const open_list& closed, std::uint64_t behind)
{
    list_row& list = lists_[closed.number];
    list.close(tag_ordinal(size()),
               std::uint64_t{offset(list.ordinal)} + list_head + closed.total == behind);
}

// What is still open lacks some of what it claims.
void tag_table::finish()
{
    around_.push_back(top_);
    for (const open_list& unfinished : around_) {
        if (unfinished.number != no_list) {
            close(unfinished, 0);
        }
    }
    io::release(around_);
}

const std::vector<tag_ordinal>& tag_table::lists_with_children() const
{
    if (!lists_with_children_) {
        lists_with_children_.emplace();
        for (const list_row& list : lists_) {
            if (list.has_children()) {
                lists_with_children_->push_back(list.ordinal);
            }
        }
    }
    return *lists_with_children_;
}

const std::vector<std::vector<tag_ordinal>>& tag_table::lists_by_depth() const
{
    if (!lists_by_depth_) {
        lists_by_depth_.emplace();
        for (const tag_ordinal list : lists_with_children()) {
            const std::size_t depth_inside = this->list(list)->depth_inside();
            if (lists_by_depth_->size() <= depth_inside) {
                lists_by_depth_->resize(depth_inside + 1);
            }
            (*lists_by_depth_)[depth_inside].push_back(list);
        }
    }
    return *lists_by_depth_;
}

std::optional<tag_ordinal> tag_table::list_before(tag_ordinal ordinal) const
{
    const auto behind = std::ranges::lower_bound(lists_with_children(), ordinal);
    return behind == lists_with_children().begin() ? std::nullopt : std::optional(*(behind - 1));
}

std::optional<tag_ordinal> tag_table::list_around(tag_ordinal list) const
{
    if (list == lists_with_children().front()) {
        return std::nullopt;
    }
    const auto wanted = this->list(list)->depth;
    if (wanted >= lists_by_depth().size()) {
        return std::nullopt;
    }
    const std::vector<tag_ordinal>& outer = lists_by_depth()[wanted];
    const auto behind = std::ranges::lower_bound(outer, list);
    if (behind == outer.begin()) {
        return std::nullopt;
    }
    const tag_ordinal found = *(behind - 1);
    return is_lone_first_row(found, lists_with_children().front()) ? std::nullopt
                                                                   : std::optional(found);
}

std::vector<tag_ordinal> tag_table::lists_around(std::uint16_t tag) const
{
    std::vector<tag_ordinal> outer;
    std::vector<std::optional<tag_ordinal>> last_by_depth; // by the depth of what stands in them
    std::optional<tag_ordinal> first;
    for (const list_row& list : lists_) {
        if (!list.has_children()) {
            continue;
        }
        const std::uint16_t depth_inside = list.depth_inside();
        const std::uint16_t wanted = list.depth;
        if (list.tag == tag && wanted < last_by_depth.size()) {
            const std::optional<tag_ordinal> found = last_by_depth[wanted];
            if (found && !is_lone_first_row(*found, *first) &&
                (outer.empty() || outer.back() != *found)) {
                outer.push_back(*found);
            }
        }
        if (last_by_depth.size() <= depth_inside) {
            last_by_depth.resize(std::size_t{depth_inside} + 1);
        }
        last_by_depth[depth_inside] = list.ordinal;
        first = first.value_or(list.ordinal);
    }
    std::ranges::sort(outer);
    outer.erase(std::unique(outer.begin(), outer.end()), outer.end());
    return outer;
}

} // namespace sdb
