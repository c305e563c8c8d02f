#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "io/byte_source.h"
#include "model/image_digests.h"
#include "model/known_records.h"
#include "platform/digests.h"
#include "request/bounds.h"
#include "sdb/database.h"

namespace model {

// How many there are of a kind of record, or of what stands under a tag.
struct record_count {
    std::uint16_t tag = 0;
    std::string name;
    std::uint64_t count = 0;
    bool counts_values = false; // distinct values of the tag, not records
};

// What stands in the database list itself. A text that is not there is empty.
struct database_identity {
    std::string identifier; // GUID text
    bool has_several_identifiers = false;
    std::string compiler_version;
    std::optional<std::uint32_t> name_at;     // the offset of the tag that names it
    std::optional<std::uint32_t> compiler_at; // of the one that tells the version of its compiler
    std::optional<std::uint32_t> platform;    // operating systems, else the run-time platform
    std::optional<std::uint64_t> time;        // FILETIME ticks
};

// What a database says of itself.
struct database_facts : database_identity {
    std::string digest_md5;             // lower-case hexadecimal, of the image, inflated
    std::string digest_sha1;            // the same
    std::vector<std::uint32_t> scalars; // offsets of the tags in the database list, of several with
                                        // one text one; by tag
    std::vector<record_count> counts;   // ascending by tag, equal tags as they were found
    bool counts_are_exact = true;       // else some are of lists alone, not of their records
};

// The digests of a whole file, not inflated; none of one that cannot be read whole, or that is longer
// than 256 MiB.
digest_texts file_digests(io::byte_source& source);

database_identity identity_of(const sdb::sdb_database& database);
// The name that its identity tells of; empty for none.
std::string internal_name(const sdb::sdb_database& database, const database_identity& identity);

// Gathers the facts of a loaded database; false if its database list holds nothing. A record counts
// if a listing would print it, everything of a kind that stands in the library counts. The `digests` of
// its image are computed here where they were not started. What is `known` does not count.
bool gather_facts(database_facts& facts, const sdb::sdb_database& database,
                  const request::bounds& bounds = {}, image_digests* digests = nullptr,
                  const known_filter* known = nullptr);

} // namespace model
