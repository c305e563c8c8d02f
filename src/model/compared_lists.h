// The lists of a database that are held against those of another. All are told by their offsets, in file
// order.
#pragma once

#include <cstdint>
#include <vector>

#include "sdb/database.h"

namespace model {

// The lists in which records stand.
struct around_records {
    std::vector<std::uint32_t> databases;
    std::vector<std::uint32_t> libraries;
};
around_records around_records_of(const sdb::sdb_database& database);

// The list in which a record stands, of those above.
struct record_place {
    std::uint16_t around = 0;      // its tag; 0 where there is none
    std::uint32_t before_last = 0; // how many of its kind come behind it
    friend bool operator==(const record_place&, const record_place&) = default;
};

class record_places {
public:
    explicit record_places(const sdb::sdb_database& database);

    // Of what stands in a record, that of the record.
    record_place of(std::uint32_t record) const;

private:
    struct stretch {
        std::uint32_t list; // offset
        std::uint64_t end;
    };
    // Whether one of them is around the record, and how many come behind that.
    static bool find(const std::vector<stretch>& lists, std::uint32_t record,
                     std::uint32_t& before_last);

    std::vector<stretch> databases_; // ascending
    std::vector<stretch> libraries_; // the same
};

// The records: what stands in the lists above, and in none.
std::vector<std::uint32_t> records_of(const sdb::sdb_database& database);

std::vector<std::uint32_t> lists_in(const sdb::sdb_database& database, std::uint32_t list);

// Takes those whose order matters out of `lists`.
std::vector<std::uint32_t> taken_in_order(const sdb::sdb_database& database,
                                          std::vector<std::uint32_t>& lists);

} // namespace model
