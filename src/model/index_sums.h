// What leads to the tags of a database, to be held against what leads to those of another.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "model/content.h"
#include "sdb/database.h"

namespace model {

// The index entries that lead to each tag, as a sum of their digests.
class index_sums {
public:
    index_sums(const sdb::sdb_database& database, const content_key& key);

    // Nothing for a tag to which none leads.
    content_digest of(std::uint32_t offset) const;

    // Those that lead to none of these tags, which are ascending.
    struct others {
        std::uint64_t count = 0;
        content_digest sum;
    };
    others beside(const std::vector<std::uint32_t>& offsets) const;

private:
    using entry_digest = std::pair<std::uint32_t, content_digest>;
    std::vector<entry_digest> entries_; // ascending by offset
};

} // namespace model
