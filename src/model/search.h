#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "model/known_records.h"
#include "model/record_groups.h"
#include "request/sdb_opts.h"
#include "sdb/database.h"

namespace model {

// What a search found, as a quick test of whether a record can hold any of it, so that most records
// need not be expanded. It may answer yes for a record that holds none, never no for one that does.
class search_sieve {
public:
    // References are followed through that many records at most.
    search_sieve(const sdb::sdb_database& database, std::span<const std::uint32_t> found_offsets,
                 std::size_t followed_records);
    bool may_hold_hit(sdb::tag_ordinal record) const;
    // The same for one that is known to be a list: without a look at the database.
    bool may_list_hold_hit(sdb::tag_ordinal list) const;

private:
    void note_spanning_lists();
    bool claims_more(sdb::tag_ordinal ordinal) const;

    const sdb::sdb_database& database_;
    // Those of what was found and of the references that lead to it, ascending.
    std::vector<sdb::tag_ordinal> hits_;
    std::vector<sdb::tag_ordinal> spanning_lists_; // lists that may hold a hit, ascending
};

// The search of a run in one database, made when the first record asks for it. Without anything to
// look for every record passes.
class search {
public:
    // What is `known` of the database does not pass; null for nothing.
    search(const sdb::sdb_database& database, request::search_request wanted,
           const request::bounds& bounds = {}, const known_filter* known = nullptr)
        : database_(database), wanted_(std::move(wanted)), bounds_(bounds), known_(known)
    {}

    const request::bounds& bounds() const noexcept { return bounds_; }

    bool is_asked_for() const noexcept { return !wanted_.is_empty(); }
    // Whether nothing can pass: a search for texts or a GUID found nothing.
    bool finds_nothing();
    // Whether the record of that ordinal may pass, at a quick look.
    bool may_pass(sdb::tag_ordinal record);
    bool may_list_pass(sdb::tag_ordinal list);
    // Whether it is to be left out, as it is known.
    bool is_known(std::uint32_t record) const { return known_ != nullptr && known_->holds(record); }
    // Whether a record passes: one of its tags was found.
    bool passes(const record_groups& groups);

private:
    void run();

    const sdb::sdb_database& database_;
    request::search_request wanted_;
    request::bounds bounds_;
    const known_filter* known_;
    bool was_run_ = false;
    bool finds_nothing_ = false;
    std::vector<std::uint32_t> found_; // ascending tag offsets, each once
    std::optional<search_sieve> sieve_;
};

} // namespace model
