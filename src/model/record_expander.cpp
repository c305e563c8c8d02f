#include "model/record_expander.h"

#include <algorithm>
#include <optional>

#include "sdb/vocabulary.h"

namespace model {

namespace {

constexpr std::uint64_t list_header = 6;
// No item is said in less.
constexpr std::uint64_t shortest_text_of_an_item = 8;

} // namespace

listing_budget::listing_budget(const sdb::sdb_database& database, const request::bounds& limits)
    : limit(limits.listing_items + limits.listing_items_of_a_tag * database.tag_count()),
      most_items(limit + limits.most_text(database.image().size()) / shortest_text_of_an_item),
      bounds(limits)
{}

std::span<const record_item> record_expander::subrecord(std::size_t index) const noexcept
{
    return items_of(subrecords_[index]);
}

std::span<const record_item> record_expander::items_of(const group& found) const noexcept
{
    return found.is_followed
               ? bodies(found.first, found.last)
               : std::span(references_).subspan(found.first, found.last - found.first);
}

bool record_expander::expand(std::uint32_t tag_offset, bool follow_references,
                             listing_budget& budget)
{
    bodies_.clear();
    references_.clear();
    subrecords_.clear();
    own_count_ = 0;
    const std::optional<sdb::tag_ordinal> ordinal = database_.ordinal_of(tag_offset);
    if (!ordinal) {
        return false;
    }
    if (relation_ == nullptr) {
        relation_ = &database_.children();
    }
    const record_item head = item_of(*ordinal, 1);
    bodies_.push_back(head);
    record_items_ = gather(head, 2, 0);
    budget.items += record_items_;
    own_count_ = bodies_.size();
    while (!work_.empty()) {
        const group next = work_.back();
        work_.pop_back();
        walk_group(next, follow_references, budget);
    }
    return record_items_ != 0;
}

record_item record_expander::item_of(sdb::tag_ordinal ordinal, std::uint16_t depth) const
{
    return {database_.offset_at(ordinal), ordinal, database_.tag_at(ordinal), depth};
}

std::uint32_t record_expander::list_size(const record_item& item) const
{
    return database_.list_size_at(item.ordinal);
}

// Gathers all rows of the relation whose list starts in the span that the head's size claims, in
// file order, at depths from `base_depth` on. Reference lists with all that stands in them become
// groups to be walked; the rest goes behind bodies_. Gives the number of rows.
std::size_t record_expander::gather(const record_item& head, std::uint16_t base_depth,
                                    std::size_t chain_length)
{
    const std::uint64_t last_key = std::uint64_t{head.offset} + list_size(head) + list_header - 1;
    const sdb::tag_ordinal first = head.ordinal.next();
    const sdb::tag_ordinal end = relation_->end(head.ordinal);
    const sdb::tag_ordinal last(end.number() - 1);
    const bool ends_in_span = database_.offset_at(last) <= last_key;
    const bool goes_on_behind =
        end.number() == database_.tag_count() || database_.offset_at(end) > last_key;
    if (!ends_in_span || !goes_on_behind) {
        return gather_irregular(head.ordinal, database_.ordinal_from(last_key + 1), base_depth,
                                chain_length);
    }
    if (end == first) {
        return 0;
    }
    const auto shift = static_cast<std::uint16_t>(base_depth - relation_->depth(first));
    return split_rows(
        end - first,
        [&](std::size_t row) {
            const sdb::tag_ordinal ordinal(first.number() + static_cast<std::uint32_t>(row));
            return item_of(ordinal, static_cast<std::uint16_t>(relation_->depth(ordinal) + shift));
        },
        chain_length);
}

// The same where what stands in the list is not what its size claims: damaged sizes, or a list that
// stayed open too long.
std::size_t record_expander::gather_irregular(sdb::tag_ordinal list, sdb::tag_ordinal behind,
                                              std::uint16_t base_depth, std::size_t chain_length)
{
    std::vector<sdb::tag_ordinal> rows;
    for (; list < behind; ++list) {
        relation_->for_each_child(list, [&](sdb::tag_ordinal row) { rows.push_back(row); });
    }
    if (rows.empty()) {
        return 0;
    }
    const auto shift = static_cast<std::uint16_t>(base_depth - relation_->depth(rows.front()));
    std::ranges::sort(rows);
    return split_rows(
        rows.size(),
        [&](std::size_t row) {
            return item_of(rows[row],
                           static_cast<std::uint16_t>(relation_->depth(rows[row]) + shift));
        },
        chain_length);
}

template <typename source>
std::size_t record_expander::split_rows(std::size_t count, source&& row, std::size_t chain_length)
{
    std::size_t kept = bodies_.size();
    bodies_.resize(kept + count);
    for (std::size_t i = 0; i < count;) {
        record_item item = row(i++);
        if (!sdb::is_reference_list_tag(item.tag)) {
            bodies_[kept++] = item;
            continue;
        }
        const std::uint32_t size = list_size(item);
        const std::uint64_t limit = std::uint64_t{item.offset} + size + list_header;
        const std::size_t first = references_.size();
        references_.push_back(item);
        while (size >= list_header && i < count && (item = row(i)).offset < limit) {
            references_.push_back(item);
            ++i;
        }
        work_.push_back({first, references_.size(), chain_length, false});
    }
    bodies_.resize(kept);
    return count;
}

void record_expander::walk_group(const group& walked, bool follow_references,
                                 listing_budget& budget)
{
    subrecords_.push_back(walked);
    if (!follow_references) {
        return;
    }
    // Groups are walked depth first, so what leads to this one is still the chain's beginning.
    chain_.resize(walked.chain_length);
    if (walked.is_followed) {
        chain_.push_back(items_of(walked).front().ordinal);
    }
    const std::size_t count = walked.last - walked.first;
    for (std::size_t i = 1; i < count; ++i) {
        const record_item item = items_of(walked)[i];
        if (sdb::is_expanded_dword_tag(item.tag)) {
            follow(item, budget);
        }
    }
}

void record_expander::follow(const record_item& reference, listing_budget& budget)
{
    if (chain_.size() >= budget.bounds.followed_records ||
        record_items_ > budget.bounds.record_items || budget.is_used_up()) {
        return;
    }
    const std::optional<sdb::tag_ordinal> ordinal =
        database_.ordinal_of(database_.word_behind(reference.offset));
    if (!ordinal || is_open(*ordinal)) {
        return;
    }
    const record_item head = item_of(*ordinal, reference.depth);
    const std::size_t first = bodies_.size();
    bodies_.push_back(head);
    const std::size_t gathered =
        gather(head, static_cast<std::uint16_t>(reference.depth + 1), chain_.size() + 1);
    if (gathered == 0) {
        bodies_.pop_back();
        return;
    }
    record_items_ += gathered;
    budget.items += gathered;
    work_.push_back({first, bodies_.size(), chain_.size(), true});
}

bool record_expander::is_open(sdb::tag_ordinal ordinal) const
{
    return ordinal == bodies_.front().ordinal || std::ranges::find(chain_, ordinal) != chain_.end();
}

} // namespace model
