#include "uni/windows_paths.h"

#include <vector>

#include "uni/text.h"

namespace uni {

namespace {

constexpr std::string_view long_prefix = "\\\\?\\";

bool is_separator(char c)
{
    return c == '\\' || c == '/';
}

bool begins_with_drive(std::string_view path)
{
    const char letter = path.empty() ? '\0' : lower_ascii(path[0]);
    return path.size() >= 2 && letter >= 'a' && letter <= 'z' && path[1] == ':';
}

// Whether a path begins as that of a device does, with `\\.\` or `\\?\`.
bool begins_with_device(std::string_view path)
{
    return path.size() >= 4 && is_separator(path[0]) && is_separator(path[1]) &&
           (path[2] == '.' || path[2] == '?') && is_separator(path[3]);
}

// Takes the first name off a path, and the separators behind it.
std::string_view take_name(std::string_view& path)
{
    std::size_t end = 0;
    while (end < path.size() && !is_separator(path[end])) {
        ++end;
    }
    const std::string_view name = path.substr(0, end);
    while (end < path.size() && is_separator(path[end])) {
        ++end;
    }
    path.remove_prefix(end);
    return name;
}

std::string share_root(std::string_view& path)
{
    const std::string_view server = take_name(path);
    std::string root = std::string(long_prefix) + "UNC\\";
    root += server;
    root += '\\';
    return (root += take_name(path)) += '\\';
}

// Takes the root off an absolute path, which no ".." leads out of, and gives its long form. Empty
// for a path that is not absolute.
std::string take_root(std::string_view& path)
{
    if (begins_with_device(path)) {
        path.remove_prefix(long_prefix.size());
        const std::string_view device = take_name(path);
        return equal_ignoring_case(device, "unc")
                   ? share_root(path)
                   : std::string(long_prefix) + std::string(device) + '\\';
    }
    if (path.size() >= 2 && is_separator(path[0]) && is_separator(path[1])) {
        path.remove_prefix(2);
        return share_root(path);
    }
    if (begins_with_drive(path) && path.size() > 2 && is_separator(path[2])) {
        const std::string_view drive = take_name(path);
        return std::string(long_prefix) + std::string(drive) + '\\';
    }
    return {};
}

// Walks on from the names that were gone through already.
void walk_names(std::vector<std::string_view>& names, std::string_view path)
{
    while (!path.empty()) {
        const std::string_view name = take_name(path);
        if (name == "..") {
            names.resize(names.empty() ? 0 : names.size() - 1);
        } else if (!name.empty() && name != ".") {
            names.push_back(name);
        }
    }
}

} // namespace

std::string long_windows_path(std::string_view path, std::string_view current)
{
    if (path.empty() || path.starts_with(long_prefix)) {
        return std::string(path);
    }
    std::vector<std::string_view> names;
    std::string root = take_root(path);
    if (root.empty()) {
        root = take_root(current);
        if (root.empty()) {
            return {};
        }
        if (begins_with_drive(path)) {
            path.remove_prefix(2);
        }
        if (path.empty() || !is_separator(path[0])) {
            walk_names(names, current);
        }
    }
    walk_names(names, path);
    for (const std::string_view name : names) {
        root += name;
        root += '\\';
    }
    if (!names.empty() && (path.empty() || !is_separator(path.back()))) {
        root.pop_back();
    }
    return root;
}

std::string plain_windows_path(std::string_view path)
{
    std::string_view rest = path;
    if (!path.starts_with(long_prefix)) {
        return std::string(path);
    }
    rest.remove_prefix(long_prefix.size());
    if (begins_with_drive(rest)) {
        return std::string(rest);
    }
    return equal_ignoring_case(take_name(rest), "unc") ? "\\\\" + std::string(rest)
                                                       : std::string(path);
}

bool names_windows_device(std::string_view path)
{
    std::string_view kind;
    if (begins_with_device(path)) {
        path.remove_prefix(long_prefix.size());
        if (path.find_first_of("\\/") == std::string_view::npos) {
            return true;
        }
        kind = take_name(path);
        if (equal_ignoring_case(kind, "unc")) {
            take_name(path);
            kind = take_name(path);
        }
    } else if (path.starts_with("\\\\")) {
        path.remove_prefix(2);
        take_name(path);
        kind = take_name(path);
    }
    return equal_ignoring_case(kind, "pipe") || equal_ignoring_case(kind, "mailslot");
}

} // namespace uni
