#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "model/search.h"
#include "sdb/database.h"

namespace model {

// What an identifier names, by its tag.
enum class identifier_kind : std::size_t { exe, app, fix, other, count };

struct identifier {
    const sdb::guid_item* guid; // the database's own
    std::uint16_t tag;
    // Where the name of the record around it stands; none where the search turns that record down.
    std::optional<std::uint32_t> name_offset;
};

using identifier_tables =
    std::array<std::vector<identifier>, static_cast<std::size_t>(identifier_kind::count)>;

struct identifier_list {
    identifier_tables tables;
    bool names_are_exact = true; // as listings show the records; else those of the lists alone
};

// Every GUID of the database once, ascending, sorted into tables by what it names. A list is looked
// at once, however many identifiers it holds.
identifier_list gather_identifiers(const sdb::sdb_database& database, search& wanted);

} // namespace model
