#pragma once

#include "front/arguments.h"
#include "request/bounds.h"

namespace front {

// One run of the program, from its arguments to its exit value, 0 or -1. An exception that leaves a
// plain form of a report leaves this function too.
int run_driver(argument_list args, const request::bounds& bounds = {});

} // namespace front
