#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "model/record_expander.h"
#include "model/record_groups.h"
#include "model/search.h"
#include "sdb/database.h"

namespace model {

// Collects records for printing or counting.
class record_collector {
public:
    explicit record_collector(const sdb::sdb_database& database)
        : database_(database), expander_(database)
    {}

    // Expands and groups the record at `tag_offset`, following references, and answers whether it
    // is to be shown: it holds something, and passes the search. With `folds`, and nothing searched for,
    // followed records that are kept there stand for themselves.
    bool collect(search& wanted, listing_budget& budget, std::uint32_t tag_offset,
                 folded_records* folds = nullptr);
    const record_groups& groups() const noexcept { return groups_; }

    // The first group of a record as collect() gives it when nothing is searched for, and whether
    // that is its only group; the whole record is gathered only where lists are unsound, and only as
    // long as the budget lasts. False for a record that collect() turns down.
    bool collect_first_group(listing_budget& budget, std::uint32_t tag_offset);
    std::span<const record_item> first_group() const noexcept { return first_group_; }
    bool has_one_group() const noexcept { return has_one_group_; }
    // Whether each of them was that of collect(). Beyond the budget they are the list's own scalars.
    bool groups_are_exact() const noexcept { return groups_are_exact_; }

private:
    bool gather(listing_budget& budget, std::uint32_t tag_offset, folded_records* folds = nullptr);
    void group_subrecords(folded_records& folds, const listing_budget& budget);
    void note_foldable(std::size_t subrecord, std::size_t end, foldable_groups groups);
    bool describe(folded_record& fold, std::size_t subrecord, std::size_t end) const;
    void take_first_group(sdb::tag_ordinal ordinal);

    const sdb::sdb_database& database_;
    record_expander expander_;
    record_groups groups_;
    std::optional<bool> lists_are_sound_;
    io::roomy_vector<record_item> first_group_;
    bool has_one_group_ = false;
    bool groups_are_exact_ = true;
    std::vector<std::uint32_t> chain_; // the followed records that lead to the sub-record in work
};

} // namespace model
