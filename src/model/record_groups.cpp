#include "model/record_groups.h"

#include <algorithm>
#include <utility>

namespace model {

void record_groups::clear()
{
    firsts_.clear();
    sizes_.clear();
    late_.clear();
    grown_.clear();
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
        sizes_.back() = static_cast<std::uint32_t>(i - first);
    }
}

void record_groups::start_group(const record_item& head)
{
    while (!reachable_.empty() && reachable_.back().depth >= head.depth) {
        reachable_.pop_back();
    }
    reachable_.push_back({head.depth, static_cast<std::uint32_t>(size())});
    firsts_.push_back(&head);
    sizes_.push_back(1);
    is_open_ = true;
}

void record_groups::reserve(std::size_t groups)
{
    firsts_.reserve(groups);
    sizes_.reserve(groups);
    reachable_.reserve(groups);
}

// A scalar that does not simply follow its list's others.
void record_groups::add_scalar(const record_item& item)
{
    if (is_open_ && item.depth > firsts_.back()->depth) {
        add_late(size() - 1, item);
        return;
    }
    is_open_ = false;
    const auto behind = std::ranges::lower_bound(reachable_, item.depth, {}, &depth_mark::depth);
    if (behind != reachable_.begin()) {
        add_late((behind - 1)->group, item);
    }
}

void record_groups::add_late(std::size_t group, const record_item& item)
{
    late_.push_back(
        {static_cast<std::uint32_t>(group), static_cast<std::uint32_t>(late_.size()), item});
}

void record_groups::finish()
{
    const auto in_order = [](const late_scalar& one) { return std::pair(one.group, one.number); };
    std::ranges::sort(late_, {}, in_order);
    std::size_t grown = late_.size();
    for (std::size_t i = 0; i < late_.size(); ++i) {
        const bool is_first = i == 0 || late_[i - 1].group != late_[i].group;
        grown += is_first ? sizes_[late_[i].group] : 0;
    }
    constexpr std::size_t very_many = 0x100000;
    if (late_.size() > very_many) {
        io::release(reachable_); // the moment at which a record takes most
    }
    grown_.reserve(grown); // so that nothing moves
    for (std::span<const late_scalar> rest = late_; !rest.empty();) {
        const auto end = std::ranges::find_if(
            rest, [&](const late_scalar& one) { return one.group != rest.front().group; });
        const auto count = static_cast<std::size_t>(end - rest.begin());
        grow_group(rest.first(count));
        rest = rest.subspan(count);
    }
}

void record_groups::grow_group(std::span<const late_scalar> late)
{
    const std::size_t group = late.front().group;
    const std::span<const record_item> old = (*this)[group];
    const std::size_t begin = grown_.size();
    grown_.insert(grown_.end(), old.begin(), old.end());
    for (const late_scalar& one : late) {
        grown_.push_back(one.item);
    }
    firsts_[group] = grown_.data() + begin;
    sizes_[group] = static_cast<std::uint32_t>(grown_.size() - begin);
}

} // namespace model
