#include "model/record_collector.h"

#include <algorithm>

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

bool record_collector::gather(listing_budget& budget, std::uint32_t tag_offset)
{
    groups_.clear();
    groups_.reserve(database_.children().lists().size());
    if (!expander_.expand(tag_offset, true, budget)) {
        return false;
    }
    groups_.add(expander_.own_items());
    for (std::size_t i = 0; i < expander_.subrecord_count(); ++i) {
        groups_.add(expander_.subrecord(i));
    }
    groups_.finish();
    return !groups_.empty();
}

bool record_collector::collect(search& wanted, listing_budget& budget, std::uint32_t tag_offset)
{
    const std::optional<sdb::tag_ordinal> ordinal = database_.ordinal_of(tag_offset);
    return ordinal && wanted.may_pass(*ordinal) && gather(budget, tag_offset) &&
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
