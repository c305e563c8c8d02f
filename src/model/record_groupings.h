// What of all records of a database together it takes to judge one of them.
#pragma once

#include <cstdint>
#include <unordered_map>
#include <vector>

#include "sdb/database.h"

namespace model {

class record_groupings {
public:
    explicit record_groupings(const sdb::sdb_database& database);

    // Whether there is an executable or an application of the same name that gets other fixes, or another
    // executable with the same identifier in front of it.
    bool has_namesake(std::uint32_t record) const;
    bool repeats_id(std::uint32_t exe) const;
    // Whether a message has a word to say, itself or in the message to which it refers.
    bool has_words(std::uint32_t message) const { return words_of(message) != 0; }
    // That of the two which has it; 0 for none.
    std::uint32_t words_of(std::uint32_t message) const;

private:
    void note_messages();

    const sdb::sdb_database& database_;
    std::unordered_map<std::uint32_t, std::uint32_t> words_by_id_; // of messages; 0 for none
    std::vector<std::uint32_t> namesakes_;                         // records, ascending
    std::vector<std::uint32_t> repeated_ids_;                      // the same
};

} // namespace model
