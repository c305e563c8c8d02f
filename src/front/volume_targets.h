// The volumes that were named, and the databases that a run finds on them.
#pragma once

#include <string>

#include "files/file_tree.h"
#include "io/notice.h"
#include "model/installed_databases.h"
#include "request/sdb_opts.h"

namespace front {

// Enters the roots of the volumes for which a name stands; of those of a disk that are passed over it is
// said why. Without a volume that was named, the name itself.
void find_volumes(model::run_targets& targets, const request::sdb_opts& options,
                  const std::string& named, files::file_tree& tree, io::notices& notices);

// Adds what the folders hold where a volume keeps its databases and, where that was asked for, whatever
// on it is one by its content. What leads out of the volume is said, and entered as not opened.
void add_databases_of(model::run_targets& targets, const request::sdb_opts& options,
                      const std::string& volume, files::file_tree& tree, io::notices& notices);

} // namespace front
