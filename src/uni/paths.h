// Paths as text: cutting them up and expanding variables in them. Nothing here touches a file
// system. Slash and backslash both separate, on every platform.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace uni {

// Cuts a path at its last separator, which goes to neither part. The outputs for some inputs:
//
//   path         directory   name
//   c:\a\b.sdb   c:\a        b.sdb
//   /a/          /a          (empty)
//   b.sdb        .           b.sdb
//   a\..         a\..        .
//   a/..         a//..       .
//   ..           ..          .
//
// An empty path answers false and leaves both outputs empty. The outputs must not own `path`.
bool split_path(std::string_view path, std::string& directory, std::string& name);

// Looks up an environment variable; nothing when there is none of that name.
using variable_lookup = std::function<std::optional<std::string>(const std::string&)>;

// Replaces each %NAME% by the value of that variable, values being expanded in turn; a name that
// has no value stays as it is. With `allow_snapshot`, %vss% (in any case) without a variable of
// that name is the snapshot prefix. A text of more than 512 bytes is given back unchanged. After
// 64 replacements the rest stays as it is, so that variables that name themselves come to an end.
std::string expand_path(std::string_view text, bool allow_snapshot,
                        const variable_lookup& variable);

// The device path of a volume shadow copy up to its number.
std::string snapshot_prefix(bool lower_case);

} // namespace uni
