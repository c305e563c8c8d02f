#include "report/record.h"

#include <algorithm>

#include "sdb/tags.h"
#include "sdb/vocabulary.h"

namespace report {

namespace {

namespace tag = sdb::tag;
namespace type = sdb::type;

constexpr std::uint64_t list_header = 6;
constexpr std::uint64_t largest_record = 100'000;
constexpr std::uint64_t largest_listing = 1'000'000;
constexpr std::uint64_t listing_share_of_a_tag = 64;

} // namespace

bool is_list(const record_item& item)
{
    return sdb::tag_type(item.tag) == type::list;
}

record_expander::record_expander(const sdb::sdb_database& database)
    : database_(database), relation_(database.children()), on_chain_(database.tag_count())
{}

std::span<const record_item> record_expander::subrecord(std::size_t index) const noexcept
{
    const group& found = subrecords_[index];
    return std::span(pool_).subspan(found.first, found.last - found.first);
}

bool record_expander::expand(std::uint32_t tag_offset, bool follow_references,
                             std::uint64_t& listed_items)
{
    items_.clear();
    pool_.clear();
    subrecords_.clear();
    record_items_ = 0;
    const std::optional<std::uint32_t> ordinal = database_.ordinal_of(tag_offset);
    if (!ordinal) {
        return false;
    }
    head_ = item_of(*ordinal, 1);
    gather_descendants(*ordinal, 2);
    if (gathered_.empty()) {
        return false;
    }
    count_gathered(listed_items);
    split_gathered(items_, 0);
    while (!work_.empty()) {
        const group next = work_.back();
        work_.pop_back();
        walk_group(next, follow_references, listed_items);
    }
    enter_chain({0, 0, 0, false});
    return true;
}

record_item record_expander::item_of(std::uint32_t ordinal, std::uint16_t depth) const
{
    const std::uint32_t offset = database_.offset_at(ordinal);
    const std::uint16_t tag = database_.tag_at(ordinal);
    const std::uint32_t size =
        sdb::tag_type(tag) == type::list ? database_.image().u32(std::uint64_t{offset} + 2) : 0;
    return {offset, ordinal, size, tag, depth};
}

// Gathers all rows of the relation whose list starts in the span that the tag's size claims, in
// file order, at depths from `base_depth` on.
void record_expander::gather_descendants(std::uint32_t ordinal, std::uint16_t base_depth)
{
    gathered_.clear();
    const record_item self = item_of(ordinal, 0);
    const std::uint64_t last_key = std::uint64_t{self.offset} + self.list_size + list_header - 1;
    const std::uint32_t behind = database_.ordinal_from(last_key + 1);
    const std::uint32_t end = relation_.end(ordinal);
    if (end != behind) {
        gather_irregular(ordinal, behind, base_depth);
        return;
    }
    if (end == ordinal + 1) {
        return;
    }
    const auto shift = static_cast<std::uint16_t>(base_depth - relation_.depth(ordinal + 1));
    for (std::uint32_t row = ordinal + 1; row < end; ++row) {
        gathered_.push_back(item_of(row, static_cast<std::uint16_t>(relation_.depth(row) + shift)));
    }
}

// The same where what stands in the list is not what its size claims: damaged sizes, or a list that
// stayed open too long.
void record_expander::gather_irregular(std::uint32_t ordinal, std::uint32_t behind,
                                       std::uint16_t base_depth)
{
    std::uint16_t shift = 0;
    for (std::uint32_t list = ordinal; list < behind; ++list) {
        relation_.for_each_child(list, [&](std::uint32_t row) {
            if (gathered_.empty()) {
                shift = static_cast<std::uint16_t>(base_depth - relation_.depth(row));
            }
            gathered_.push_back(
                item_of(row, static_cast<std::uint16_t>(relation_.depth(row) + shift)));
        });
    }
    std::ranges::sort(gathered_, {}, &record_item::ordinal);
}

void record_expander::count_gathered(std::uint64_t& listed_items)
{
    record_items_ += gathered_.size();
    listed_items += gathered_.size();
}

// Takes the reference lists with all that stands in them out of what was gathered, each a group to
// be walked; the rest goes to `others`.
void record_expander::split_gathered(std::vector<record_item>& others, std::size_t chain_length)
{
    for (std::size_t i = 0; i < gathered_.size();) {
        const record_item& item = gathered_[i];
        if (!sdb::is_reference_list_tag(item.tag)) {
            others.push_back(item);
            ++i;
            continue;
        }
        const std::uint64_t limit = std::uint64_t{item.offset} + item.list_size + list_header;
        const std::size_t first = pool_.size();
        pool_.push_back(item);
        ++i;
        if (item.list_size >= list_header) {
            for (; i < gathered_.size() && gathered_[i].offset < limit; ++i) {
                pool_.push_back(gathered_[i]);
            }
        }
        work_.push_back({first, pool_.size(), chain_length, false});
    }
}

void record_expander::walk_group(const group& walked, bool follow_references,
                                 std::uint64_t& listed_items)
{
    subrecords_.push_back(walked);
    if (!follow_references) {
        return;
    }
    enter_chain(walked);
    for (std::size_t i = walked.first + 1; i < walked.last; ++i) {
        const record_item item = pool_[i];
        if (sdb::is_expanded_dword_tag(item.tag)) {
            follow(item, chain_.size(), listed_items);
        }
    }
}

void record_expander::follow(const record_item& reference, std::size_t chain_length,
                             std::uint64_t& listed_items)
{
    const std::uint64_t listing_limit =
        largest_listing + listing_share_of_a_tag * database_.tag_count();
    if (record_items_ > largest_record || listed_items > listing_limit) {
        return;
    }
    const std::uint32_t place = database_.item_at(reference.ordinal).value.u32(0);
    const std::optional<std::uint32_t> ordinal = database_.ordinal_of(place);
    if (!ordinal || is_on_chain(*ordinal)) {
        return;
    }
    gather_descendants(*ordinal, static_cast<std::uint16_t>(reference.depth + 1));
    if (gathered_.empty()) {
        return;
    }
    count_gathered(listed_items);
    others_.clear();
    others_.push_back(item_of(*ordinal, reference.depth));
    split_gathered(others_, chain_length + 1);
    const std::size_t first = pool_.size();
    pool_.insert(pool_.end(), others_.begin(), others_.end());
    work_.push_back({first, pool_.size(), chain_length, true});
}

// Groups are walked depth first, so the chain that leads to one is the present chain cut back to
// its length, with the group itself behind it when it is a followed record.
void record_expander::enter_chain(const group& walked)
{
    while (chain_.size() > walked.chain_length) {
        on_chain_[chain_.back()] = false;
        chain_.pop_back();
    }
    if (walked.is_followed) {
        chain_.push_back(pool_[walked.first].ordinal);
        on_chain_[chain_.back()] = true;
    }
}

bool record_expander::is_on_chain(std::uint32_t ordinal) const
{
    return ordinal == head_.ordinal || on_chain_[ordinal];
}

void record_groups::clear()
{
    items_.clear();
    group_of_.clear();
    counts_.clear();
    reachable_.clear();
    is_open_ = false;
    sorted_ = true;
}

void record_groups::add(const record_item& item)
{
    if (is_list(item)) {
        const auto group = static_cast<std::uint32_t>(counts_.size());
        counts_.push_back(0);
        while (!reachable_.empty() && reachable_.back().depth >= item.depth) {
            reachable_.pop_back();
        }
        reachable_.push_back({item.depth, group});
        is_open_ = true;
        open_depth_ = item.depth;
        append(item, group);
        return;
    }
    if (is_open_ && item.depth > open_depth_) {
        append(item, static_cast<std::uint32_t>(counts_.size() - 1));
        return;
    }
    is_open_ = false;
    const auto behind = std::ranges::lower_bound(reachable_, item.depth, {}, &depth_mark::depth);
    if (behind != reachable_.begin()) {
        append(item, (behind - 1)->group);
    }
}

void record_groups::append(const record_item& item, std::uint32_t group)
{
    sorted_ = sorted_ && (group_of_.empty() || group_of_.back() <= group);
    items_.push_back(item);
    group_of_.push_back(group);
    ++counts_[group];
}

void record_groups::finish()
{
    starts_.resize(counts_.size());
    std::uint32_t start = 0;
    for (std::size_t group = 0; group < counts_.size(); ++group) {
        starts_[group] = start;
        start += counts_[group];
    }
    if (sorted_) {
        return;
    }
    ordered_.resize(items_.size());
    std::vector<std::uint32_t> next = starts_;
    for (std::size_t i = 0; i < items_.size(); ++i) {
        ordered_[next[group_of_[i]]++] = items_[i];
    }
}

bool record_collector::collect(front::sdb_opts& options, std::uint32_t tag_offset)
{
    groups_.clear();
    if (options.no_results || !expander_.expand(tag_offset, true, options.listed_items)) {
        return false;
    }
    groups_.add(expander_.head());
    for (const record_item& item : expander_.items()) {
        groups_.add(item);
    }
    for (std::size_t i = 0; i < expander_.subrecord_count(); ++i) {
        for (const record_item& item : expander_.subrecord(i)) {
            groups_.add(item);
        }
    }
    groups_.finish();
    if (groups_.empty() || options.found_offsets.empty()) {
        return !groups_.empty();
    }
    return std::ranges::any_of(groups_.all_items(), [&](const record_item& item) {
        return std::ranges::binary_search(options.found_offsets, item.offset);
    });
}

bool has_substance(const record_groups& groups)
{
    const std::span<const record_item> first = groups[0];
    if (std::ranges::any_of(
            first, [](const record_item& item) { return sdb::is_expanded_dword_tag(item.tag); })) {
        return false;
    }
    return first.size() > 2 || first.front().tag == tag::inexclude || groups.size() > 1;
}

} // namespace report
