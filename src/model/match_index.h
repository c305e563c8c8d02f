// What of a database may catch a program, found by the program's name.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "model/match.h"
#include "request/bounds.h"
#include "sdb/database.h"

namespace model {

// A record that is about programs of a name.
struct named_record {
    std::uint32_t record = 0;
    std::uint32_t name = 0;  // the tag that names them
    bool is_pattern = false; // a name with `*` for any characters, `?` for any one
};

// What stands under the name of a program.
struct found_by_name {
    looked_at_lists lists;             // of these and of other records
    std::vector<named_record> records; // ascending, each once
};

// All records and matching-file lists of a database by name, for whoever has many programs to match. It
// finds the lists that match_program() looks at, the records that need no list, those whose name is a
// pattern with the lists that mean the program itself, and a driver's own facts. The database must
// outlive it.
class match_index {
public:
    match_index(const sdb::sdb_database& database, const tag_texts& texts,
                const request::bounds& bounds = {});

    // False if records that hold others were left out, since there is no end of them.
    bool is_complete() const noexcept { return is_complete_; }
    // False if there are so many patterns that some were left out.
    bool has_all_patterns() const noexcept { return has_all_patterns_; }
    // What stands under a file's name or, if no list does, under its whole path.
    found_by_name find(const std::string& path) const;

private:
    // What stands under one name. A list in which nothing stands makes its name known, and catches nothing.
    struct under_name {
        bool has_list = false;
        std::vector<looked_at_list> lists;
        std::vector<named_record> records;
    };
    struct pattern {
        std::string text;
        std::size_t shortest; // of the names that it can be, bytes
        named_record record;
    };

    void add_record(std::uint32_t record);
    void add_name(const named_record& record, std::string name);

    const sdb::sdb_database& database_;
    std::unordered_map<std::string, under_name> by_name_; // lower-case
    std::vector<pattern> patterns_;
    // Of the records in patterns_: their own lower-case name, and the lists under it.
    struct own_lists {
        std::string name;
        std::vector<looked_at_list> lists;
    };
    std::unordered_map<std::uint32_t, own_lists> lists_of_patterns_;
    bool is_complete_ = true;
    bool has_all_patterns_ = true;
};

} // namespace model
