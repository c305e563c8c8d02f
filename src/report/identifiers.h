#pragma once

#include "front/sdb_opts.h"
#include "sdb/database.h"
#include "io/output_sink.h"

namespace report {

// Lists every GUID of the database once, ascending, sorted into tables by what it names, each row
// with the name of the record around it. A table without rows is left out.
void list_identifiers(const sdb::sdb_database& database, io::output_sink& out,
                      front::sdb_opts& options);

// Lists the strings of the database, one a line, and an empty line.
void list_string_table(const sdb::sdb_database& database, io::output_sink& out);

} // namespace report
