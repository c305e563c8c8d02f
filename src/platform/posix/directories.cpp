#include "platform/directories.h"

#include <cerrno>
#include <string_view>
#include <system_error>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include "platform/posix/paths.h"

namespace platform {

namespace {

// The listing tells the kind itself, but for links and on a few file systems.
entry_kind kind_of(DIR* listing, const dirent& entry)
{
    if (entry.d_type == DT_DIR) {
        return entry_kind::directory;
    }
    struct stat status {};
    if ((entry.d_type != DT_LNK && entry.d_type != DT_UNKNOWN) ||
        ::fstatat(::dirfd(listing), entry.d_name, &status, 0) != 0 || !S_ISDIR(status.st_mode)) {
        return entry_kind::file;
    }
    const bool is_link =
        ::fstatat(::dirfd(listing), entry.d_name, &status, AT_SYMLINK_NOFOLLOW) != 0 ||
        S_ISLNK(status.st_mode);
    return is_link ? entry_kind::directory_link : entry_kind::directory;
}

} // namespace

listing_result list_directory(const std::string& folder, std::vector<directory_entry>& entries)
{
    entries.clear();
    DIR* const listing = open_folder(folder);
    if (listing == nullptr) {
        const int error = errno;
        const bool is_hidden = error == ENOENT && is_way_hidden(folder);
        return {false, error == ENOENT && !is_hidden,
                is_hidden          ? "a folder above it cannot be listed"
                : error == ENOENT  ? "no such folder"
                : error == ENOTDIR ? "is no folder"
                : error == EACCES  ? "no permission"
                                   : std::system_category().message(error)};
    }
    errno = 0;
    while (const dirent* const entry = ::readdir(listing)) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") {
            entries.push_back({std::string(name), kind_of(listing, *entry)});
        }
        errno = 0;
    }
    const int error = errno;
    ::closedir(listing);
    return error == 0 ? listing_result{true, false, {}}
                      : listing_result{false, false, std::system_category().message(error)};
}

std::string join_path(const std::string& folder, const std::string& name)
{
    if (folder.empty()) {
        return name;
    }
    // A backslash may end a folder's name here.
    return folder.substr(0, folder.find_last_not_of('/') + 1) + '/' + name;
}

std::string walkable_path(const std::string& folder)
{
    return find_path(folder);
}

} // namespace platform
