#pragma once

#include <map>
#include <string>

#include "front/sdb_opts.h"
#include "hive/hive_bytes.h"
#include "hive/hive_query.h"
#include "platform/devices.h"

namespace report {

// Installed databases by the lower-cased names of their registry keys.
using installed_table = std::map<std::string, front::installed_database>;

// Enters a row of a query into the table: a value of a database's key, which is the seventh segment
// of its path. A value tells its meaning by a word in its name.
void fold_installed_row(installed_table& table, const hive::hive_value_record& row);

// The query whose rows are folded. It asks for no more of a value's data than its meaning needs.
hive::registry_cmd_parameters installed_query();

// The bytes of the run's hive: of the ordinary file, and only if that gives nothing, as that of a
// hive that the running system keeps locked, those read off the run's volume. None if neither is to
// be had.
hive::hive_bytes
load_software_hive(front::sdb_opts& options,
                   const platform::device_opener& open_device = platform::open_device);

// Fills `installed_databases` from the run's hive and appends to `target_files` the databases that
// the run does not have yet, by file name. Without a hive, or one that cannot be read, nothing is
// done and nothing is said.
void gather_installed_databases(front::sdb_opts& options);

} // namespace report
