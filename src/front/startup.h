#pragma once

#include <optional>
#include <string>
#include <vector>

#include "form/facts.h"
#include "front/option_rows.h"

namespace front {

// What is known of the run when it begins.
form::run_facts gather_run_facts(const argument_list& args);

// The lines that stand at the top of the output of most forms: the program and its version, the run
// with its time, host and system, and the command line as it was typed. No line end behind the
// last.
std::string make_run_header(const argument_list& args, const form::run_facts& run);

// The text that is asked for by the only argument: the usage text, or the line of the version.
std::optional<std::string> text_asked_for(const argument_list& args);

// Takes a request for help out of the arguments, in any of its spellings; true if there was one or
// if there is nothing but the program's name.
bool asks_for_help(argument_list& args);

// Appends the options that only text_asked_for and asks_for_help look at, for their names.
void add_help_options(std::vector<option_row>& rows);

// Writes the usage text to the error stream.
void print_usage();

} // namespace front
