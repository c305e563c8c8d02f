#include "platform/files.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include "platform/posix/paths.h"
#include "uni/time.h"

namespace platform {

namespace {

using uni::seconds_1601_to_1970;
using uni::ticks_per_second;

std::uint64_t filetime_of(const struct statx_timestamp& moment)
{
    const std::int64_t seconds = moment.tv_sec + seconds_1601_to_1970;
    return seconds < 0
               ? 0
               : static_cast<std::uint64_t>(seconds) * ticks_per_second + moment.tv_nsec / 100;
}

// A pipe must not block the run, a terminal must not become its controlling one.
constexpr int always = O_CLOEXEC | O_NOCTTY | O_NONBLOCK;

// Leaves the file's access time as it is, where the system lets us: reading is no use of the file.
int open_for_reading(const std::string& found)
{
    const int descriptor = ::open(found.c_str(), O_RDONLY | O_NOATIME | always);
    return descriptor < 0 && errno == EPERM ? ::open(found.c_str(), O_RDONLY | always) : descriptor;
}

int open_for_writing(const std::string& path, int flags)
{
    const std::string found = find_output_path(path);
    int descriptor = ::open(found.c_str(), O_RDWR | flags | always, 0600);
    struct stat status {};
    if (descriptor < 0 && errno == EACCES && ::stat(found.c_str(), &status) == 0 &&
        S_ISREG(status.st_mode) && (status.st_mode & S_IWUSR) == 0 &&
        ::chmod(found.c_str(), (status.st_mode & 07777) | S_IWUSR) == 0) {
        descriptor = ::open(found.c_str(), O_RDWR | flags | always, 0600);
    }
    return descriptor;
}

} // namespace

int open_file(const std::string& path, open_mode mode)
{
    switch (mode) {
    case open_mode::read:
        return open_for_reading(find_path(path));
    case open_mode::write_existing:
        return open_for_writing(path, 0);
    case open_mode::write_truncate:
        return open_for_writing(path, O_CREAT | O_TRUNC);
    }
    return -1;
}

void close_file(int descriptor)
{
    ::close(descriptor);
}

std::int64_t file_length(int descriptor)
{
    const off_t length = ::lseek(descriptor, 0, SEEK_END);
    struct stat status {};
    if (length < 0 || ::fstat(descriptor, &status) != 0 || S_ISDIR(status.st_mode)) {
        return 0;
    }
    return length;
}

std::size_t read_file(int descriptor, std::span<std::uint8_t> out, std::int64_t offset)
{
    std::size_t done = 0;
    while (done < out.size()) {
        const ssize_t got = ::pread(descriptor, out.data() + done, out.size() - done,
                                    offset + static_cast<off_t>(done));
        if (got > 0) {
            done += static_cast<std::size_t>(got);
        } else if (got == 0 || errno != EINTR) {
            break;
        }
    }
    return done;
}

bool write_file(int descriptor, std::span<const std::uint8_t> bytes, std::int64_t offset)
{
    std::size_t done = 0;
    while (done < bytes.size()) {
        ssize_t put = ::pwrite(descriptor, bytes.data() + done, bytes.size() - done,
                               offset + static_cast<off_t>(done));
        if (put < 0 && errno == ESPIPE) {
            // A pipe or a terminal has no places, only a next byte.
            put = ::write(descriptor, bytes.data() + done, bytes.size() - done);
        }
        if (put < 0 && errno == EINTR) {
            continue;
        }
        if (put <= 0) {
            return false;
        }
        done += static_cast<std::size_t>(put);
    }
    return true;
}

bool delete_file(const std::string& path)
{
    const std::string found = find_path(path);
    struct stat status {};
    return ::lstat(found.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           ::unlink(found.c_str()) == 0;
}

std::string native_spelling(std::string path)
{
    return path;
}

std::optional<std::string> volume_at(const std::string& value)
{
    std::string found = find_path(value);
    struct stat status {};
    if (value.empty() || ::stat(found.c_str(), &status) != 0 ||
        !(S_ISDIR(status.st_mode) || S_ISREG(status.st_mode) || S_ISBLK(status.st_mode))) {
        return std::nullopt;
    }
    found.erase(found.find_last_not_of("/\\") + 1);
    return found.empty() ? "/" : found;
}

bool read_file_facts(const std::string& path, file_facts& facts)
{
    facts = {};
    struct statx status {};
    if (::statx(AT_FDCWD, find_path(path).c_str(), 0, STATX_BASIC_STATS | STATX_BTIME, &status) !=
        0) {
        return false;
    }
    facts.write_time = filetime_of(status.stx_mtime);
    facts.access_time = filetime_of(status.stx_atime);
    facts.creation_time = (status.stx_mask & STATX_BTIME) != 0 ? filetime_of(status.stx_btime) : 0;
    facts.size = status.stx_size;
    facts.is_directory = S_ISDIR(status.stx_mode);
    return true;
}

std::uint64_t file_identity(const std::string&)
{
    return 0;
}

} // namespace platform
