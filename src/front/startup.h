#pragma once

#include <string>

#include "front/arguments.h"

namespace front {

// The lines that stand at the top of every output but XML: the program and its version, the run
// with its time, host and system, and the command line as it was typed. No line end behind the
// last.
std::string make_run_header(const argument_list& args);

// Takes a request for help out of the arguments, in any of its four spellings; true if there was
// one or if there is nothing but the program's name.
bool asks_for_help(argument_list& args);

// Writes the usage text to the error stream.
void print_usage();

} // namespace front
