#pragma once

#include <memory>
#include <vector>

#include "files/file_tree.h"
#include "io/notice.h"
#include "model/explain_context.h"
#include "model/installed_databases.h"
#include "model/known_records.h"
#include "request/sdb_opts.h"

namespace front {

// Whether what was named to add to quilt's knowledge can be added, and what is asked for is known; says
// what is not.
bool is_knowledge_sound(const request::sdb_opts& options, files::file_tree& tree,
                        io::notices& notices);

// What the explanations of a run share. The targets must outlive it.
std::unique_ptr<model::explain_context> make_explain_context(const request::sdb_opts& options,
                                                             files::file_tree& tree,
                                                             const model::run_targets& targets,
                                                             std::uint64_t now);

// The records of the databases that were named as known; null where none was. One that cannot be read is
// said, and added to `unread`.
std::unique_ptr<model::known_records> load_known_records(const request::sdb_opts& options,
                                                         files::file_tree& tree,
                                                         io::notices& notices,
                                                         std::vector<model::unread_input>& unread);

// Tells whether files are there to which a registry refers, where this machine can know. `root` is that of
// its volume; it may be empty.
model::file_probe make_file_probe(const request::sdb_opts& options, files::file_tree& tree,
                                  const std::string& root);
// The same for several volumes together: a file that is on one of them is there.
model::file_probe probe_of_any(std::vector<model::file_probe> probes);

} // namespace front
