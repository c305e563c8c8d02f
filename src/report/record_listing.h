#pragma once

#include <cstddef>
#include <cstdint>
#include <set>
#include <span>

#include "model/record_collector.h"
#include "report/job.h"
#include "uni/thread_allowance.h"

namespace report {

// Prints records of one database into one form, as one listing: their items together are bounded.
class record_listing {
public:
    // Of `threads` those that are to spare help with what is long.
    record_listing(const sdb::sdb_database& database, model::search& search, form::writer& form,
                   uni::thread_allowance* threads = nullptr)
        : database_(database), search_(search), form_(form), threads_(threads),
          budget_(database, search.bounds()), collector_(database)
    {}

    // Lists all records with that tag; answers whether one was printed.
    bool list_tag(std::uint16_t tag);
    // Prints the record at `tag_offset`; answers whether it passed the search and was printed.
    bool print_record(std::uint32_t tag_offset);
    // Prints the records of these ordinals, all lists of one tag or all no lists; answers whether
    // one was printed.
    bool print_records(std::span<const sdb::tag_ordinal> ordinals);

    model::listing_budget& budget() noexcept { return budget_; }
    // Tells what the records do not show for the bounds.
    void say_what_is_missing(const job& work) const;

private:
    bool print_stretches(std::span<const sdb::tag_ordinal> ordinals);

    const sdb::sdb_database& database_;
    model::search& search_;
    form::writer& form_;
    uni::thread_allowance* threads_;
    model::listing_budget budget_;
    model::record_collector collector_;
};

// Lists records tag by tag, each tag's as a section; answers whether there were any.
bool list_tags(const job& work, const std::set<std::uint16_t>& tags);
// The section of one tag, which stands even if it is empty.
bool list_one_tag(const job& work, std::uint16_t tag);

// The tags of the records that a listing of applications runs over, ascending: lists that stand in
// the database list, but for the library and layers.
std::set<std::uint16_t> application_tags(const sdb::sdb_database& database);

// The same for fixes: lists in the library, but for include and exclude lists, and layers in the
// database list.
std::set<std::uint16_t> fix_tags(const sdb::sdb_database& database);

} // namespace report
