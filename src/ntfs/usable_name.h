#pragma once

#include <string>

#include "uni/byte_view.h"

namespace ntfs {

// Appends a stored name, UTF-16LE, as a path can hold it, so that no file is hidden by its name: a unit that
// is no text, or would part or end the path, and a name that means another folder, are marked by U+FFFD and
// the unit's four hexadecimal digits. True if something was marked; then another name may be called the same.
bool append_usable(std::u16string& to, uni::byte_view stored);

} // namespace ntfs
