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

// What it means that the listing of a folder did not begin.
listing_result unlisted(const std::string& folder, DWORD error)
{
    const DWORD attributes = ::GetFileAttributesW(callable_path(folder).c_str());
    const bool is_missing = attributes == INVALID_FILE_ATTRIBUTES &&
                            (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND);
    if (is_missing) {
        return {false, true, "no such folder"};
    }
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
        return {false, false, "is no folder"};
    }
    if (error == ERROR_FILE_NOT_FOUND) { // the root of a volume that holds nothing
        return {true, false, {}};
    }
    return {false, false,
            error == ERROR_ACCESS_DENIED ? "no permission" : "error " + std::to_string(error)};
}

} // namespace

listing_result list_directory(const std::string& folder, std::vector<directory_entry>& entries)
{
    entries.clear();
    if (folder.empty()) {
        return {false, true, "no such folder"};
    }
    WIN32_FIND_DATAW found{};
    const HANDLE listing = ::FindFirstFileW(callable_path(join_path(folder, "*")).c_str(), &found);
    if (listing == INVALID_HANDLE_VALUE) {
        return unlisted(folder, ::GetLastError());
    }
    bool are_names_texts = true;
    do {
        std::string name = utf8_from_wide(found.cFileName);
        are_names_texts = are_names_texts && !name.empty();
        if (!name.empty() && name != "." && name != "..") {
            entries.push_back({std::move(name), kind_of(found)});
        }
    } while (::FindNextFileW(listing, &found));
    const DWORD error = ::GetLastError();
    ::FindClose(listing);
    if (error != ERROR_NO_MORE_FILES) {
        return {false, false, "error " + std::to_string(error)};
    }
    // No path could name such a file.
    return are_names_texts ? listing_result{true, false, {}}
                           : listing_result{false, false, "a name in it is no text"};
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
    return wide_from_utf8(folder).size() <= longest_plain_folder ? folder : long_path_form(folder);
}

} // namespace platform
