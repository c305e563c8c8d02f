// What a run works on when the user names no single database.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

#include "io/notice.h"
#include "platform/directories.h"

namespace front {

// The entries of a folder in the order in which all walks take them, on every platform: ascending
// by name, ASCII letters as their lower case, names that are then the same by their bytes. What
// cannot be listed whole is said; with `may_be_missing` a folder need not be there.
std::vector<platform::directory_entry>
list_in_order(const std::string& folder, io::notices& notices, bool may_be_missing = false);

// Appends the path of each entry *.sdb, in any case, of `root` and the folders below it; `depth`
// counts the levels of folders that are looked at, `root` being the first. The entries of a folder
// come before those of its subfolders; links to folders are said and not followed. A root "." or ".." is not
// walked, one that is missing is passed over.
void walk_sdb_files(const std::string& root, std::vector<std::string>& results, std::uint32_t depth,
                    io::notices& notices);

// Says that a walk passes over a link to a folder.
void say_linked_folder(const std::string& path, io::notices& notices);

// Appends what the folders hold where a Windows volume keeps its databases.
void add_default_targets(std::vector<std::string>& files, const std::string& volume,
                         io::notices& notices);

// Whether a file has the first bytes of a database; nothing where nobody can tell.
std::optional<bool> begins_as_database(const std::string& path);

// Appends whatever on a volume is a database by its first bytes, as far as it is not among the files.
void add_targets_by_content(std::vector<std::string>& files, const std::string& volume,
                            io::notices& notices);

// The path of what lies on a volume under these names, one below the other, in its spelling on disk
// as far as it exists.
std::string path_on_volume(const std::string& volume, std::initializer_list<const char*> names);

} // namespace front
