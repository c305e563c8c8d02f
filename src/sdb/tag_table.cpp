#include "sdb/tag_table.h"

#include <algorithm>

namespace sdb {

void tag_table::reset(std::size_t expected_tags)
{
    *this = {};
    rows_.reserve(expected_tags);
}

// Closes the lists that the tag before `end` has filled.
void tag_table::close_finished(std::uint32_t end)
{
    while (top_.remaining < 2 && top_.ordinal != no_list) {
        rows_[top_.ordinal].end = end;
        --depth_;
        around_.back().remaining -= top_.total;
        top_ = around_.back();
        around_.pop_back();
    }
}

void tag_table::finish()
{
    around_.push_back(top_);
    for (const open_list& unfinished : around_) {
        if (unfinished.ordinal != no_list) {
            rows_[unfinished.ordinal].end = size();
        }
    }
    around_.clear();
}

const std::vector<std::uint32_t>& tag_table::lists_with_children() const
{
    if (!lists_with_children_) {
        lists_with_children_.emplace();
        for (const std::uint32_t list : lists_) {
            if (has_children(list)) {
                lists_with_children_->push_back(list);
            }
        }
    }
    return *lists_with_children_;
}

const std::vector<tag_table::keyed_list>& tag_table::lists_by_depth() const
{
    if (!lists_by_depth_) {
        lists_by_depth_.emplace();
        for (const std::uint32_t list : lists_with_children()) {
            lists_by_depth_->push_back({depth(list + 1), list});
        }
        std::ranges::sort(*lists_by_depth_);
    }
    return *lists_by_depth_;
}

std::optional<std::uint32_t> tag_table::list_before(std::uint32_t ordinal) const
{
    const auto behind = std::ranges::lower_bound(lists_with_children(), ordinal);
    return behind == lists_with_children().begin() ? std::nullopt : std::optional(*(behind - 1));
}

std::optional<std::uint32_t> tag_table::list_around(std::uint32_t list) const
{
    if (list == lists_with_children().front()) {
        return std::nullopt;
    }
    const auto wanted = static_cast<std::uint16_t>(depth(list + 1) - 1);
    const std::vector<keyed_list>& keyed = lists_by_depth();
    const auto behind = std::ranges::lower_bound(keyed, keyed_list{wanted, list});
    if (behind == keyed.begin() || (behind - 1)->child_depth != wanted) {
        return std::nullopt;
    }
    const std::uint32_t found = (behind - 1)->ordinal;
    const bool has_one_row = end(found + 1) >= end(found);
    if (found == lists_with_children().front() && has_one_row) {
        return std::nullopt;
    }
    return found;
}

} // namespace sdb
