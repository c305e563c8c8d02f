#include "platform/posix/paths.h"

#include <dirent.h>
#include <sys/stat.h>

#include <optional>
#include <string_view>
#include <vector>

#include "uni/text.h"

namespace platform {

namespace {

bool exists(const std::string& path)
{
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0;
}

bool is_separator(char c)
{
    return c == '/' || c == '\\';
}

std::vector<std::string_view> components_of(std::string_view path)
{
    std::vector<std::string_view> components;
    while (!path.empty()) {
        std::size_t length = 0;
        while (length < path.size() && !is_separator(path[length])) {
            ++length;
        }
        if (length != 0) {
            components.push_back(path.substr(0, length));
        }
        path.remove_prefix(length == path.size() ? length : length + 1);
    }
    return components;
}

std::optional<std::string> name_on_disk(const std::string& folder, std::string_view wanted)
{
    DIR* const listing = ::opendir(folder.c_str());
    if (listing == nullptr) {
        return std::nullopt;
    }
    std::optional<std::string> found;
    while (const dirent* entry = ::readdir(listing)) {
        const std::string_view name = entry->d_name;
        if (uni::equal_ignoring_case(name, wanted) && (!found || name < *found)) {
            found = name;
        }
    }
    ::closedir(listing);
    return found;
}

// Walks down the components, each in its spelling on disk; nothing when one is not there.
std::optional<std::string> walk_down(std::string at, const std::vector<std::string_view>& names)
{
    for (const std::string_view name : names) {
        const std::string folder = at.empty() ? "." : at;
        std::string next = at.empty() || at == "/" ? at : at + "/";
        next += name;
        if (!exists(next)) {
            const std::optional<std::string> spelled = name_on_disk(folder, name);
            if (!spelled) {
                return std::nullopt;
            }
            next.replace(next.size() - name.size(), name.size(), *spelled);
        }
        at = std::move(next);
    }
    return at;
}

std::string root_of(const std::string& path)
{
    return !path.empty() && is_separator(path.front()) ? "/" : "";
}

} // namespace

std::string find_path(const std::string& path)
{
    if (path.empty() || exists(path)) {
        return path;
    }
    return walk_down(root_of(path), components_of(path)).value_or(path);
}

std::string find_output_path(const std::string& path)
{
    std::vector<std::string_view> names = components_of(path);
    if (exists(path) || names.empty()) {
        return path;
    }
    if (const auto existing = walk_down(root_of(path), names)) {
        return *existing;
    }
    const std::string last(names.back());
    names.pop_back();
    const auto folder = walk_down(root_of(path), names);
    if (!folder) {
        return path;
    }
    return folder->empty() || *folder == "/" ? *folder + last : *folder + "/" + last;
}

} // namespace platform
