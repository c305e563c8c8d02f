#include "platform/files.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>
#include <windows.h>

#include <aclapi.h>

#include "platform/windows/paths.h"
#include "platform/windows/wide.h"
#include "uni/text.h"
#include "uni/time.h"
#include "uni/windows_paths.h"

namespace platform {

namespace {

constexpr std::size_t largest_block = 0x10000000;
constexpr std::size_t drive_letter_and_colon = 2;

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

constexpr DWORD share_all = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

HANDLE open_handle(const std::string& path, DWORD access, DWORD disposition, DWORD flags,
                   DWORD sharing = share_all)
{
    const std::wstring wide = callable_path(path);
    if (wide.empty()) {
        ::SetLastError(ERROR_INVALID_NAME);
        return INVALID_HANDLE_VALUE;
    }
    return ::CreateFileW(wide.c_str(), access, sharing, nullptr, disposition, flags, nullptr);
}

// What is there, a folder too, to be asked about and not to be read.
class looked_at {
public:
    explicit looked_at(const std::string& path)
        : handle_(open_handle(path, 0, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS))
    {}
    ~looked_at()
    {
        if (is_there()) {
            ::CloseHandle(handle_);
        }
    }
    looked_at(const looked_at&) = delete;
    looked_at& operator=(const looked_at&) = delete;

    bool is_there() const { return handle_ != INVALID_HANDLE_VALUE; }
    HANDLE handle() const { return handle_; }

private:
    HANDLE handle_;
};

// The attributes of a path itself, not of what a link leads to; none for what is not there.
DWORD attributes_of(const std::string& path)
{
    const DWORD attributes = ::GetFileAttributesW(callable_path(path).c_str());
    return attributes == INVALID_FILE_ATTRIBUTES ? 0 : attributes;
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

template <typename record>
void set_facts(file_facts& facts, const record& from)
{
    facts.write_time = ticks_of(from.ftLastWriteTime);
    facts.access_time = ticks_of(from.ftLastAccessTime);
    facts.creation_time = ticks_of(from.ftCreationTime);
    facts.size = (static_cast<std::uint64_t>(from.nFileSizeHigh) << 32) | from.nFileSizeLow;
    facts.is_directory = (from.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool facts_from_handle(HANDLE handle, file_facts& facts)
{
    BY_HANDLE_FILE_INFORMATION information{};
    if (!::GetFileInformationByHandle(handle, &information)) {
        return false;
    }
    set_facts(facts, information);
    return true;
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

// The path of what is open, its links followed; empty if it cannot be told.
std::string final_path(HANDLE handle)
{
    std::wstring path(32768, L'\0');
    const DWORD length =
        ::GetFinalPathNameByHandleW(handle, path.data(), static_cast<DWORD>(path.size()), 0);
    path.resize(length < path.size() ? length : 0);
    return utf8_from_wide(path);
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

} // namespace

opened_file open_for_reading(const std::string& path)
{
    if (names_device(path)) {
        return {-1, "is a device"};
    }
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
        const bool is_folder = (attributes_of(path) & FILE_ATTRIBUTE_DIRECTORY) != 0;
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
    const DWORD disposition = existing == existing_file::keep ? OPEN_ALWAYS : CREATE_NEW;
    if (existing == existing_file::renew) {
        // Not emptied: it may have another name, under which it is somebody's.
        constexpr DWORD other_kinds = FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_DIRECTORY;
        if ((attributes_of(path) & other_kinds) == 0) {
            remove_file(path);
        }
    }
    HANDLE handle = INVALID_HANDLE_VALUE;
    // As many of the rights that take_rights needs as the system gives.
    const DWORD most = existing == existing_file::keep ? 0 : WRITE_DAC | WRITE_OWNER;
    for (const DWORD more : {most, most & WRITE_DAC, DWORD{0}}) {
        // What is written is held: no other run writes or removes it meanwhile.
        handle = open_handle(path, GENERIC_WRITE | more, disposition, FILE_ATTRIBUTE_NORMAL,
                             FILE_SHARE_READ);
        if (handle != INVALID_HANDLE_VALUE || ::GetLastError() != ERROR_ACCESS_DENIED) {
            break;
        }
    }
    if (handle == INVALID_HANDLE_VALUE) {
        return failed_open(::GetLastError());
    }
    return descriptor_of(handle, _O_WRONLY | _O_BINARY);
}

bool close_file(int descriptor)
{
    return _close(descriptor) == 0;
}

std::int64_t file_length(int descriptor)
{
    return _filelengthi64(descriptor);
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

// The system holds what is open for writing, by how it was opened.
bool hold_file(int)
{
    return true;
}

bool is_file_at(int descriptor, const std::string& path)
{
    return identify_file(path) == id_of(handle_of(descriptor));
}

bool remove_file(const std::string& path)
{
    return ::DeleteFileW(callable_path(path).c_str()) != 0;
}

bool replace_file(const std::string& from, const std::string& to)
{
    const std::wstring source = callable_path(from);
    const std::wstring place = callable_path(to);
    const auto move = [&] {
        return ::MoveFileExW(source.c_str(), place.c_str(),
                             MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0;
    };
    if (move()) {
        return true;
    }
    // What is marked as read-only is not replaced, though its folder would let it be.
    const DWORD attributes = attributes_of(to);
    if (::GetLastError() != ERROR_ACCESS_DENIED || (attributes & FILE_ATTRIBUTE_READONLY) == 0 ||
        !::SetFileAttributesW(place.c_str(), attributes & ~DWORD{FILE_ATTRIBUTE_READONLY})) {
        return false;
    }
    const bool is_moved = move();
    if (!is_moved) {
        ::SetFileAttributesW(place.c_str(), attributes);
    }
    return is_moved;
}

std::optional<file_id> identify_file(const std::string& path)
{
    if (path.empty() || names_device(path)) {
        return std::nullopt;
    }
    // A stream of a file is a part of it, whether it is there or not.
    const std::size_t name = path.find_last_of("/\\") + 1; // 0 where there is none
    const std::size_t stream = path.find(':', std::max(name, drive_letter_and_colon));
    const looked_at file(path.substr(0, stream));
    return file.is_there() ? id_of(file.handle()) : std::nullopt;
}

std::optional<file_id> identify_stream(int descriptor)
{
    const HANDLE handle = handle_of(descriptor);
    return ::GetFileType(handle) == FILE_TYPE_DISK ? id_of(handle) : std::nullopt;
}

output_place find_output(const std::string& path)
{
    if (names_device(path)) {
        return {path, true, true};
    }
    output_place place{path};
    const looked_at file(path);
    if (!file.is_there()) {
        return place;
    }
    file_facts facts;
    place.exists = true;
    place.is_special = ::GetFileType(file.handle()) != FILE_TYPE_DISK ||
                       (facts_from_handle(file.handle(), facts) && facts.is_directory);
    if (!place.is_special && (attributes_of(path) & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
        const std::string end_of_links = final_path(file.handle());
        if (!end_of_links.empty()) {
            place.path = uni::plain_windows_path(end_of_links);
        }
    }
    return place;
}

void take_rights(int descriptor, const std::string& from)
{
    const HANDLE file = handle_of(descriptor);
    PSECURITY_DESCRIPTOR rights = nullptr;
    if (::GetNamedSecurityInfoW(callable_path(from).c_str(), SE_FILE_OBJECT,
                                OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION, nullptr,
                                nullptr, nullptr, nullptr, &rights) == ERROR_SUCCESS) {
        // One by one: a file may be given rights by whoever may not give it away.
        for (const DWORD kind : {OWNER_SECURITY_INFORMATION, DACL_SECURITY_INFORMATION}) {
            ::SetKernelObjectSecurity(file, kind, rights);
        }
        ::LocalFree(rights);
    }
    FILE_BASIC_INFO basic{};
    basic.FileAttributes = attributes_of(from);
    ::SetFileInformationByHandle(file, FileBasicInfo, &basic, sizeof basic);
}

std::string native_spelling(std::string path)
{
    std::replace(path.begin(), path.end(), '/', '\\');
    return path;
}

std::optional<std::string> volume_at(const std::string&)
{
    return std::nullopt;
}

bool is_missing(const std::string& path)
{
    ::SetLastError(ERROR_SUCCESS);
    const DWORD attributes = ::GetFileAttributesW(callable_path(path).c_str());
    const DWORD error = ::GetLastError();
    return attributes == INVALID_FILE_ATTRIBUTES &&
           (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND);
}

bool lies_below(const std::string& path, const std::string& folder)
{
    const looked_at file(path);
    const looked_at root(folder + '\\');
    if (!file.is_there() || !root.is_there()) {
        return true;
    }
    const std::string place = uni::lowered(final_path(file.handle()));
    std::string above = uni::lowered(final_path(root.handle()));
    above.erase(above.find_last_not_of('\\') + 1);
    return place.empty() || above.empty() || (place + '\\').starts_with(above + '\\');
}

bool read_file_facts(const std::string& path, file_facts& facts)
{
    facts = {};
    const std::wstring wide = callable_path(path);
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (!::GetFileAttributesExW(wide.c_str(), GetFileExInfoStandard, &data)) {
        return facts_from_stat(wide, facts);
    }
    if ((data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) { // the link's own facts
        const looked_at file(path);
        return file.is_there() && facts_from_handle(file.handle(), facts);
    }
    set_facts(facts, data);
    return true;
}

bool read_file_facts(int descriptor, file_facts& facts)
{
    facts = {};
    return facts_from_handle(handle_of(descriptor), facts);
}

} // namespace platform
