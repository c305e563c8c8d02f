// How the subjects of a database are called and recognised.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "request/cmd_params.h"
#include "sdb/database.h"

namespace report {

// What a subject is called, and what it is where it is no program.
std::string title_of(const sdb::sdb_database& database, std::uint32_t record);

// How it is recognised, a line for each file, registry value and the like that is tested.
std::vector<std::string> recognition_of(const sdb::sdb_database& database, std::uint32_t record,
                                        const request::cmd_params& style);

} // namespace report
