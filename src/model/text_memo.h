#pragma once

#include <cstdint>
#include <optional>
#include <utility>

#include "io/large_vector.h"
#include "sdb/database.h"

namespace model {

// What was found out about the texts of a database's string table, each looked at once, however many tags
// refer to it.
template <typename known>
class text_memo {
public:
    explicit text_memo(const sdb::sdb_database& database)
        : database_(database),
          first_(database.ordinal_from(database.string_table_offset()).number()),
          places_(database.tag_count() - first_, 0)
    {}

    // What is known of the text that a reference leads to; `make` finds it out.
    template <typename maker>
    known& of(std::uint32_t reference, maker&& make)
    {
        const auto string =
            database_.ordinal_of(std::uint64_t{database_.string_table_offset()} + reference);
        std::uint32_t& place = string ? places_[string->number() - first_] : nowhere_;
        if (place == 0) {
            values_.push_back(make());
            place = static_cast<std::uint32_t>(values_.size());
        }
        return values_[place - 1];
    }

private:
    const sdb::sdb_database& database_;
    const std::uint32_t first_; // ordinal of the table
    io::roomy_vector<std::uint32_t>
        places_;                // in the values, from 1 on; 0 for what was not looked at
    std::uint32_t nowhere_ = 0; // the same for references that lead nowhere
    io::roomy_vector<known> values_;
};

} // namespace model
