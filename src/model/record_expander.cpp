#include "model/record_expander.h"

#include <algorithm>
#include <optional>

#include "sdb/vocabulary.h"

namespace model {

namespace {

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
    return found.is == kind::followed
               ? bodies(found.first, found.last)
               : std::span(references_).subspan(found.first, found.last - found.first);
}

record_item record_expander::head(std::size_t index) const noexcept
{
    const folded_record* const folded = this->folded(index);
    return folded != nullptr ? folded->items.front() : subrecord(index).front();
}

subrecord_place record_expander::place_of(std::size_t index) const noexcept
{
    const group& found = subrecords_[index];
    switch (found.is) {
    case kind::followed:
        return {true, found.chain_length, bodies_[found.first - 1].offset};
    case kind::folded:
        return {true, found.chain_length, used_[found.first].reference};
    default:
        return {false, found.chain_length, references_[found.first].offset};
    }
}

bool record_expander::stands_apart(std::size_t index, std::size_t last) const noexcept
{
    if (last + 1 == subrecords_.size()) {
        return true;
    }
    const record_item next = head(last + 1);
    return is_list(next) && next.depth <= head(index).depth;
}

bool record_expander::expand(std::uint32_t tag_offset, bool follow_references,
                             listing_budget& budget, const folded_records* known)
{
    const std::optional<sdb::tag_ordinal> ordinal = database_.ordinal_of(tag_offset);
    if (ordinal && relation_ == nullptr) {
        relation_ = &database_.children();
        reserve_room(relation_->lists().size());
    }
    bodies_.clear();
    own_count_ = 0;
    subrecords_.clear();
    if (!ordinal) {
        return false;
    }
    known_ = known;
    const std::uint64_t items_before = budget.items;
    const bool had_left = budget.left_references;
    if (gather_all(*ordinal, follow_references, budget) && !fits_the_folds(budget)) {
        known_ = nullptr;
        budget.items = items_before;
        budget.left_references = had_left;
        gather_all(*ordinal, follow_references, budget);
    }
    return record_items_ != 0;
}

bool record_expander::gather_all(sdb::tag_ordinal head, bool follow_references,
                                 listing_budget& budget)
{
    bodies_.clear();
    references_.clear();
    subrecords_.clear();
    used_.clear();
    bodies_.push_back(item_of(head, 1));
    record_items_ = gather(head, 2, 0, budget);
    budget.items += record_items_;
    own_count_ = bodies_.size();
    while (!work_.empty()) {
        const group next = work_.back();
        work_.pop_back();
        walk_group(next, follow_references, budget);
    }
    constexpr std::uint64_t very_many = 0x100000;
    if (record_items_ > very_many) { // what is made of it needs the memory
        io::release(work_);
        io::release(open_ends_);
    }
    return record_items_ != 0;
}

// Whether the folded records of the record stand as they do elsewhere: nothing hangs from them, and no
// reference was left for want of room, which is counted in another order without them.
bool record_expander::fits_the_folds(const listing_budget& budget) const
{
    if (used_.empty()) {
        return true;
    }
    for (std::size_t i = 0; i < subrecords_.size(); ++i) {
        if (subrecords_[i].is == kind::folded && !stands_apart(i, i)) {
            return false;
        }
    }
    return record_items_ <= budget.bounds.record_items && !budget.is_used_up();
}

// What is never used of a large array takes no memory, and one that never grows is never copied.
void record_expander::reserve_room(std::size_t lists)
{
    bodies_.reserve(database_.tag_count());
    references_.reserve(database_.tag_count());
    work_.reserve(lists);
    subrecords_.reserve(lists);
    open_ends_.reserve(lists);
}

record_item record_expander::item_of(sdb::tag_ordinal ordinal, std::uint16_t depth) const
{
    const std::uint32_t offset = database_.offset_at(ordinal);
    return {offset, database_.tag_from(offset), depth};
}

// Gathers all rows of the relation whose list starts in the span that the head's size claims, in
// file order, at depths from `base_depth` on. Reference lists with all that stands in them become
// groups to be walked; the rest goes behind bodies_. Gives the number of rows.
std::size_t record_expander::gather(sdb::tag_ordinal head, std::uint16_t base_depth,
                                    std::size_t chain_length, listing_budget& budget)
{
    const std::uint32_t offset = database_.offset_at(head);
    const std::uint64_t last_key =
        std::uint64_t{offset} + database_.list_size_from(offset) + sdb::tag_header - 1;
    const sdb::tag_ordinal end = relation_->end(head);
    const sdb::tag_ordinal last(end.number() - 1);
    const bool ends_in_span = database_.offset_at(last) <= last_key;
    const bool goes_on_behind =
        end.number() == database_.tag_count() || database_.offset_at(end) > last_key;
    const sdb::tag_ordinal behind = database_.ordinal_from(last_key + 1);
    if (std::max(end, behind) - head > budget.largest_list) {
        budget.was_too_large = true;
        return 0;
    }
    return ends_in_span && goes_on_behind
               ? gather_run(head.next(), end, base_depth, chain_length)
               : gather_irregular(head, behind, base_depth, chain_length);
}

// The tags that stand in the list before `first`.
std::size_t record_expander::gather_run(sdb::tag_ordinal first, sdb::tag_ordinal end,
                                        std::uint16_t base_depth, std::size_t chain_length)
{
    open_ends_.clear();
    const auto lists = relation_->lists_in(first, end);
    auto list = lists.begin();
    return split_rows(end - first, chain_length, [&](auto&& take_row) {
        for (sdb::tag_ordinal ordinal = first; ordinal < end; ordinal = ordinal.next()) {
            while (!open_ends_.empty() && open_ends_.back() <= ordinal) {
                open_ends_.pop_back();
            }
            take_row(ordinal, static_cast<std::uint16_t>(base_depth + open_ends_.size()));
            if (list != lists.end() && list->ordinal == ordinal) {
                if (list->has_children()) {
                    open_ends_.push_back(list->end());
                }
                ++list;
            }
        }
    });
}

// The same where what stands in the list is not what its size claims: damaged sizes, or a list that
// stayed open too long. The tags belong to it whose own list begins before `behind`.
std::size_t record_expander::gather_irregular(sdb::tag_ordinal first_list, sdb::tag_ordinal behind,
                                              std::uint16_t base_depth, std::size_t chain_length)
{
    io::roomy_vector<const sdb::tag_table::list_row*> open;
    sdb::tag_ordinal end = behind; // of what may belong to it
    for (const sdb::tag_table::list_row& list : relation_->lists_in(first_list, behind)) {
        end = std::max(end, list.end());
    }
    std::optional<std::uint16_t> shift;
    return split_rows(end - first_list, chain_length, [&](auto&& take_row) {
        for (sdb::tag_ordinal ordinal = first_list; ordinal < end;) {
            while (!open.empty() && open.back()->end() <= ordinal) {
                open.pop_back();
            }
            if (!open.empty()) {
                const std::uint16_t depth = open.back()->depth_inside();
                shift = shift.value_or(static_cast<std::uint16_t>(base_depth - depth));
                take_row(ordinal, static_cast<std::uint16_t>(depth + *shift));
            }
            const sdb::tag_table::list_row* const list = relation_->list(ordinal);
            if (list == nullptr || !list->has_children()) {
                ordinal = ordinal.next();
            } else if (ordinal < behind) {
                open.push_back(list);
                ordinal = ordinal.next();
            } else {
                ordinal = list->end();
            }
        }
    });
}

// Takes rows in file order, at most so many, and gives their number.
std::size_t record_expander::split_rows(std::size_t most, std::size_t chain_length,
                                        auto&& for_each_row)
{
    std::size_t kept = bodies_.size();
    bodies_.resize(kept + most);
    std::size_t count = 0;
    std::uint64_t reference_end = 0; // of the reference list that the rows are in
    for_each_row([&](sdb::tag_ordinal ordinal, std::uint16_t depth) {
        const record_item item = item_of(ordinal, depth);
        ++count;
        if (item.offset < reference_end) {
            references_.push_back(item);
            work_.back().last = static_cast<std::uint32_t>(references_.size());
        } else if (sdb::is_reference_list_tag(item.tag)) {
            const std::uint32_t size = database_.word_behind(item.offset);
            reference_end =
                size >= sdb::tag_header ? std::uint64_t{item.offset} + size + sdb::tag_header : 0;
            references_.push_back(item);
            work_.push_back(
                group(references_.size() - 1, references_.size(), chain_length, kind::references));
        } else {
            bodies_[kept++] = item;
        }
    });
    bodies_.resize(kept);
    return count;
}

void record_expander::walk_group(const group& walked, bool follow_references,
                                 listing_budget& budget)
{
    subrecords_.push_back(walked);
    if (!follow_references || walked.is == kind::folded) {
        return;
    }
    // Groups are walked depth first, so what leads to this one is still the chain's beginning.
    chain_.resize(walked.chain_length);
    if (walked.is == kind::followed) {
        chain_.push_back(items_of(walked).front().offset);
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
    const std::uint32_t target = database_.word_behind(reference.offset);
    const std::optional<sdb::tag_ordinal> ordinal = database_.ordinal_of(target);
    if (!ordinal || is_open(target)) {
        return;
    }
    if (chain_.size() >= budget.bounds.followed_records ||
        record_items_ > budget.bounds.record_items || budget.is_used_up()) {
        budget.left_references = true;
        return;
    }
    if (const folded_record* const folded =
            known_ == nullptr ? nullptr : known_->find(target, reference.depth);
        folded != nullptr && stands_as_it_is(*folded, budget)) {
        record_items_ += folded->gathered;
        budget.items += folded->gathered;
        work_.push_back(group(used_.size(), 0, chain_.size(), kind::folded));
        used_.push_back({folded, reference.offset});
        return;
    }
    bodies_.push_back(reference);
    const std::size_t first = bodies_.size();
    bodies_.push_back(item_of(*ordinal, reference.depth));
    const std::size_t gathered = gather(*ordinal, static_cast<std::uint16_t>(reference.depth + 1),
                                        chain_.size() + 1, budget);
    if (gathered == 0) {
        bodies_.resize(first - 1);
        return;
    }
    record_items_ += gathered;
    budget.items += gathered;
    work_.push_back(group(first, bodies_.size(), chain_.size(), kind::followed));
}

// Whether all that a folded record leads to would be followed here too.
bool record_expander::stands_as_it_is(const folded_record& folded,
                                      const listing_budget& budget) const
{
    return chain_.size() + 1 + folded.height <= budget.bounds.followed_records &&
           std::ranges::none_of(folded.targets,
                                [this](std::uint32_t target) { return is_open(target); });
}

bool record_expander::is_open(std::uint32_t record) const
{
    return record == bodies_.front().offset || std::ranges::find(chain_, record) != chain_.end();
}

} // namespace model
