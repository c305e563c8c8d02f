// What one database has and another has not: records are brought together by their identifiers, then by
// name and what they test, never by where they stand.
#pragma once

#include <cstdint>
#include <vector>

#include "model/content.h"
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

// The records of known databases.
class known_records {
public:
    known_records() : key_(random_content_key()) {}

    void add(const sdb::sdb_database& database);
    bool empty() const noexcept { return digests_.empty(); }
    const content_key& key() const noexcept { return key_; }
    // Whether a record that says the same, with all that it refers to, stands in one of them.
    bool holds(const content_digest& record) const;
    // Whether a definition bears the name of a known one of its kind, and says something else.
    bool redefines(const sdb::sdb_database& database, const record_contents& contents,
                   std::uint32_t record) const;
    // To be called behind the last add(), by one thread.
    void settle();

private:
    struct definition {
        content_digest name;
        content_digest content;
        friend auto operator<=>(const definition&, const definition&) = default;
    };
    content_digest name_key(const sdb::sdb_database& database, std::uint32_t record) const;

    content_key key_;
    std::vector<content_digest> digests_; // ascending
    std::vector<definition> definitions_; // the same
};

// Which records of one database are known. The two that it is made of must outlive it.
class known_filter {
public:
    known_filter(const known_records& known, const sdb::sdb_database& database)
        : known_(known), database_(database),
          contents_(database, known.key(), references_seen::by_content)
    {}

    bool holds(std::uint32_t record) const { return known_.holds(contents_.of_list(record)); }
    bool redefines(std::uint32_t record) const
    {
        return known_.redefines(database_, contents_, record);
    }

private:
    const known_records& known_;
    const sdb::sdb_database& database_;
    record_contents contents_;
};

} // namespace model
