#pragma once

#include <string>

namespace platform {

// The form of a path that the system takes at any length, with `\\?\` in front.
std::string long_path_form(const std::string& path);

// A path for the system's calls, which resolve short ones themselves and take long ones in their
// long form alone. Empty where there is no such path.
std::wstring callable_path(const std::string& path);

// Whether a path names a pipe or a device, which to open may be an act of its own.
bool names_device(const std::string& path);

} // namespace platform
