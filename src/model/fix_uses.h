// What a record gets: the fixes to which it refers, with what the layers among them open up to.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <unordered_set>
#include <vector>

#include "request/bounds.h"
#include "sdb/database.h"

namespace model {

struct fix_use {
    std::uint32_t reference = 0;  // the list that refers to it
    std::uint32_t definition = 0; // 0 where this database has none: it is the system's
    std::uint16_t depth = 0;      // through how many layers
    bool is_broken = false;       // it refers to something else than a definition of its kind
    bool has_data = false;        // the reference has lists of its own
    std::uint32_t name = 0;       // tags of the reference; 0 for none
    std::uint32_t command_line = 0;
};

// Whether a tag refers to a fix, where it stands in a record.
bool is_fix_reference(std::uint16_t tag);

// Which definitions and references some records lead to, by ordinal.
std::vector<bool> reached_definitions(const sdb::sdb_database& database,
                                      std::span<const std::uint32_t> records);

// Gathers the fixes of records, one after the other. What it is made of must outlive it.
class use_gatherer {
public:
    use_gatherer(const sdb::sdb_database& database, const request::bounds& bounds);

    // Appends the fixes of a record, wherever in it they are referred to, each layer with what it holds behind
    // it, once. False if some were left out: layers are opened up as long as that takes no more tags than the
    // bounds allow for as many as the record has, and some.
    bool gather(std::vector<fix_use>& uses, std::uint32_t record);
    // Appends those alone to which it refers itself: no layer is opened.
    void gather_own(std::vector<fix_use>& uses, std::uint32_t record);

private:
    bool find_references(std::uint32_t list, std::uint64_t& tags_left);
    bool open(std::uint32_t list);
    bool open_once(std::uint32_t list);
    bool take(sdb::tag_ordinal reference);
    fix_use read(sdb::tag_ordinal ordinal, std::uint32_t reference, std::uint16_t tag) const;

    const sdb::sdb_database& database_;
    const request::bounds bounds_;

    // The record in work.
    std::vector<fix_use>* uses_ = nullptr;
    std::uint32_t record_ = 0;
    std::uint64_t tags_left_ = 0;
    std::size_t depth_ = 0;
    std::unordered_set<std::uint32_t> opened_; // lists
    std::vector<std::uint32_t> deep_;          // those to be opened at the end
    std::vector<sdb::tag_ordinal> references_; // of the lists that are open, the innermost last
    std::vector<sdb::tag_ordinal> left_;       // lists to be looked at
};

} // namespace model
