#pragma once

#include <string>
#include <vector>

namespace platform {

// What folders hold, and the paths of what was found there. Paths and names are UTF-8.

enum class entry_kind {
    file, // anything that is no folder, a link that leads nowhere too
    directory,
    // A link, junction or the like that leads to a folder. It is told apart so that walks need not
    // go through it: what lies behind it has a path of its own or is no part of what was asked for,
    // and links among folders could make a walk endless.
    directory_link,
    // A link to a file that cannot be followed, as in the image of a volume.
    file_link,
};

struct directory_entry {
    std::string name;
    entry_kind kind = entry_kind::file;
};

// The entries of a folder without "." and "..", in no particular order. `folder` is a path as
// walkable_path gives it, of any length. False, with the reason in words, for what is no folder or
// could not be read to its end; what was read stands in `entries`. `is_missing` tells that there is
// nothing of that name.
struct listing_result {
    bool is_whole = false;
    bool is_missing = false;
    std::string reason;
};
listing_result list_directory(const std::string& folder, std::vector<directory_entry>& entries);

// A folder and a name in it as one path, with exactly one separator between them.
std::string join_path(const std::string& folder, const std::string& name);

// The path from which a walk below a folder makes the paths that it gives, so that each of them can
// be used as it stands. Where names are told apart by case this is the folder's spelling on disk;
// where ordinary paths are short it is the long form, which begins with `\\?\`, of a path of more
// than 256 characters. The path as typed if nothing is found.
std::string walkable_path(const std::string& folder);

} // namespace platform
