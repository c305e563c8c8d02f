// What a run works on when the user names no single database.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

#include "files/file_tree.h"
#include "io/notice.h"
#include "platform/directories.h"

namespace front {

// The entries of a folder in the order in which all walks take them, on every platform: ascending
// by name, ASCII letters as their lower case, names that are then the same by their bytes. What
// cannot be listed whole is said; with `may_be_missing` a folder need not be there.
std::vector<platform::directory_entry> list_in_order(files::file_tree& tree,
                                                     const std::string& folder,
                                                     io::notices& notices,
                                                     bool may_be_missing = false);

// Appends the path of each entry *.sdb, in any case, of `root` and the folders below it; `depth`
// counts the levels of folders that are looked at, `root` being the first. The entries of a folder
// come before those of its subfolders; links to folders are said and not followed. A root "." or ".." is not
// walked, one that is missing is passed over.
void walk_sdb_files(files::file_tree& tree, const std::string& root,
                    std::vector<std::string>& results, std::uint32_t depth, io::notices& notices);

// Says what of a disk could be read in a second place alone.
void say_copies(files::file_tree& tree, const std::string& path, io::notices& notices);

// Says that a walk passes over a link to a folder, or to a file that is not followed.
void say_linked_folder(const std::string& path, io::notices& notices);
void say_linked_file(const std::string& path, io::notices& notices);

// Appends what the folders hold where a Windows volume keeps its databases.
void add_default_targets(files::file_tree& tree, std::vector<std::string>& targets,
                         const std::string& volume, io::notices& notices);

// The folder of a volume in an image in which those files stand that were deleted, each in a folder of
// its own.
std::string folder_of_deleted(const std::string& volume);

// Appends those of them that are named *.sdb or, by content, that begin as databases do.
void add_deleted_targets(files::file_tree& tree, std::vector<std::string>& targets,
                         const std::string& volume, bool by_content);

// Whether a file begins as databases do, compressed ones too; nothing for one that cannot be read.
std::optional<bool> begins_as_database(files::file_tree& tree, const std::string& path);

// The names that lead to a volume's hive of software.
inline constexpr std::initializer_list<const char*> place_of_software_hive = {"Windows", "System32",
                                                                              "Config", "Software"};

// Appends whatever on a volume is a database by its first bytes, as far as it is not among the files.
void add_targets_by_content(files::file_tree& tree, std::vector<std::string>& files,
                            const std::string& volume, io::notices& notices);

// The path of what lies on a volume under these names, one below the other, in its spelling on disk
// as far as it exists.
std::string path_on_volume(files::file_tree& tree, const std::string& volume,
                           std::initializer_list<const char*> names);

// The volumes of a disk that hold a Windows; of its other partitions it is said why not.
std::vector<std::string> windows_partitions(files::file_tree& tree, const std::string& disk,
                                            io::notices& notices);

} // namespace front
