#include "model/search.h"

#include <algorithm>

#include "sdb/finders.h"
#include "sdb/vocabulary.h"

namespace model {

search_sieve::search_sieve(const sdb::sdb_database& database,
                           std::span<const std::uint32_t> found_offsets,
                           std::size_t followed_records)
    : database_(database)
{
    for (const std::uint32_t offset : found_offsets) {
        if (const auto ordinal = database.ordinal_of(offset)) {
            hits_.push_back(*ordinal);
        }
    }
    // A reference to a record that holds a hit is a hit itself, as far as references are followed.
    struct reference {
        sdb::tag_ordinal ordinal;
        sdb::tag_ordinal target;
    };
    std::vector<reference> rest;
    for (const sdb::tag_table::reference& one : database.children().references()) {
        if (const auto target = database.ordinal_of(one.target)) {
            rest.push_back({one.ordinal, *target});
        }
    }
    for (std::size_t round = 0; round < followed_records; ++round) {
        note_spanning_lists();
        const auto leads_to_hit =
            std::partition(rest.begin(), rest.end(),
                           [this](const reference& one) { return !may_hold_hit(one.target); });
        if (leads_to_hit == rest.end()) {
            return;
        }
        std::for_each(leads_to_hit, rest.end(),
                      [this](const reference& one) { hits_.push_back(one.ordinal); });
        rest.erase(leads_to_hit, rest.end());
        std::ranges::sort(hits_);
    }
    note_spanning_lists();
}

// Notes the lists in which a hit stands, and those that claim more than they hold: there gathering
// may reach further.
void search_sieve::note_spanning_lists()
{
    spanning_lists_.clear();
    auto hit = hits_.begin();
    for (const sdb::tag_table::list_row& list : database_.children().lists()) {
        while (hit != hits_.end() && *hit < list.ordinal) {
            ++hit;
        }
        const bool holds_hit = hit != hits_.end() && *hit < list.end();
        if (holds_hit || (!list.is_exact() && claims_more(list.ordinal))) {
            spanning_lists_.push_back(list.ordinal);
        }
    }
}

// Whether a tag, with a list's head, claims more than it holds.
bool search_sieve::claims_more(sdb::tag_ordinal ordinal) const
{
    const sdb::tag_ordinal end = database_.children().end(ordinal);
    const std::uint64_t claimed_end =
        database_.offset_at(ordinal) +
        std::uint64_t{database_.list_size_from(database_.offset_at(ordinal))} + sdb::tag_header;
    return end.number() != database_.tag_count() && database_.offset_at(end) < claimed_end;
}

bool search_sieve::may_hold_hit(sdb::tag_ordinal record) const
{
    return may_list_hold_hit(record) ||
           (sdb::tag_type(database_.tag_at(record)) != sdb::type::list &&
            (claims_more(record) || std::ranges::binary_search(hits_, record)));
}

bool search_sieve::may_list_hold_hit(sdb::tag_ordinal list) const
{
    return std::ranges::binary_search(spanning_lists_, list);
}

void search::run()
{
    if (was_run_) {
        return;
    }
    was_run_ = true;
    if (!wanted_.strings.empty()) {
        finds_nothing_ = !sdb::find_strings(database_, found_, wanted_.strings);
    } else if (!wanted_.guid.empty()) {
        finds_nothing_ = !sdb::find_guid(database_, found_, wanted_.guid);
    } else {
        // No id is checked against the database: one that is no tag's place finds nothing.
        found_ = wanted_.tagids;
        std::ranges::sort(found_);
        found_.erase(std::unique(found_.begin(), found_.end()), found_.end());
    }
    if (!found_.empty()) {
        sieve_.emplace(database_, found_, bounds_.followed_records);
    }
}

bool search::finds_nothing()
{
    run();
    return finds_nothing_;
}

bool search::may_pass(sdb::tag_ordinal record)
{
    run();
    return !finds_nothing_ && (!sieve_ || sieve_->may_hold_hit(record));
}

bool search::may_list_pass(sdb::tag_ordinal list)
{
    run();
    return !finds_nothing_ && (!sieve_ || sieve_->may_list_hold_hit(list));
}

bool search::passes(const record_groups& groups)
{
    run();
    if (found_.empty()) {
        return !finds_nothing_;
    }
    const auto is_found = [this](const record_item& item) {
        return std::ranges::binary_search(found_, item.offset);
    };
    for (std::size_t group = 0; group < groups.size(); ++group) {
        if (std::ranges::any_of(groups[group], is_found)) {
            return true;
        }
    }
    return false;
}

} // namespace model
