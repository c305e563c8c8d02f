#include "model/record_groups.h"

#include <algorithm>

#include "platform/memory.h"

namespace model {

void record_groups::clear()
{
    firsts_.clear();
    sizes_.clear();
    late_.clear();
    grown_.clear();
    reachable_.clear();
    folded_.clear();
    foldable_.clear();
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

// What comes behind it is a list that is no deeper, so that no scalar finds its groups.
void record_groups::add(const folded_record& folded)
{
    folded_.push_back({size(), &folded});
    firsts_.push_back(folded.items.data());
    sizes_.push_back(folded.group_sizes.front());
    is_open_ = false;
}

const folded_record* record_groups::folded(std::size_t group) const noexcept
{
    const auto found = std::ranges::lower_bound(folded_, group, {}, &folded_group::group);
    return found != folded_.end() && found->group == group ? found->folded : nullptr;
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
    if (!late_.empty() && late_.back().group == group &&
        late_.back().first + late_.back().count == &item) {
        ++late_.back().count;
    } else {
        late_.push_back({&item, 1, static_cast<std::uint32_t>(group)});
    }
}

// Gives the memory of what was taken from a large array back.
void record_groups::forget(auto taken)
{
    constexpr std::size_t worth_it = 0x10000;
    if (taken.size_bytes() >= worth_it) {
        platform::forget(taken.data(), taken.size_bytes());
    }
}

void record_groups::finish(const record_expander* source)
{
    source_ = source;
    if (late_.empty()) {
        return;
    }
    late_items_.assign(size(), 0);
    for (const late_run& late : late_) {
        late_items_[late.group] += late.count;
    }
    constexpr std::size_t very_many = 0x100000;
    if (size() > very_many) {
        io::release(reachable_); // the moment at which a record takes most
    }
    make_room();
    // What was taken is given back as it goes, so that it does not stand twice.
    constexpr std::size_t block = 0x4000;
    for (std::span<const late_run> rest = late_; !rest.empty();) {
        const auto taken = rest.first(std::min(block, rest.size()));
        rest = rest.subspan(taken.size());
        for (const late_run& late : taken) {
            take(late);
        }
        forget(taken);
    }
}

void record_groups::take(const late_run& late)
{
    constexpr std::size_t block = 0x10000;
    for (std::span<const record_item> rest = late.items(); !rest.empty();) {
        const auto items = rest.first(std::min(block, rest.size()));
        rest = rest.subspan(items.size());
        append(late.group, items);
        if (late.count > block) {
            forget(items);
        }
    }
}

// Moves the groups that take late scalars to where there is room for these behind each.
void record_groups::make_room()
{
    std::size_t grown = 0;
    for (std::size_t group = 0; group < size(); ++group) {
        grown += late_items_[group] != 0 ? sizes_[group] + late_items_[group] : 0;
    }
    grown_.resize(grown);
    record_item* place = grown_.data();
    for (std::size_t group = 0; group < size(); ++group) {
        if (late_items_[group] != 0) {
            const std::span<const record_item> old = (*this)[group];
            firsts_[group] = place;
            sizes_[group] = 0;
            append(group, old);
            place += old.size() + late_items_[group];
        }
    }
}

void record_groups::append(std::size_t group, std::span<const record_item> items)
{
    record_item* const place = grown_.data() + (firsts_[group] - grown_.data());
    std::ranges::copy(items, place + sizes_[group]);
    sizes_[group] += static_cast<std::uint32_t>(items.size());
}

} // namespace model
