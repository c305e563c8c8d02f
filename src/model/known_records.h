// Records that stand in databases which are known, and need not be told.
#pragma once

#include <cstdint>
#include <vector>

#include "model/content.h"
#include "sdb/database.h"

namespace model {

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
