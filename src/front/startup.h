#pragma once

#include <string>

#include "form/facts.h"
#include "front/arguments.h"

namespace front {

// What is known of the run when it begins.
form::run_facts gather_run_facts(const argument_list& args);

// The lines that stand at the top of the output of most forms: the program and its version, the run
// with its time, host and system, and the command line as it was typed. No line end behind the
// last.
std::string make_run_header(const argument_list& args, const form::run_facts& run);

} // namespace front
