#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "front/sdb_opts.h"
#include "sdb/child_relation.h"
#include "sdb/database.h"

// A record is one list of the database with what belongs to it: its descendants, and the records
// that its reference lists lead to, folded in as sub-records. A report sees it as groups: each
// starts with a list tag and holds the scalars of that list.
namespace report {

// One tag of a record. `depth` is its place in the record, whose head has 1; a followed record
// stands at the depth of the tag that refers to it.
struct record_item {
    std::uint32_t offset;
    std::uint32_t ordinal;
    std::uint32_t list_size; // 0 when not a list
    std::uint16_t tag;
    std::uint16_t depth;
};

bool is_list(const record_item& item);

// Gathers records of one database, one at a time; keeps its memory between them.
class record_expander {
public:
    explicit record_expander(const sdb::sdb_database& database);

    // Expands the list at `tag_offset`; false if there is none or nothing stands in it. With
    // `follow_references` the records referred to are gathered too, each once on a chain of
    // references, until this record has more than 100,000 items or the listing, whose count
    // `listed_items` is raised, more than 1,000,000 and 64 for each tag of the database.
    bool expand(std::uint32_t tag_offset, bool follow_references, std::uint64_t& listed_items);

    // The record last expanded. Sub-records come in the reverse of file order; in each, the head is
    // the first item.
    const record_item& head() const noexcept { return head_; }
    std::span<const record_item> items() const noexcept { return items_; }
    std::size_t subrecord_count() const noexcept { return subrecords_.size(); }
    std::span<const record_item> subrecord(std::size_t index) const noexcept;

private:
    // A sub-record, found or still to be walked: where its items lie in pool_, how many followed
    // records lead to it, and the ordinal of its head when it is one of these itself.
    struct group {
        std::size_t first;
        std::size_t last;
        std::size_t chain_length;
        bool is_followed;
    };

    record_item item_of(std::uint32_t ordinal, std::uint16_t depth) const;
    void gather_descendants(std::uint32_t ordinal, std::uint16_t base_depth);
    void gather_irregular(std::uint32_t ordinal, std::uint32_t behind, std::uint16_t base_depth);
    void split_gathered(std::vector<record_item>& others, std::size_t chain_length);
    void walk_group(const group& walked, bool follow_references, std::uint64_t& listed_items);
    void follow(const record_item& reference, std::size_t chain_length,
                std::uint64_t& listed_items);
    void enter_chain(const group& walked);
    bool is_on_chain(std::uint32_t ordinal) const;
    void count_gathered(std::uint64_t& listed_items);

    const sdb::sdb_database& database_;
    const sdb::child_relation& relation_;
    record_item head_{};
    std::vector<record_item> items_;
    std::vector<record_item> gathered_;
    std::vector<record_item> others_;
    std::vector<record_item> pool_;
    std::vector<group> work_;
    std::vector<group> subrecords_;
    // The followed records that lead to the group in work, and a mark for each.
    std::vector<std::uint32_t> chain_;
    std::vector<bool> on_chain_;
    std::uint64_t record_items_ = 0;
};

// A record's items as groups.
class record_groups {
public:
    void clear();
    // Takes the next item. A list starts a group. A scalar goes to the open group if it is deeper
    // than the group's list; otherwise it closes that group and goes to the last group whose list
    // is less deep, or is dropped when there is none.
    void add(const record_item& item);
    // To be called behind the last item.
    void finish();

    std::size_t size() const noexcept { return counts_.size(); }
    bool empty() const noexcept { return counts_.empty(); }
    std::span<const record_item> operator[](std::size_t group) const noexcept
    {
        return std::span(sorted_ ? items_ : ordered_).subspan(starts_[group], counts_[group]);
    }
    std::span<const record_item> all_items() const noexcept { return items_; }

private:
    struct depth_mark {
        std::uint16_t depth;
        std::uint32_t group;
    };

    void append(const record_item& item, std::uint32_t group);

    std::vector<record_item> items_;
    std::vector<std::uint32_t> group_of_;
    std::vector<std::uint32_t> counts_;
    std::vector<std::uint32_t> starts_;
    std::vector<record_item> ordered_;
    // The groups that a scalar may still find: ever deeper, each the last of its depth.
    std::vector<depth_mark> reachable_;
    std::uint16_t open_depth_ = 0;
    bool is_open_ = false;
    bool sorted_ = true;
};

// Collects records for printing or counting.
class record_collector {
public:
    explicit record_collector(const sdb::sdb_database& database)
        : database_(database), expander_(database)
    {}

    // Expands and groups the record at `tag_offset`, following references, and answers whether it
    // is to be shown: a pending search is run first, once for the database, and a record passes it
    // when one of its tags was found.
    bool collect(front::sdb_opts& options, std::uint32_t tag_offset);
    const record_groups& groups() const noexcept { return groups_; }
    const sdb::sdb_database& database() const noexcept { return database_; }

private:
    const sdb::sdb_database& database_;
    record_expander expander_;
    record_groups groups_;
};

// Whether a collected record has substance, which is what listings show and statistics count: no
// tag of its first group may be a reference, and unless it is an include or exclude list or has
// more groups than one, its first group needs three tags.
bool has_substance(const record_groups& groups);

} // namespace report
