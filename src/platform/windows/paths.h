#pragma once

#include <string>
#include <string_view>

namespace platform {

// The form of a path that the system takes beyond its usual length limit: a relative path is made
// absolute first, then `\\?\` is put in front. Empty when the current folder is not to be had.
std::wstring long_path_form(std::wstring_view path);

// A path for the calls that know nothing of long forms by themselves: long ones are given as
// long_path_form gives them, others as they are.
std::wstring callable_path(const std::string& path);

} // namespace platform
