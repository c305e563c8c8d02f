#include "model/record_groups.h"

#include <algorithm>

namespace model {

void record_groups::clear()
{
    groups_.clear();
    copied_.clear();
    reachable_.clear();
    is_open_ = false;
}

void record_groups::add(std::span<const record_item> items)
{
    for (std::size_t i = 0; i < items.size();) {
        if (!is_list(items[i])) {
            add_scalar(items[i++]);
            continue;
        }
        const std::size_t first = i++;
        start_group(items[first]);
        while (i < items.size() && !is_list(items[i]) && items[i].depth > items[first].depth) {
            ++i;
        }
        groups_.back() = items.subspan(first, i - first);
    }
}

void record_groups::start_group(const record_item& head)
{
    while (!reachable_.empty() && reachable_.back().depth >= head.depth) {
        reachable_.pop_back();
    }
    reachable_.push_back({head.depth, groups_.size()});
    groups_.emplace_back();
    is_open_ = true;
}

// A scalar that does not simply follow its list's others.
void record_groups::add_scalar(const record_item& item)
{
    if (is_open_ && item.depth > groups_.back().front().depth) {
        append(groups_.size() - 1, item);
        return;
    }
    is_open_ = false;
    const auto behind = std::ranges::lower_bound(reachable_, item.depth, {}, &depth_mark::depth);
    if (behind != reachable_.begin()) {
        append((behind - 1)->group, item);
    }
}

void record_groups::append(std::size_t group, const record_item& item)
{
    const auto [copy, is_new] = copied_.try_emplace(group);
    if (is_new) {
        copy->second.assign(groups_[group].begin(), groups_[group].end());
    }
    copy->second.push_back(item);
    groups_[group] = copy->second;
}

} // namespace model
