#include "sdb/tag_table.h"

#include <algorithm>

namespace sdb {

namespace {

constexpr std::uint64_t list_head = 6; // tag word and size word
// As databases usually have them.
constexpr std::size_t tags_of_a_list = 8;
constexpr std::size_t tags_of_a_reference = 16;

} // namespace

void tag_table::reset(std::size_t expected_tags)
{
    *this = {};
    rows_.reserve(expected_tags);
    lists_.reserve(expected_tags / tags_of_a_list);
    references_.reserve(expected_tags / tags_of_a_reference);
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
    row& first = rows_[list.ordinal.number()];
    first.end = list.end = tag_ordinal(size());
    list.is_exact = std::uint64_t{first.offset} + list_head + list.size == behind;
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
    around_.clear();
}

const std::vector<tag_ordinal>& tag_table::lists_with_children() const
{
    if (!lists_with_children_) {
        lists_with_children_.emplace();
        for (const list_row& list : lists_) {
            if (list.end > list.ordinal.next()) {
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
            const std::size_t depth_inside = depth(list.next());
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
    const auto wanted = static_cast<std::uint16_t>(depth(list.next()) - 1);
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
    for (const auto& [list, end, size, list_tag, is_exact] : lists_) {
        if (end <= list.next()) {
            continue;
        }
        const std::uint16_t depth_inside = depth(list.next());
        const auto wanted = static_cast<std::uint16_t>(depth_inside - 1);
        if (list_tag == tag && wanted < last_by_depth.size()) {
            const std::optional<tag_ordinal> found = last_by_depth[wanted];
            if (found && !is_lone_first_row(*found, *first) &&
                (outer.empty() || outer.back() != *found)) {
                outer.push_back(*found);
            }
        }
        if (last_by_depth.size() <= depth_inside) {
            last_by_depth.resize(std::size_t{depth_inside} + 1);
        }
        last_by_depth[depth_inside] = list;
        first = first.value_or(list);
    }
    std::ranges::sort(outer);
    outer.erase(std::unique(outer.begin(), outer.end()), outer.end());
    return outer;
}

} // namespace sdb
