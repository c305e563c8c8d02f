// Paths as a registry stores them, and as they are held against those of files. Nothing here touches
// a file system.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace model {

// Whether a path begins with a letter and a colon.
bool has_drive(std::string_view path);

// A path taken apart: slash and backslash both separate, "." names nothing, and what makes a path a
// long one is left out.
struct path_parts {
    std::string drive;              // letter and colon, if it has one
    bool is_rooted = false;         // a separator stands in front of the names
    std::vector<std::string> names; // ".." as it stands
};
path_parts parts_of(std::string_view path);

// Where a stored path leads.
enum class stored_kind {
    empty,
    names_no_file, // its last part is "." or "..", or there is none
    leaves_volume, // above its root by "..", or it has no drive letter and colon
    on_volume,
};
struct stored_path {
    stored_kind kind = stored_kind::empty;
    std::string drive;              // letter and colon
    std::vector<std::string> names; // from the root of its volume, of one that is there
    bool ends_in_separator = false;
};
stored_path read_stored_path(std::string_view stored);

// Names below a root as one text, in which letter case no longer counts.
std::string folded(const std::vector<std::string>& names);

// The whole path as one such text.
std::string folded(const path_parts& path);

// The names of a file below a volume in that form; nothing for one that lies elsewhere.
std::optional<std::string> place_below(const path_parts& file, const std::string& volume);

// The same below any root, whatever its drive; nothing for one that does not tell its root.
std::optional<std::string> place_below_root(const path_parts& file);

// The lower-cased file name of a path; empty behind a separator.
std::string lower_file_name(const std::string& path);

} // namespace model
