#include "platform/files.h"

#include <algorithm>
#include <cstdint>

#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>
#include <windows.h>

#include "platform/windows/paths.h"
#include "platform/windows/wide.h"
#include "uni/time.h"

namespace platform {

namespace {

constexpr std::size_t largest_block = 0x10000000;

std::uint64_t ticks_of(const FILETIME& time)
{
    return (static_cast<std::uint64_t>(time.dwHighDateTime) << 32) | time.dwLowDateTime;
}

std::string words_of(DWORD error)
{
    switch (error) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_NAME:
        return "no such file";
    case ERROR_FILENAME_EXCED_RANGE:
        return "the path is too long";
    case ERROR_ACCESS_DENIED:
        return "no permission";
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION:
        return "another program holds it";
    case ERROR_HANDLE_DISK_FULL:
    case ERROR_DISK_FULL:
        return "no space left";
    default:
        return "error " + std::to_string(error);
    }
}

opened_file failed_open(DWORD error)
{
    return {-1, words_of(error)};
}

bool needs_long_form(DWORD error)
{
    return error == ERROR_FILENAME_EXCED_RANGE || error == ERROR_PATH_NOT_FOUND;
}

HANDLE open_wide(const std::wstring& path, DWORD access, DWORD disposition, DWORD flags)
{
    constexpr DWORD sharing = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    return ::CreateFileW(path.c_str(), access, sharing, nullptr, disposition, flags, nullptr);
}

// The path as it stands, and in its long form where the system finds it too long.
HANDLE open_handle(const std::string& path, DWORD access, DWORD disposition, DWORD flags)
{
    const std::wstring wide = wide_from_utf8(path);
    if (wide.empty()) {
        ::SetLastError(ERROR_INVALID_NAME);
        return INVALID_HANDLE_VALUE;
    }
    const HANDLE handle = open_wide(wide, access, disposition, flags);
    if (handle != INVALID_HANDLE_VALUE || !needs_long_form(::GetLastError())) {
        return handle;
    }
    const std::wstring longer = long_path_form(wide);
    return longer.empty() ? handle : open_wide(longer, access, disposition, flags);
}

opened_file descriptor_of(HANDLE handle, int flags)
{
    const int descriptor = _open_osfhandle(reinterpret_cast<std::intptr_t>(handle), flags);
    if (descriptor < 0) {
        ::CloseHandle(handle);
        return {-1, "too many files are open"};
    }
    return {descriptor, {}};
}

HANDLE handle_of(int descriptor)
{
    return reinterpret_cast<HANDLE>(_get_osfhandle(descriptor));
}

std::optional<file_id> id_of(HANDLE handle)
{
    BY_HANDLE_FILE_INFORMATION information{};
    if (!::GetFileInformationByHandle(handle, &information)) {
        return std::nullopt;
    }
    return file_id{information.dwVolumeSerialNumber,
                   (static_cast<std::uint64_t>(information.nFileIndexHigh) << 32) |
                       information.nFileIndexLow};
}

// The stat record knows whole seconds only; it serves where the attribute call fails.
bool facts_from_stat(const std::wstring& path, file_facts& facts)
{
    struct _stat64 status {};
    if (_wstat64(path.c_str(), &status) != 0) {
        return false;
    }
    const auto ticks = [](__time64_t seconds) {
        return (static_cast<std::uint64_t>(seconds) + uni::seconds_1601_to_1970) *
               uni::ticks_per_second;
    };
    facts.write_time = ticks(status.st_mtime);
    facts.access_time = ticks(status.st_atime);
    facts.creation_time = ticks(status.st_ctime);
    facts.size = static_cast<std::uint64_t>(status.st_size);
    facts.is_directory = (status.st_mode & _S_IFDIR) != 0;
    return true;
}

} // namespace

opened_file open_for_reading(const std::string& path)
{
    // With the right to set times, which serves to have the system leave the access time alone.
    HANDLE handle = open_handle(path, GENERIC_READ | FILE_WRITE_ATTRIBUTES, OPEN_EXISTING,
                                FILE_ATTRIBUTE_NORMAL);
    if (handle != INVALID_HANDLE_VALUE) {
        const FILETIME left_alone{0xffffffff, 0xffffffff};
        ::SetFileTime(handle, nullptr, &left_alone, nullptr);
    } else {
        handle = open_handle(path, GENERIC_READ, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL);
    }
    if (handle == INVALID_HANDLE_VALUE) {
        const DWORD error = ::GetLastError();
        const DWORD attributes = ::GetFileAttributesW(callable_path(path).c_str());
        const bool is_folder =
            attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
        return is_folder ? opened_file{-1, "is a folder"} : failed_open(error);
    }
    if (::GetFileType(handle) != FILE_TYPE_DISK) {
        ::CloseHandle(handle);
        return {-1, "is a device"};
    }
    return descriptor_of(handle, _O_RDONLY | _O_BINARY);
}

opened_file open_for_writing(const std::string& path, existing_file existing)
{
    const DWORD disposition = existing == existing_file::keep    ? OPEN_ALWAYS
                              : existing == existing_file::empty ? CREATE_ALWAYS
                                                                 : CREATE_NEW;
    // A link is not emptied, but what it leads to would be.
    const DWORD flags = existing == existing_file::keep
                            ? FILE_ATTRIBUTE_NORMAL
                            : FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT;
    const HANDLE handle = open_handle(path, GENERIC_WRITE, disposition, flags);
    return handle == INVALID_HANDLE_VALUE ? failed_open(::GetLastError())
                                          : descriptor_of(handle, _O_WRONLY | _O_BINARY);
}

bool close_file(int descriptor)
{
    return _close(descriptor) == 0;
}

std::int64_t file_length(int descriptor)
{
    return std::max<std::int64_t>(_filelengthi64(descriptor), 0);
}

read_result read_file(int descriptor, std::span<std::uint8_t> out, std::int64_t offset)
{
    read_result result;
    if (_lseeki64(descriptor, offset, SEEK_SET) < 0) {
        result.failed = true;
        return result;
    }
    while (result.count < out.size()) {
        const auto wanted =
            static_cast<unsigned>(std::min(out.size() - result.count, largest_block));
        const int got = _read(descriptor, out.data() + result.count, wanted);
        if (got <= 0) {
            result.failed = got < 0;
            break;
        }
        result.count += static_cast<std::size_t>(got);
    }
    return result;
}

bool write_file(int descriptor, std::span<const std::uint8_t> bytes)
{
    std::size_t done = 0;
    while (done < bytes.size()) {
        const auto wanted = static_cast<unsigned>(std::min(bytes.size() - done, largest_block));
        const int put = _write(descriptor, bytes.data() + done, wanted);
        if (put <= 0) {
            return false;
        }
        done += static_cast<std::size_t>(put);
    }
    return true;
}

bool seek_end(int descriptor)
{
    return _lseeki64(descriptor, 0, SEEK_END) >= 0;
}

bool cut_file(int descriptor, std::int64_t length)
{
    return _chsize_s(descriptor, length) == 0;
}

bool replace_file(const std::string& from, const std::string& to)
{
    return ::MoveFileExW(callable_path(from).c_str(), callable_path(to).c_str(),
                         MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0;
}

std::optional<file_id> identify_file(const std::string& path)
{
    if (path.empty()) {
        return std::nullopt;
    }
    const HANDLE handle = open_handle(path, 0, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS);
    if (handle == INVALID_HANDLE_VALUE) {
        return std::nullopt;
    }
    const std::optional<file_id> id = id_of(handle);
    ::CloseHandle(handle);
    return id;
}

output_place find_output(const std::string& path)
{
    output_place place{path};
    const HANDLE handle = open_handle(path, 0, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS);
    if (handle == INVALID_HANDLE_VALUE) {
        return place;
    }
    place.exists = true;
    const DWORD attributes = ::GetFileAttributesW(callable_path(path).c_str());
    place.is_special =
        ::GetFileType(handle) != FILE_TYPE_DISK ||
        (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0);
    if (!place.is_special && attributes != INVALID_FILE_ATTRIBUTES &&
        (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
        std::wstring end_of_links(32768, L'\0');
        const DWORD length = ::GetFinalPathNameByHandleW(
            handle, end_of_links.data(), static_cast<DWORD>(end_of_links.size()), 0);
        if (length != 0 && length < end_of_links.size()) {
            end_of_links.resize(length);
            place.path = utf8_from_wide(end_of_links);
        }
    }
    ::CloseHandle(handle);
    return place;
}

// A file that takes another's place here takes its rights from the folder that both stand in.
void take_rights(int, const std::string&) {}

std::string native_spelling(std::string path)
{
    std::replace(path.begin(), path.end(), '/', '\\');
    return path;
}

std::optional<std::string> volume_at(const std::string&)
{
    return std::nullopt;
}

bool read_file_facts(const std::string& path, file_facts& facts)
{
    facts = {};
    const std::wstring wide = callable_path(path);
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (!::GetFileAttributesExW(wide.c_str(), GetFileExInfoStandard, &data)) {
        return facts_from_stat(wide, facts);
    }
    facts.write_time = ticks_of(data.ftLastWriteTime);
    facts.access_time = ticks_of(data.ftLastAccessTime);
    facts.creation_time = ticks_of(data.ftCreationTime);
    facts.size = (static_cast<std::uint64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
    facts.is_directory = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    return true;
}

bool read_file_facts(int descriptor, file_facts& facts)
{
    facts = {};
    BY_HANDLE_FILE_INFORMATION information{};
    if (!::GetFileInformationByHandle(handle_of(descriptor), &information)) {
        return false;
    }
    facts.write_time = ticks_of(information.ftLastWriteTime);
    facts.access_time = ticks_of(information.ftLastAccessTime);
    facts.creation_time = ticks_of(information.ftCreationTime);
    facts.size =
        (static_cast<std::uint64_t>(information.nFileSizeHigh) << 32) | information.nFileSizeLow;
    return true;
}

} // namespace platform
