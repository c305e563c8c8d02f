#pragma once

#include "files/file_tree.h"
#include "front/input_output.h"
#include "front/input_work.h"
#include "front/outputs.h"
#include "model/installed_databases.h"
#include "request/sdb_opts.h"

namespace front {

// Compares what the options name on two sides: two databases, or those of two folders or volumes, which are
// brought together by their places, then by their identifiers. The places on a disk with several volumes are
// counted from each of them, by the number of its partition. `targets` has what the run found on the first
// of two volumes.
void compare_inputs(const request::sdb_opts& options, files::file_tree& tree,
                    const model::run_targets& targets, outputs& files, const input_work& inputs,
                    const input_output& out);

} // namespace front
