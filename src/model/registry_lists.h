// Reads and judges what the registry tells of compatibility.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "hive/hive_image.h"
#include "model/database_facts.h"
#include "model/examination.h"
#include "model/finding.h"
#include "model/installed_databases.h"
#include "model/knowledge.h"
#include "model/registry_entries.h"

namespace model {

// Adds what one hive holds of these lists: the machine's software or system hive, or that of a user. `path`
// is where it lies.
void read_registry_lists(registry_lists& lists, const hive::hive_image& image,
                         const std::string& path);

// Whether the file of a stored path is there; nothing where nobody can tell.
using file_probe = std::function<std::optional<bool>(const std::string& stored)>;

// What does not fit together in the registry itself, by the keys of databases.
std::vector<placed_finding> judge_registry(const knowledge& known,
                                           const installed_databases& installed,
                                           const registry_lists& lists, const file_probe& is_there);

// What of a database does not fit what the registry says of it. `facts` are null where it is not registered;
// `programs` are the names of its executables, lower-case, ascending.
void judge_registration(finding_list& findings, const examined_database& examined,
                        const database_identity& identity, const installed_database* facts,
                        const registry_lists& lists, const std::vector<std::string>& programs);

// A custom database that was told about, as one of the machine's.
struct seen_database {
    std::string path;
    std::string compiler; // its version
};
// Those that another tool made than most.
std::vector<placed_finding> judge_compilers(const knowledge& known,
                                            std::vector<seen_database> databases);

} // namespace model
