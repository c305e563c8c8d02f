#include "sdb/child_relation.h"

#include <algorithm>

namespace sdb {

void child_relation::reset(std::size_t expected_tags)
{
    *this = {};
    depths_.reserve(expected_tags);
    ends_.reserve(expected_tags);
}

// Closes the lists that the tag before `end` has filled.
void child_relation::close_finished(std::uint32_t end)
{
    while (top_.remaining < 2 && top_.ordinal != no_list) {
        ends_[top_.ordinal] = end;
        --depth_;
        around_.back().remaining -= top_.total;
        top_ = around_.back();
        around_.pop_back();
    }
}

void child_relation::finish()
{
    around_.push_back(top_);
    for (const open_list& unfinished : around_) {
        if (unfinished.ordinal != no_list) {
            ends_[unfinished.ordinal] = static_cast<std::uint32_t>(ends_.size());
        }
    }
    around_.clear();
}

const std::vector<std::uint32_t>& child_relation::lists() const
{
    if (!lists_) {
        lists_.emplace();
        for (std::uint32_t ordinal = 0; ordinal < ends_.size(); ++ordinal) {
            if (has_children(ordinal)) {
                lists_->push_back(ordinal);
            }
        }
    }
    return *lists_;
}

const std::vector<child_relation::keyed_list>& child_relation::lists_by_depth() const
{
    if (!lists_by_depth_) {
        lists_by_depth_.emplace();
        for (const std::uint32_t list : lists()) {
            lists_by_depth_->push_back({depths_[list + 1], list});
        }
        std::ranges::sort(*lists_by_depth_);
    }
    return *lists_by_depth_;
}

std::optional<std::uint32_t> child_relation::list_before(std::uint32_t ordinal) const
{
    const auto behind = std::ranges::lower_bound(lists(), ordinal);
    return behind == lists().begin() ? std::nullopt : std::optional(*(behind - 1));
}

std::optional<std::uint32_t> child_relation::list_around(std::uint32_t list) const
{
    if (list == lists().front()) {
        return std::nullopt;
    }
    const auto wanted = static_cast<std::uint16_t>(depths_[list + 1] - 1);
    const std::vector<keyed_list>& keyed = lists_by_depth();
    const auto behind = std::ranges::lower_bound(keyed, keyed_list{wanted, list});
    if (behind == keyed.begin() || (behind - 1)->child_depth != wanted) {
        return std::nullopt;
    }
    const std::uint32_t found = (behind - 1)->ordinal;
    const bool has_one_row = ends_[found + 1] >= ends_[found];
    if (found == lists().front() && has_one_row) {
        return std::nullopt;
    }
    return found;
}

} // namespace sdb
