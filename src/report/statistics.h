#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "front/sdb_opts.h"
#include "sdb/database.h"
#include "io/output_sink.h"

namespace report {

// One row of the statistics: a kind of record with its count, or a fact from the registry.
struct stat_row {
    std::uint16_t key = 0; // a tag, or a pseudo tag that stands in no database
    std::string name;
    std::string value_text;      // a count in decimal
    std::uint64_t row_value = 0; // a time or a type, for the pseudo tags
    std::uint64_t count = 0;     // what a counted row counts
};

// What the statistics say of one database.
struct database_facts {
    std::string digest_md5;  // lower-case hexadecimal, of the whole image, inflated
    std::string digest_sha1; // the same
    std::string database_identifier;
    std::string compiler_version;
    std::string internal_name;
    std::string platform; // what the operating system tag says, else the run-time platform tag
    std::string database_modtime_text;
    std::uint64_t database_time = 0;    // FILETIME ticks
    std::uint64_t reg_install_time = 0; // the same
    std::uint64_t registry_modtime = 0; // the same
    std::uint32_t database_types = 0;
    std::string registry_path;
    std::vector<stat_row> rows;  // ascending by key, equal keys as they were found
    std::size_t value_width = 0; // the widest value, for the padded columns
};

// Gathers the facts of a loaded database; false if its database list holds nothing.
bool gather_facts(database_facts& facts, const sdb::sdb_database& database,
                  const front::sdb_opts& options);

// Writes the statistics of a database: labelled lines, one delimited row under -csv, or timeline
// rows under -csvl2t and -bodyfile. Nothing for a database whose list holds nothing.
void run_database_stats(const sdb::sdb_database& database, io::output_sink& out,
                        front::sdb_opts& options);

} // namespace report
