// Where a database lies on the volume that is examined, and what that means.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "files/file_tree.h"
#include "io/byte_source.h"
#include "model/database_facts.h"
#include "model/examination.h"
#include "model/knowledge.h"
#include "request/sdb_opts.h"

namespace model {

// The roots from which the places of a run's files are counted: those of the volumes that were named, of
// the volumes in an image in which its files lie, or a folder of a walk that looks like one. None where
// nothing tells.
std::vector<std::string> roots_of_run(const request::sdb_opts& options, files::file_tree& tree,
                                      const std::vector<std::string>& volumes);

// The path of a file below the root of its volume, as in "\Windows\AppPatch\a.sdb"; nothing where neither
// the roots nor, without any, the path itself tell it.
std::optional<std::string> place_of(const std::string& path, const std::vector<std::string>& roots);

enum class place_kind {
    custom_folder,   // where custom databases are installed
    vendors_by_name, // where the vendor's lie, which count by their names
    vendors,         // where else the vendor's lie
    elsewhere,
};
place_kind kind_of_place(const knowledge& known, std::string_view place);

// Whether the identifier of the vendor's database of that name is known.
bool has_known_identifier(const knowledge& known, std::string_view place);
// Whether a database is the vendor's own: by its place, its name and, where one is known, its identifier.
bool is_vendors_own(const knowledge& known, const std::optional<std::string>& place,
                    const database_identity& identity);

// The file name of a path, as it is spelled.
std::string_view file_name_of(std::string_view path);

// Findings about where a file lies. `place` may not be known; then the name alone counts.
void judge_place(finding_list& findings, const examined_database& examined,
                 const std::optional<std::string>& place, std::string_view path,
                 const database_identity& identity);

// Findings about what a file system keeps of the file.
void judge_file(finding_list& findings, const examined_database& examined,
                const io::file_history& kept, const database_identity& identity);

} // namespace model
