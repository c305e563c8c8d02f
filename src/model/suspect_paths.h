// What a path, or a command line with paths in it, tells of who may put something there.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "model/knowledge.h"

namespace model {

// Whether ordinary users can write where a path leads, or it leads to another machine: a share, the root of
// a drive, or a folder of the list.
bool is_writable_place(const knowledge& known, std::string_view path);

// The first of the modules that a command line names, with as much of a path as stands in front, that is a
// suspect one; empty for none.
std::string first_suspect_module(const knowledge& known, std::string_view command_line);

// Whether a module is named by a path that an intruder may fill: one of the above, or a relative one. A
// bare name is none.
bool is_suspect_module(const knowledge& known, std::string_view module);

// Whether an item of a command line that is a list of module names does not end in ".dll".
bool has_item_without_dll(std::string_view command_line);

// Whether a command line turns a place or a variable of the system to a place that users can write.
bool redirects_to_writable(const knowledge& known, std::string_view command_line);

} // namespace model
