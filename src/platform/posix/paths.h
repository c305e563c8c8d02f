#pragma once

#include <string>

namespace platform {

// How paths that were written for the other system are found here. A path is taken as typed first.
// If nothing is there, slash and backslash both separate its components, and each component that
// does not exist as spelled is matched without regard to ASCII case (of several such names the
// first by bytes). So `\Windows\System32\Config\Software` is found on a mounted volume whatever
// its spelling there.

// The spelling on disk of an existing path; the path as typed if nothing is found.
std::string find_path(const std::string& path);

// The same for a file that is to be written and need not exist: then its folder is found, and the
// last component stands as typed.
std::string find_output_path(const std::string& path);

} // namespace platform
