#pragma once

#include <optional>
#include <string>
#include <vector>

#include "front/arguments.h"
#include "front/option_rows.h"

namespace front {

// The text that is asked for and nothing else: help by the only argument, help about an option by the
// only argument behind it, or the version.
std::optional<std::string> text_asked_for(const argument_list& args);

// What stands behind the name of help, alone, and is no option; empty for anything else.
std::string unknown_option_asked_for(const argument_list& args);

// Takes a request for help out of the arguments, in any of its spellings; true if there was one.
bool asks_for_help(argument_list& args);

// Appends the options that only text_asked_for and asks_for_help look at, for their names.
void add_help_options(std::vector<option_row>& rows);

// Write to the error stream: the usage text, which readers know, and what gets one going who gave no
// argument at all.
void print_usage();
void print_first_words();

} // namespace front
