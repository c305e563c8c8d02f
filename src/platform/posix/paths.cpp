#include "platform/posix/paths.h"

#include <cerrno>
#include <optional>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

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

// Also tells whether the folder is there but could not be listed to its end.
std::optional<std::string> name_on_disk(const std::string& folder, std::string_view wanted,
                                        bool& is_hidden)
{
    DIR* const listing = open_folder(folder);
    if (listing == nullptr) {
        is_hidden = errno != ENOENT && errno != ENOTDIR;
        return std::nullopt;
    }
    std::optional<std::string> found;
    errno = 0;
    while (const dirent* entry = ::readdir(listing)) {
        const std::string_view name = entry->d_name;
        if (uni::equal_ignoring_case(name, wanted) && (!found || name < *found)) {
            found = name;
        }
        errno = 0;
    }
    is_hidden = errno != 0;
    ::closedir(listing);
    return found;
}

// Walks down the components, each in its spelling on disk; nothing when one is not there.
std::optional<std::string> walk_down(std::string at, const std::vector<std::string_view>& names,
                                     bool& is_hidden)
{
    for (const std::string_view name : names) {
        const std::string folder = at.empty() ? "." : at;
        std::string next = at.empty() || at == "/" ? at : at + "/";
        next += name;
        if (!exists(next)) {
            const std::optional<std::string> spelled = name_on_disk(folder, name, is_hidden);
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
    bool is_hidden = false;
    return walk_down(root_of(path), components_of(path), is_hidden).value_or(path);
}

bool is_way_hidden(const std::string& path)
{
    bool is_hidden = false;
    return !walk_down(root_of(path), components_of(path), is_hidden) && is_hidden;
}

DIR* open_folder(const std::string& folder)
{
    constexpr int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK;
    int descriptor = ::open(folder.c_str(), flags | O_NOATIME);
    if (descriptor < 0 && errno == EPERM) { // it is another's: its access time is the system's
        descriptor = ::open(folder.c_str(), flags);
    }
    if (descriptor < 0) {
        return nullptr;
    }
    DIR* const listing = ::fdopendir(descriptor);
    if (listing == nullptr) {
        const int error = errno;
        ::close(descriptor);
        errno = error;
    }
    return listing;
}

std::string find_output_path(const std::string& path)
{
    std::vector<std::string_view> names = components_of(path);
    if (exists(path) || names.empty()) {
        return path;
    }
    bool is_hidden = false;
    if (const auto existing = walk_down(root_of(path), names, is_hidden)) {
        return *existing;
    }
    const std::string last(names.back());
    names.pop_back();
    const auto folder = walk_down(root_of(path), names, is_hidden);
    if (!folder) {
        return path;
    }
    return folder->empty() || *folder == "/" ? *folder + last : *folder + "/" + last;
}

} // namespace platform
