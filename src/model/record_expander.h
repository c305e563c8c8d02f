#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "io/large_vector.h"
#include "model/folded_records.h"
#include "model/record.h"
#include "request/bounds.h"
#include "sdb/database.h"

namespace model {

// How many items the records of one listing may have together before no reference is followed, and
// how many they had so far.
struct listing_budget {
    explicit listing_budget(const sdb::sdb_database& database, const request::bounds& limits = {});

    bool is_used_up() const noexcept { return items > limit; }
    // Whether the records had more items than all the text that may be said of them has room for: most
    // were gathered in vain.
    bool is_exhausted() const noexcept { return items > most_items; }

    std::uint64_t items = 0;
    std::uint64_t limit;
    std::uint64_t most_items;
    // Of one list, what stands in lists in it included; a larger one is not gathered, and was_too_large
    // set.
    std::size_t largest_list = static_cast<std::size_t>(-1);
    bool was_too_large = false;
    bool left_references = false; // some were not followed, for a bound
    request::bounds bounds;
};

// Where a sub-record belongs.
struct subrecord_place {
    bool is_followed;           // it is a record that was followed; otherwise a reference list
    std::uint16_t chain_length; // through how many of these one comes to it
    // Of the tag in whose place it belongs: that which led to a followed record, or its own.
    std::uint32_t offset;
};

// Gathers records of one database, one at a time; keeps its memory between them.
class record_expander {
public:
    explicit record_expander(const sdb::sdb_database& database) : database_(database) {}

    // Expands the list at `tag_offset`; false if there is none or nothing stands in it. With
    // `follow_references` the records referred to are gathered too, each once on a chain of
    // references, as far as the listing's budget, to which they are charged, lets them. Those that are
    // kept in `known` and would be the same here are not gathered.
    bool expand(std::uint32_t tag_offset, bool follow_references, listing_budget& budget,
                const folded_records* known = nullptr);

    // The record last expanded: its head with the items of its own, then each sub-record, in the
    // reverse of file order, as its head with its items. A followed record comes in front of those that
    // it leads to. Good until the next expand().
    std::span<const record_item> own_items() const noexcept { return bodies(0, own_count_); }
    std::size_t subrecord_count() const noexcept { return subrecords_.size(); }
    std::span<const record_item> subrecord(std::size_t index) const noexcept;
    // The sub-record where it is a known one with all that it leads to, which stands here for them.
    const folded_record* folded(std::size_t index) const noexcept
    {
        const group& found = subrecords_[index];
        return found.is == kind::folded ? used_[found.first].record : nullptr;
    }
    bool is_followed(std::size_t index) const noexcept
    {
        return subrecords_[index].is == kind::followed;
    }
    // Whether nothing that comes behind a sub-record, or the last of some, hangs from the one that begins
    // there: the next is a list that is no deeper.
    bool stands_apart(std::size_t index, std::size_t last) const noexcept;
    subrecord_place place_of(std::size_t index) const noexcept;
    // Through how many followed records one comes to it.
    std::size_t chain_length(std::size_t index) const noexcept
    {
        return subrecords_[index].chain_length;
    }

private:
    // A sub-record, found or still to be walked. A reference list lies in references_ with all that
    // stands in it, a followed record in bodies_ without its reference lists, behind the tag that led to it,
    // a folded one in used_.
    enum class kind : std::uint8_t { references, followed, folded };
    struct group {
        group(std::size_t from, std::size_t to, std::size_t length, kind what)
            : first(static_cast<std::uint32_t>(from)), last(static_cast<std::uint32_t>(to)),
              chain_length(static_cast<std::uint16_t>(length)), is(what)
        {}

        std::uint32_t first;
        std::uint32_t last;
        std::uint16_t chain_length; // followed records that lead to it
        kind is;
    };

    std::span<const record_item> bodies(std::size_t first, std::size_t last) const noexcept
    {
        return std::span(bodies_).subspan(first, last - first);
    }
    std::span<const record_item> items_of(const group& found) const noexcept;
    record_item head(std::size_t index) const noexcept;
    bool gather_all(sdb::tag_ordinal head, bool follow_references, listing_budget& budget);
    bool fits_the_folds(const listing_budget& budget) const;
    void reserve_room(std::size_t lists);
    record_item item_of(sdb::tag_ordinal ordinal, std::uint16_t depth) const;
    std::size_t gather(sdb::tag_ordinal head, std::uint16_t base_depth, std::size_t chain_length,
                       listing_budget& budget);
    std::size_t gather_run(sdb::tag_ordinal first, sdb::tag_ordinal end, std::uint16_t base_depth,
                           std::size_t chain_length);
    std::size_t gather_irregular(sdb::tag_ordinal first_list, sdb::tag_ordinal behind,
                                 std::uint16_t base_depth, std::size_t chain_length);
    std::size_t split_rows(std::size_t most, std::size_t chain_length, auto&& for_each_row);
    void walk_group(const group& walked, bool follow_references, listing_budget& budget);
    void follow(const record_item& reference, listing_budget& budget);
    bool is_open(std::uint32_t record) const;
    bool stands_as_it_is(const folded_record& folded, const listing_budget& budget) const;

    const sdb::sdb_database& database_;
    const sdb::tag_table* relation_ = nullptr; // asked for with the first record
    io::roomy_vector<record_item> bodies_;
    io::roomy_vector<record_item> references_;
    std::size_t own_count_ = 0;
    io::roomy_vector<group> work_;
    io::roomy_vector<group> subrecords_;
    const folded_records* known_ = nullptr;
    struct used_fold {
        const folded_record* record;
        std::uint32_t reference; // offset of the tag that led to it
    };
    std::vector<used_fold> used_;
    std::vector<std::uint32_t> chain_; // the followed records that lead to the group in work
    io::roomy_vector<sdb::tag_ordinal> open_ends_; // of the lists around the tag that is gathered
    std::uint64_t record_items_ = 0;
};

} // namespace model
