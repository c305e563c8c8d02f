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

// The records: what stands in the lists above, and in none.
std::vector<std::uint32_t> records_of(const sdb::sdb_database& database);

std::vector<std::uint32_t> lists_in(const sdb::sdb_database& database, std::uint32_t list);

// Takes those whose order matters out of `lists`.
std::vector<std::uint32_t> taken_in_order(const sdb::sdb_database& database,
                                          std::vector<std::uint32_t>& lists);

} // namespace model
