#pragma once

#include <memory>

#include "io/notice.h"
#include "model/differences.h"
#include "model/explain_context.h"
#include "model/installed_databases.h"
#include "request/sdb_opts.h"

namespace front {

// Whether what was named to add to quilt's knowledge can be added, and what is asked for is known; says
// what is not.
bool is_knowledge_sound(const request::sdb_opts& options, io::notices& notices);

// What the explanations of a run share. The lists of the registry are taken from the targets.
std::unique_ptr<model::explain_context> make_explain_context(const request::sdb_opts& options,
                                                             const model::run_targets& targets,
                                                             std::uint64_t now);

// The records of the databases that were named as known; null where none was. One that cannot be read is
// said.
std::unique_ptr<model::known_records> load_known_records(const request::sdb_opts& options,
                                                         io::notices& notices);

// Tells whether files are there to which the run's registry refers, where this machine can know.
model::file_probe make_file_probe(const request::sdb_opts& options, const std::string& root);

} // namespace front
