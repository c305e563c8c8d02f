// What one database has and another has not: records are brought together by their identifiers, then by
// name and what they test, never by where they stand.
#pragma once

#include <cstdint>

#include "model/compared_lists.h"
#include "sdb/database.h"
#include "uni/thread_allowance.h"

namespace model {

enum class change_kind { added, removed, changed };

// Something that stands in one database alone, or differs. Offsets are those in the two databases, 0 in the
// one that does not have it.
struct record_change {
    change_kind kind = change_kind::changed;
    std::uint32_t before = 0;
    std::uint32_t after = 0;
};

// Is told of what differs, record by record in the order of the second database, those that are gone at the
// end.
class difference_listener {
public:
    virtual ~difference_listener() = default;

    // A record: what differs in one that stands in both comes behind it. All answer whether to go on.
    virtual bool record(const record_change& one) = 0;
    // A tag or a list in that record, whose kind is the same on both sides.
    virtual bool fact(const record_change& one) = 0;
    // That other index entries lead to that record, or some in one of the two alone.
    virtual bool reached(const record_change& one, bool is_reached_before,
                         bool is_reached_after) = 0;
    // That other index entries, or more or less of them, lead to no record.
    virtual bool astray(std::uint64_t before, std::uint64_t after) = 0;
    // That the record stands in another list.
    virtual bool stands(const record_change& one, const record_place& before,
                        const record_place& after) = 0;
};

struct difference_counts {
    std::uint64_t unchanged = 0;
    std::uint64_t changed = 0;
    std::uint64_t added = 0;
    std::uint64_t removed = 0;
};

// Compares all records: the lists that stand in the database list and in the library, and the database
// list's own facts as those of one record. Of `threads` one that is to spare helps.
difference_counts compare_databases(const sdb::sdb_database& before, const sdb::sdb_database& after,
                                    difference_listener& listener,
                                    uni::thread_allowance* threads = nullptr);

} // namespace model
