#include "platform/files.h"

#include <algorithm>
#include <cerrno>

#include <fcntl.h>
#include <io.h>
#include <share.h>
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

int open_wide(const std::wstring& path, int flags, bool for_writing)
{
    if (for_writing) {
        // A read-only file is to be replaced all the same.
        ::SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
    }
    int descriptor = -1;
    const int permissions = for_writing ? _S_IREAD | _S_IWRITE : _S_IREAD;
    if (_wsopen_s(&descriptor, path.c_str(), flags, _SH_DENYNO, permissions) != 0) {
        return -1;
    }
    return descriptor;
}

bool needs_long_form(DWORD error)
{
    return error == ERROR_FILENAME_EXCED_RANGE || error == ERROR_PATH_NOT_FOUND;
}

int open_flags(open_mode mode)
{
    switch (mode) {
    case open_mode::read:
        return _O_RDONLY | _O_BINARY;
    case open_mode::write_existing:
        return _O_RDWR | _O_BINARY;
    case open_mode::write_truncate:
        return _O_RDWR | _O_CREAT | _O_TRUNC | _O_BINARY;
    }
    return _O_RDONLY | _O_BINARY;
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

int open_file(const std::string& path, open_mode mode)
{
    const std::wstring wide = wide_from_utf8(path);
    if (wide.empty()) {
        return -1;
    }
    const int flags = open_flags(mode);
    const bool for_writing = mode != open_mode::read;
    const int descriptor = open_wide(wide, flags, for_writing);
    if (descriptor >= 0 || !needs_long_form(::GetLastError())) {
        return descriptor;
    }
    const std::wstring longer = long_path_form(wide);
    return longer.empty() ? -1 : open_wide(longer, flags, for_writing);
}

void close_file(int descriptor)
{
    _close(descriptor);
}

std::int64_t file_length(int descriptor)
{
    return std::max<std::int64_t>(_lseeki64(descriptor, 0, SEEK_END), 0);
}

std::size_t read_file(int descriptor, std::span<std::uint8_t> out, std::int64_t offset)
{
    if (_lseeki64(descriptor, offset, SEEK_SET) < 0) {
        return 0;
    }
    std::size_t done = 0;
    while (done < out.size()) {
        const auto wanted = static_cast<unsigned>(std::min(out.size() - done, largest_block));
        const int got = _read(descriptor, out.data() + done, wanted);
        if (got <= 0) {
            break;
        }
        done += static_cast<std::size_t>(got);
    }
    return done;
}

bool write_file(int descriptor, std::span<const std::uint8_t> bytes, std::int64_t offset)
{
    if (_lseeki64(descriptor, offset, SEEK_SET) < 0) {
        return false;
    }
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

bool delete_file(const std::string& path)
{
    return ::DeleteFileW(callable_path(path).c_str()) != 0;
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

std::uint64_t file_identity(const std::string& path)
{
    const HANDLE file = ::CreateFileW(callable_path(path).c_str(), 0,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return 0;
    }
    BY_HANDLE_FILE_INFORMATION information{};
    const bool known = ::GetFileInformationByHandle(file, &information) != 0;
    ::CloseHandle(file);
    if (!known) {
        return 0;
    }
    const std::uint64_t index =
        (static_cast<std::uint64_t>(information.nFileIndexHigh) << 32) | information.nFileIndexLow;
    return index & 0xffffffffffff;
}

} // namespace platform
