#pragma once

#include <map>
#include <string>
#include <vector>

#include "front/sdb_opts.h"
#include "hive/key_pattern.h"
#include "platform/devices.h"
#include "uni/large_vector.h"

namespace report {

// Installed databases by the lower-cased names of their registry keys.
using installed_table = std::map<std::string, front::installed_database>;

// Makes the table from the rows of a query, each a value of a database's key, which is the seventh
// segment of its path. A value tells its meaning by a word in its name. Answers whether there is
// any entry.
bool fold_installed_rows(installed_table& table, const std::vector<hive::hive_value_record>& rows);

// Reads the run's hive whole into `bytes`: as an ordinary file, and only if that gives nothing, as
// of a hive that the running system keeps locked, off the run's volume. False, and nothing there,
// if it cannot be had.
bool load_software_hive(uni::byte_vector& bytes, front::sdb_opts& options,
                        const platform::device_opener& open_device = platform::open_device);

// Fills `installed_databases` from the run's hive and appends to `target_files` the databases that
// the run does not have yet, by file name. Without a hive, or one that cannot be read, nothing is
// done and nothing is said.
void gather_installed_databases(front::sdb_opts& options);

} // namespace report
