#pragma once

#include "front/input_output.h"
#include "front/input_work.h"
#include "front/outputs.h"
#include "request/sdb_opts.h"

namespace front {

// Compares what the options name on two sides: two databases, or those of two folders or volumes, which are
// brought together by their places, then by their identifiers.
void compare_inputs(const request::sdb_opts& options, outputs& files, const input_work& inputs,
                    const input_output& out);

} // namespace front
