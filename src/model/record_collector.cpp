#include "model/record_collector.h"

#include <algorithm>

#include "sdb/tags.h"
#include "sdb/vocabulary.h"

namespace model {

namespace {

// Whether every list of a database holds exactly what its size claims, and none is a reference list
// too small for the size that makes it keep what stands in it.
bool has_sound_lists(const sdb::sdb_database& database)
{
    constexpr std::uint32_t list_header = 6;
    return std::ranges::all_of(
        database.children().lists(), [&](const sdb::tag_table::list_row& list) {
            const std::uint32_t size = sdb::is_reference_list_tag(list.tag)
                                           ? database.word_behind(database.offset_at(list.ordinal))
                                           : list_header;
            return list.is_exact() && (size == 0 || size >= list_header);
        });
}

} // namespace

bool record_collector::gather(listing_budget& budget, std::uint32_t tag_offset,
                              folded_records* folds)
{
    groups_.clear();
    groups_.reserve(database_.children().lists().size());
    if (!expander_.expand(tag_offset, true, budget, folds)) {
        return false;
    }
    groups_.add(expander_.own_items());
    if (folds != nullptr) {
        group_subrecords(*folds, budget);
    } else {
        for (std::size_t i = 0; i < expander_.subrecord_count(); ++i) {
            groups_.add(expander_.subrecord(i));
        }
    }
    groups_.finish(&expander_);
    return !groups_.empty();
}

// Groups the sub-records, and notes of which followed records it is worth keeping what is made of them.
void record_collector::group_subrecords(folded_records& folds, const listing_budget& budget)
{
    // Where references were left or a list was not gathered, a record may be another elsewhere.
    const bool may_note = !budget.left_references && !budget.was_too_large;
    const std::size_t count = expander_.subrecord_count();
    chain_.assign(1, expander_.own_items().front().offset);
    std::optional<std::size_t>
        noted; // the followed record that is being grouped, with all it leads to
    std::size_t first_group = 0;
    for (std::size_t i = 0; i <= count; ++i) {
        if (noted && (i == count || expander_.chain_length(i) <= expander_.chain_length(*noted))) {
            note_foldable(*noted, i, {first_group, groups_.size(), {}});
            noted.reset();
        }
        if (i == count) {
            break;
        }
        if (const folded_record* const folded = expander_.folded(i)) {
            groups_.add(*folded);
            continue;
        }
        const std::span<const record_item> items = expander_.subrecord(i);
        if (!noted && may_note && expander_.is_followed(i) &&
            folds.is_wanted(items.front().offset, items.front().depth)) {
            chain_.resize(1 + expander_.chain_length(i));
            noted = i;
            first_group = groups_.size();
        } else if (!noted && expander_.is_followed(i)) {
            chain_.resize(1 + expander_.chain_length(i));
            chain_.push_back(items.front().offset);
        }
        groups_.add(items);
    }
}

// Takes note of the groups of a followed record, which is one sub-record up to another.
void record_collector::note_foldable(std::size_t subrecord, std::size_t end, foldable_groups groups)
{
    if (expander_.stands_apart(subrecord, end - 1) && describe(groups.fold, subrecord, end)) {
        groups_.note(std::move(groups));
    }
}

// What is to be known of a followed record so that it may stand elsewhere. False for one that depends
// on where it stands: on the records that lead to it, or, by what its texts stand for, on their names.
bool record_collector::describe(folded_record& fold, std::size_t subrecord, std::size_t end) const
{
    const record_item head = expander_.subrecord(subrecord).front();
    if (!is_list(head)) {
        return false;
    }
    const std::size_t chain_length = expander_.chain_length(subrecord);
    fold.record = head.offset;
    fold.depth = head.depth;
    const auto note_target = [&](std::uint32_t target) {
        constexpr std::size_t most_targets = 64;
        if (std::ranges::find(fold.targets, target) == fold.targets.end()) {
            fold.targets.push_back(target);
        }
        return fold.targets.size() <= most_targets &&
               std::ranges::find(chain_, target) == chain_.end();
    };
    for (std::size_t i = subrecord; i < end; ++i) {
        const folded_record* const folded = expander_.folded(i);
        const std::size_t above = expander_.chain_length(i) - chain_length;
        const auto note_height = [&](std::size_t height) {
            fold.height = std::max(fold.height, static_cast<std::uint16_t>(height));
        };
        if (folded != nullptr) {
            note_height(above + folded->height);
            fold.gathered += folded->gathered;
            if (!std::ranges::all_of(folded->targets, note_target)) {
                return false;
            }
            continue;
        }
        const std::span<const record_item> items = expander_.subrecord(i);
        fold.gathered += items.size() - (expander_.is_followed(i) ? 1 : 0);
        for (const record_item& item : items) {
            if (sdb::is_expanded_dword_tag(item.tag)) {
                note_height(above + (expander_.is_followed(i) ? 1 : 0));
            }
            const bool is_head = &item == items.data() && i == subrecord;
            if ((!is_head && item.depth <= head.depth) || item.tag == sdb::tag::matching_file ||
                (sdb::is_expanded_dword_tag(item.tag) &&
                 !note_target(database_.word_behind(item.offset)))) {
                return false;
            }
        }
    }
    return true;
}

bool record_collector::collect(search& wanted, listing_budget& budget, std::uint32_t tag_offset,
                               folded_records* folds)
{
    const std::optional<sdb::tag_ordinal> ordinal = database_.ordinal_of(tag_offset);
    return ordinal && wanted.may_pass(*ordinal) &&
           gather(budget, tag_offset, wanted.is_asked_for() ? nullptr : folds) &&
           wanted.passes(groups_);
}

bool record_collector::collect_first_group(listing_budget& budget, std::uint32_t tag_offset)
{
    const std::optional<sdb::tag_ordinal> ordinal = database_.ordinal_of(tag_offset);
    if (!lists_are_sound_) {
        lists_are_sound_ = has_sound_lists(database_);
    }
    const bool takes_own_scalars = *lists_are_sound_ || budget.is_used_up();
    if (ordinal && takes_own_scalars && database_.children().has_children(*ordinal)) {
        take_first_group(*ordinal);
        groups_are_exact_ &= *lists_are_sound_;
        return true;
    }
    if (budget.is_exhausted()) {
        groups_are_exact_ = false;
        return false;
    }
    if (!gather(budget, tag_offset)) {
        return false;
    }
    first_group_.assign(groups_[0].begin(), groups_[0].end());
    has_one_group_ = groups_.size() == 1;
    return true;
}

// Where all lists hold what their sizes claim, a record's first group is its head with the scalars
// that stand in it, and every list in it starts another one.
void record_collector::take_first_group(sdb::tag_ordinal ordinal)
{
    const std::uint32_t offset = database_.offset_at(ordinal);
    first_group_.clear();
    first_group_.push_back({offset, database_.tag_at(ordinal), 1});
    has_one_group_ = true;
    database_.for_each_child(offset, [&](std::uint32_t child, std::uint16_t tag) {
        if (sdb::tag_type(tag) == sdb::type::list) {
            has_one_group_ = false;
        } else {
            first_group_.push_back({child, tag, 2});
        }
    });
}

} // namespace model
