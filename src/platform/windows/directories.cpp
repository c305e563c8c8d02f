#include "platform/directories.h"

#include <utility>

#include <windows.h>

#include "platform/windows/paths.h"
#include "platform/windows/wide.h"

namespace platform {

namespace {

constexpr std::size_t longest_plain_folder = 256;

entry_kind kind_of(const WIN32_FIND_DATAW& found)
{
    if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
        return entry_kind::file;
    }
    // Not every reparse point stands for something elsewhere: the tag tells.
    const bool is_link = (found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
                         IsReparseTagNameSurrogate(found.dwReserved0);
    return is_link ? entry_kind::directory_link : entry_kind::directory;
}

} // namespace

listing_result list_directory(const std::string& folder, std::vector<directory_entry>& entries)
{
    entries.clear();
    WIN32_FIND_DATAW found{};
    if (folder.empty()) {
        return {false, true, "no such folder"};
    }
    const HANDLE listing = ::FindFirstFileW(callable_path(join_path(folder, "*")).c_str(), &found);
    if (listing == INVALID_HANDLE_VALUE) {
        const DWORD error = ::GetLastError();
        const bool is_missing = error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
        return {false, is_missing,
                is_missing                     ? "no such folder"
                : error == ERROR_DIRECTORY     ? "is no folder"
                : error == ERROR_ACCESS_DENIED ? "no permission"
                                               : "error " + std::to_string(error)};
    }
    do {
        // Empty for a name that is no text, which no path could name.
        std::string name = utf8_from_wide(found.cFileName);
        if (!name.empty() && name != "." && name != "..") {
            entries.push_back({std::move(name), kind_of(found)});
        }
    } while (::FindNextFileW(listing, &found));
    const DWORD error = ::GetLastError();
    ::FindClose(listing);
    return error == ERROR_NO_MORE_FILES
               ? listing_result{true, false, {}}
               : listing_result{false, false, "error " + std::to_string(error)};
}

std::string join_path(const std::string& folder, const std::string& name)
{
    if (folder.empty()) {
        return name;
    }
    return folder.substr(0, folder.find_last_not_of("\\/") + 1) + '\\' + name;
}

std::string walkable_path(const std::string& folder)
{
    const std::wstring wide = wide_from_utf8(folder);
    return wide.size() <= longest_plain_folder ? folder : utf8_from_wide(long_path_form(wide));
}

} // namespace platform
