#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <vector>

#include "front/sdb_opts.h"
#include "sdb/database.h"
#include "sdb/tag_table.h"
#include "sdb/tags.h"
#include "sdb/vocabulary.h"
#include "io/large_vector.h"

// A record is one list of the database with what belongs to it: its descendants, and the records
// that its reference lists lead to, folded in as sub-records. A report sees it as groups: each
// starts with a list tag and holds the scalars of that list.
namespace report {

// One tag of a record. `depth` is its place in the record, whose head has 1; a followed record
// stands at the depth of the tag that refers to it.
struct record_item {
    std::uint32_t offset;
    std::uint32_t ordinal;
    std::uint16_t tag;
    std::uint16_t depth;
};

constexpr bool is_list(const record_item& item) noexcept
{
    return sdb::tag_type(item.tag) == sdb::type::list;
}

// Gathers records of one database, one at a time; keeps its memory between them.
class record_expander {
public:
    explicit record_expander(const sdb::sdb_database& database);

    // How many items the records of one listing may have together before no reference is followed.
    static std::uint64_t listing_limit(const sdb::sdb_database& database);

    // Expands the list at `tag_offset`; false if there is none or nothing stands in it. With
    // `follow_references` the records referred to are gathered too, each once on a chain of
    // references, until this record has more than 100,000 items or the listing, whose count
    // `listed_items` is raised, more than the limit.
    bool expand(std::uint32_t tag_offset, bool follow_references, std::uint64_t& listed_items);

    // The record last expanded: its head with the items of its own, then each sub-record, in the
    // reverse of file order, as its head with its items. Good until the next expand().
    std::span<const record_item> own_items() const noexcept { return bodies(0, own_count_); }
    std::size_t subrecord_count() const noexcept { return subrecords_.size(); }
    std::span<const record_item> subrecord(std::size_t index) const noexcept;

private:
    // A sub-record, found or still to be walked. A reference list lies in references_ with all that
    // stands in it, a followed record in bodies_ without its reference lists.
    struct group {
        std::size_t first;
        std::size_t last;
        std::size_t chain_length; // followed records that lead to it
        bool is_followed;
    };

    std::span<const record_item> bodies(std::size_t first, std::size_t last) const noexcept
    {
        return std::span(bodies_).subspan(first, last - first);
    }
    std::span<const record_item> items_of(const group& found) const noexcept;
    record_item item_of(std::uint32_t ordinal, std::uint16_t depth) const;
    std::uint32_t list_size(const record_item& item) const;
    std::size_t gather(const record_item& head, std::uint16_t base_depth, std::size_t chain_length);
    std::size_t gather_irregular(std::uint32_t list, std::uint32_t behind, std::uint16_t base_depth,
                                 std::size_t chain_length);
    template <typename source>
    std::size_t split_rows(std::size_t count, source&& row, std::size_t chain_length);
    void walk_group(const group& walked, bool follow_references, std::uint64_t& listed_items);
    void follow(const record_item& reference, std::uint64_t& listed_items);
    void enter_chain(std::size_t length);
    bool is_on_chain(std::uint32_t ordinal) const;

    const sdb::sdb_database& database_;
    const sdb::tag_table* relation_ = nullptr; // asked for with the first record
    io::large_vector<record_item> bodies_;
    io::large_vector<record_item> references_;
    std::size_t own_count_ = 0;
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
    // Takes the next items, which stay where they are. A list starts a group. A scalar goes to the
    // open group if it is deeper than the group's list; otherwise it closes that group and goes to
    // the last group whose list is less deep, or is dropped when there is none.
    void add(std::span<const record_item> items);

    std::size_t size() const noexcept { return groups_.size(); }
    bool empty() const noexcept { return groups_.empty(); }
    std::span<const record_item> operator[](std::size_t group) const noexcept
    {
        return groups_[group];
    }

private:
    struct depth_mark {
        std::uint16_t depth;
        std::size_t group;
    };

    void start_group(const record_item& head);
    void add_scalar(const record_item& item);
    void append(std::size_t group, const record_item& item);

    std::vector<std::span<const record_item>> groups_;
    // Groups that took an item from elsewhere, copied to grow, by their place in groups_.
    std::map<std::size_t, std::vector<record_item>> copied_;
    // The groups that a scalar may still find: ever deeper, each the last of its depth.
    std::vector<depth_mark> reachable_;
    bool is_open_ = false;
};

// Whether the options ask for a search.
bool is_search_pending(const front::sdb_opts& options);

// What a search found, as a quick test of whether a record can hold any of it, so that most records
// need not be expanded. It may answer yes for a record that holds none, never no for one that does.
class search_sieve {
public:
    search_sieve(const sdb::sdb_database& database, std::span<const std::uint32_t> found_offsets);
    bool may_hold_hit(std::uint32_t record_ordinal) const;
    // The same for one that is known to be a list: without a look at the database.
    bool may_list_hold_hit(std::uint32_t list) const;

private:
    void note_spanning_lists();
    bool claims_more(std::uint32_t ordinal) const;

    const sdb::sdb_database& database_;
    // Ordinals of what was found and of the references that lead to it, ascending.
    std::vector<std::uint32_t> hits_;
    std::vector<std::uint32_t> spanning_lists_; // lists that may hold a hit, ascending
    bool lets_all_pass_ = false;
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
    // Whether the search, once it was run, rules the list of that ordinal out.
    bool rules_out(std::uint32_t list) const { return sieve_ && !sieve_->may_list_hold_hit(list); }

    // The first group of a record as collect() gives it when nothing is searched for, and whether
    // that is its only group. False for a record that collect() turns down. `no_search` is options
    // without a search; they carry what bounds the following of references.
    bool collect_first_group(front::sdb_opts& no_search, std::uint32_t tag_offset);
    std::span<const record_item> first_group() const noexcept { return first_group_; }
    bool has_one_group() const noexcept { return has_one_group_; }

private:
    bool passes_search(const front::sdb_opts& options) const;
    bool run_pending_search(front::sdb_opts& options);
    void take_first_group(std::uint32_t ordinal);

    const sdb::sdb_database& database_;
    record_expander expander_;
    record_groups groups_;
    std::optional<search_sieve> sieve_;
    std::optional<bool> lists_are_sound_;
    std::vector<record_item> first_group_;
    bool has_one_group_ = false;
};

// Whether a collected record has substance, which is what listings show and statistics count: no
// tag of its first group may be a reference, and unless it is an include or exclude list or has
// more groups than one, its first group needs three tags.
bool has_substance(std::span<const record_item> first_group, bool has_one_group);

} // namespace report
