// What a record gets: the fixes to which it refers, with what the layers among them open up to.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
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

// Appends the fixes of a record, wherever in it they are referred to, each layer with what it holds behind it,
// once. False if some were left out: layers are opened up as long as that takes no more tags than
// `bounds` allow for as many as the record has, and some.
bool gather_fix_uses(std::vector<fix_use>& uses, const sdb::sdb_database& database,
                     std::uint32_t record, const request::bounds& bounds);

} // namespace model
