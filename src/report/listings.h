#pragma once

#include <cstdint>
#include <set>

#include "front/sdb_opts.h"
#include "report/record.h"
#include "sdb/database.h"
#include "uni/output_sink.h"

namespace report {

// Makes the listings that the options ask for, in a fixed order, in the XML form or the plain one.
// Answers whether anything was asked for that could be acted on; if nothing was, a notice says so.
bool run_database_report(uni::output_sink& out, const sdb::sdb_database& database,
                         front::sdb_opts& options);

// Lists all records with that tag; answers whether one was printed.
bool list_records_by_tag(record_collector& collector, uni::output_sink& out,
                         front::sdb_opts& options, std::uint16_t tag);

// Prints the record at `tag_offset`; answers whether it passed the filters and was printed.
bool print_record(record_collector& collector, uni::output_sink& out, front::sdb_opts& options,
                  std::uint32_t tag_offset);

// The tags of the records that a listing of applications runs over, ascending: lists that stand in
// the database list, but for the library and layers.
std::set<std::uint16_t> application_tags(const sdb::sdb_database& database);

// The same for fixes: lists in the library, but for include and exclude lists, and layers in the
// database list.
std::set<std::uint16_t> fix_tags(const sdb::sdb_database& database);

} // namespace report
