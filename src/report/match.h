#pragma once

#include <cstdint>
#include <map>
#include <set>

#include "front/sdb_opts.h"
#include "report/pe_properties.h"
#include "sdb/database.h"
#include "io/output_sink.h"

namespace report {

// Offsets of records with those of their matching-file lists that catch the file.
using match_results = std::map<std::uint32_t, std::set<std::uint32_t>>;

// Which records of the database would catch the PE file at options.pe_path. A matching-file list is
// looked at when its file name is that of the file, or, if no list's is, the file's whole path with
// %windir% for c:\windows, ASCII case aside. It catches the file unless one of its properties
// speaks against it; a property of which the file tells nothing ends the comparison, so that those
// behind it, which have higher tags, are not looked at: meant. Answers whether anything was found;
// says so when the file is no PE file.
bool match_pe_file(match_results& results, const sdb::sdb_database& database,
                   const front::sdb_opts& options);

} // namespace report
