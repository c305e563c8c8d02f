#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace front {

// The argument vector: UTF-8, element 0 the program as typed. The parsers take what they know out
// of it by the look-ups below; whatever is left in the end is ignored, with a notice. Names match
// without regard to case, with one dash or two, and of several matches the first counts. So the
// place of an option on the command line has no meaning, while the order of the look-ups does: an
// option looked up earlier wins when it stands where a later one expects its value.
using argument_list = std::vector<std::string>;

// An argument as the name of an option: with one dash where it has two.
std::string_view as_option_name(std::string_view argument);

// Takes a name out; false if it is not there.
bool find_option_flag(std::string_view name, argument_list& args);

// Takes a name and the element behind it out; false, and nothing taken, if either is not there.
bool find_option_value(std::string_view name, std::string& out, argument_list& args);

// The same without taking anything out, from element 1 on.
bool peek_option_flag(std::string_view name, const argument_list& args);
bool peek_option_value(std::string_view name, std::string& out, const argument_list& args);

} // namespace front
