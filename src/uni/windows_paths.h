// Windows paths as text: the forms that they have for the system and for the user. Slash and
// backslash both separate.
#pragma once

#include <string>
#include <string_view>

namespace uni {

// The form of a Windows path that is taken at any length: absolute, begun by `\\?\`, with single
// backslashes and without "." and "..", since nothing resolves it any further. A path that begins
// so already stays as it is. `current` is the absolute path of the folder that a relative one starts
// from: the current folder, or that of the drive which the path names. Empty for an empty path and
// where a relative one has no such folder.
//
//   path                 current     long form
//   c:/a\..\b            any         \\?\c:\b
//   //server/share/a     any         \\?\UNC\server\share\a
//   a\.\b                c:\x        \\?\c:\x\a\b
//   \a                   c:\x        \\?\c:\a
//   c:a                  c:\x        \\?\c:\x\a
std::string long_windows_path(std::string_view path, std::string_view current);

// A long form as it is usually written: without `\\?\`, and with `\\` for `\\?\UNC\`. Other paths, and
// those that have no other form, stay.
std::string plain_windows_path(std::string_view path);

// Whether a Windows path, made absolute by the system, names a pipe or a device by its name, which
// to open may be an act of its own.
bool names_windows_device(std::string_view path);

} // namespace uni
