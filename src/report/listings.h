#pragma once

#include <cstdint>
#include <set>
#include <span>

#include "front/sdb_opts.h"
#include "report/record.h"
#include "report/xml_framing.h"
#include "sdb/database.h"
#include "io/output_sink.h"

namespace report {

// Makes the listings that the options ask for, in a fixed order, in the XML form or the plain one.
// Answers whether anything was asked for that could be acted on; if nothing was, a notice says so.
// Under -match the records that would catch a PE file are all that is listed, and a line for each
// list that catches it goes to `standard_output`, whatever `out` is.
bool run_database_report(io::output_sink& out, io::output_sink& standard_output,
                         const sdb::sdb_database& database, front::sdb_opts& options);
inline bool run_database_report(io::output_sink& out, const sdb::sdb_database& database,
                                front::sdb_opts& options)
{
    return run_database_report(out, out, database, options);
}

// Prints records of one database into one stream.
class record_printer {
public:
    record_printer(uni::text_buffer& out, const sdb::sdb_database& database,
                   front::sdb_opts& options)
        : out_(out), database_(database), options_(options), collector_(database),
          xml_writer_(out, database, options)
    {}

    // Lists all records with that tag; answers whether one was printed.
    bool list_records_by_tag(std::uint16_t tag);
    // Prints the record at `tag_offset`; answers whether it passed the filters and was printed.
    bool print_record(std::uint32_t tag_offset);

    // Prints the records of these ordinals, all lists of one tag or all no lists; answers whether
    // one was printed.
    bool print_records(std::span<const std::uint32_t> ordinals);

private:
    bool print_stretches(std::span<const std::uint32_t> ordinals, std::size_t threads);
    void set_record_name(std::span<const record_item> group);
    void print_plain_groups(const record_groups& groups);

    uni::text_buffer& out_;
    const sdb::sdb_database& database_;
    front::sdb_opts& options_;
    record_collector collector_;
    xml_record_writer xml_writer_;
};

// The tags of the records that a listing of applications runs over, ascending: lists that stand in
// the database list, but for the library and layers.
std::set<std::uint16_t> application_tags(const sdb::sdb_database& database);

// The same for fixes: lists in the library, but for include and exclude lists, and layers in the
// database list.
std::set<std::uint16_t> fix_tags(const sdb::sdb_database& database);

} // namespace report
