#pragma once

#include <string>

#include <dirent.h>

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

// Whether a folder on the way to a path that find_path did not find could not be listed, so that it
// may be there under another spelling.
bool is_way_hidden(const std::string& path);

// Opens a folder to be listed; its access time stays as it is, where the system lets us. Null, with
// errno, where that fails.
DIR* open_folder(const std::string& folder);

} // namespace platform
