#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "hive/hive_bytes.h"
#include "hive/hive_query.h"
#include "ntfs/volume.h"
#include "platform/devices.h"
#include "request/sdb_opts.h"

namespace model {

// What the registry says of an installed database.
struct installed_database {
    std::string key_path;           // lower-cased path of the database's registry key
    std::uint64_t key_modtime = 0;  // last write time of the key, FILETIME ticks
    std::uint64_t install_time = 0; // FILETIME ticks
    std::uint32_t database_type = 0;
    std::string database_path; // as stored
    std::string local_path;    // where this run finds the file
    std::string description;
};

// Installed databases by a name: the lower-cased one of the registry key, or of the file.
using installed_table = std::map<std::string, installed_database>;

// What a run works on, and what the registry says of it.
struct run_targets {
    std::vector<std::string> files;
    installed_table installed; // by file name
};

// What the registry says of the file at a path; null for nothing.
const installed_database* find_installed(const installed_table& installed, const std::string& path);

// Enters a row of a query into the table, by key: a value of a database's key, which is the seventh
// segment of its path. A value tells its meaning by a word in its name.
void fold_installed_row(installed_table& table, const hive::hive_value_record& row);

// The query whose rows are folded. It asks for no more of a value's data than its meaning needs.
hive::registry_cmd_parameters installed_query();

// The bytes of the run's hive: of the ordinary file, and only if that gives nothing, as that of a
// hive that the running system keeps locked, those read off the run's volume. None if neither is to
// be had. What is met on the volume goes to `trace`, where one is given.
hive::hive_bytes
load_software_hive(const request::sdb_opts& options, const ntfs::trace_text& trace = {},
                   const platform::device_opener& open_device = platform::open_device);

// Reads the installed databases from the run's hive and appends to the files those that the run
// does not have yet, by file name. Without a hive, or one that cannot be read, nothing is done and
// nothing is said.
void gather_installed_databases(run_targets& targets, const request::sdb_opts& options,
                                const ntfs::trace_text& trace = {});

} // namespace model
