#include "platform/files.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <new>
#include <system_error>

#include <climits>
#include <fcntl.h>
#include <sys/file.h>
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

std::string words_of(int error)
{
    switch (error) {
    case ENOENT:
    case ENOTDIR:
        return "no such file";
    case ENAMETOOLONG:
        return "the path is too long";
    case EACCES:
    case EPERM:
        return "no permission";
    case ELOOP:
        return "its links lead nowhere";
    default:
        return std::system_category().message(error);
    }
}

opened_file failed_open(int error)
{
    return {-1, words_of(error)};
}

// What a run does not read, in words; null for a regular file or a block device.
const char* kind_refused(const struct stat& status)
{
    if (S_ISREG(status.st_mode) || S_ISBLK(status.st_mode)) {
        return nullptr;
    }
    return S_ISDIR(status.st_mode)    ? "is a folder"
           : S_ISFIFO(status.st_mode) ? "is a pipe"
           : S_ISSOCK(status.st_mode) ? "is a socket"
                                      : "is a device";
}

bool facts_from(const struct statx& status, file_facts& facts)
{
    facts.write_time = filetime_of(status.stx_mtime);
    facts.access_time = filetime_of(status.stx_atime);
    facts.creation_time = (status.stx_mask & STATX_BTIME) != 0 ? filetime_of(status.stx_btime) : 0;
    facts.size = status.stx_size;
    facts.is_directory = S_ISDIR(status.stx_mode);
    return true;
}

// Where a link leads that leads to nothing yet.
std::string link_end(std::string path)
{
    constexpr int longest_chain = 40;
    struct stat status {};
    for (int i = 0; i < longest_chain && ::stat(path.c_str(), &status) != 0 &&
                    ::lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
         ++i) {
        std::string target(PATH_MAX, '\0');
        const ssize_t length = ::readlink(path.c_str(), target.data(), target.size());
        target.resize(static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
        const std::size_t folder = path.find_last_of('/') + 1; // 0 where there is none
        path = target.starts_with('/') ? target : path.substr(0, folder).append(target);
    }
    return path;
}

// A block device may have several nodes.
file_id id_of(const struct stat& status)
{
    return S_ISBLK(status.st_mode) ? file_id{0, status.st_rdev}
                                   : file_id{status.st_dev, status.st_ino};
}

constexpr unsigned wanted_facts = STATX_BASIC_STATS | STATX_BTIME;

} // namespace

opened_file open_for_reading(const std::string& path)
{
    const std::string found = find_path(path);
    struct stat status {};
    // Looked at first: to open a pipe or a device may be an act of its own.
    if (::stat(found.c_str(), &status) != 0) {
        const int error = errno;
        return error == ENOENT && is_way_hidden(path)
                   ? opened_file{-1, "a folder above it cannot be listed"}
                   : failed_open(error);
    }
    if (const char* const kind = kind_refused(status)) {
        return {-1, kind};
    }
    int descriptor = ::open(found.c_str(), O_RDONLY | O_NOATIME | always);
    if (descriptor < 0 && errno == EPERM) { // it is another's: its access time is the system's
        descriptor = ::open(found.c_str(), O_RDONLY | always);
    }
    if (descriptor < 0) {
        return failed_open(errno);
    }
    if (::fstat(descriptor, &status) != 0 || kind_refused(status) != nullptr) {
        ::close(descriptor);
        return {-1, "is no file any more"};
    }
    return {descriptor, {}};
}

opened_file open_for_writing(const std::string& path, existing_file existing)
{
    const int flags = O_WRONLY | O_CREAT | (existing == existing_file::keep ? 0 : O_EXCL) | always;
    int descriptor = ::open(path.c_str(), flags, 0600);
    struct stat status {};
    if (descriptor < 0 && errno == EEXIST && existing == existing_file::renew &&
        ::lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode)) {
        const int old = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | always);
        const bool is_held = old >= 0 && !hold_file(old);
        if (old >= 0) {
            ::close(old);
        }
        if (is_held) {
            return {-1, "another run writes it"};
        }
        // Not emptied: it may have another name, under which it is somebody's.
        static_cast<void>(remove_file(path));
        descriptor = ::open(path.c_str(), flags, 0600);
    }
    if (descriptor < 0) {
        return failed_open(errno);
    }
    ::fcntl(descriptor, F_SETFL, 0); // what is written to a pipe waits for its reader
    return {descriptor, {}};
}

bool close_file(int descriptor)
{
    return ::close(descriptor) == 0;
}

std::int64_t file_length(int descriptor)
{
    struct stat status {};
    if (::fstat(descriptor, &status) != 0) {
        return -1;
    }
    // A device tells its length to those who seek.
    return S_ISBLK(status.st_mode) ? ::lseek(descriptor, 0, SEEK_END) : status.st_size;
}

read_result read_file(int descriptor, std::span<std::uint8_t> out, std::int64_t offset)
{
    read_result result;
    while (result.count < out.size()) {
        const ssize_t got =
            ::pread(descriptor, out.data() + result.count, out.size() - result.count,
                    offset + static_cast<off_t>(result.count));
        if (got > 0) {
            result.count += static_cast<std::size_t>(got);
        } else if (got == 0 || errno != EINTR) {
            result.failed = got < 0;
            break;
        }
    }
    return result;
}

bool write_file(int descriptor, std::span<const std::uint8_t> bytes)
{
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t put = ::write(descriptor, bytes.data() + done, bytes.size() - done);
        if (put > 0) {
            done += static_cast<std::size_t>(put);
        } else if (put == 0 || errno != EINTR) {
            return false;
        }
    }
    return true;
}

bool seek_end(int descriptor)
{
    return ::lseek(descriptor, 0, SEEK_END) >= 0;
}

bool cut_file(int descriptor, std::int64_t length)
{
    return ::ftruncate(descriptor, length) == 0;
}

bool hold_file(int descriptor)
{
    // Where the file system knows no locks there is nothing to hold.
    return ::flock(descriptor, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK;
}

bool is_file_at(int descriptor, const std::string& path)
{
    struct stat open_file {};
    struct stat there {};
    return ::fstat(descriptor, &open_file) == 0 && ::lstat(path.c_str(), &there) == 0 &&
           open_file.st_dev == there.st_dev && open_file.st_ino == there.st_ino;
}

bool remove_file(const std::string& path)
{
    return ::unlink(path.c_str()) == 0;
}

bool replace_file(const std::string& from, const std::string& to)
{
    return ::rename(from.c_str(), to.c_str()) == 0;
}

std::optional<file_id> identify_file(const std::string& path)
{
    struct stat status {};
    if (path.empty() || ::stat(find_path(path).c_str(), &status) != 0) {
        return std::nullopt;
    }
    return id_of(status);
}

std::optional<file_id> identify_stream(int descriptor)
{
    struct stat status {};
    if (::fstat(descriptor, &status) != 0 || kind_refused(status) != nullptr) {
        return std::nullopt;
    }
    return id_of(status);
}

output_place find_output(const std::string& path)
{
    output_place place{link_end(find_output_path(path))};
    struct stat status {};
    if (::stat(place.path.c_str(), &status) == 0) {
        place.exists = true;
        place.is_special = !S_ISREG(status.st_mode);
    }
    if (char* const end_of_links = ::realpath(place.path.c_str(), nullptr)) {
        place.path = end_of_links;
        std::free(end_of_links);
    }
    return place;
}

void take_rights(int descriptor, const std::string& from)
{
    struct stat status {};
    if (::stat(from.c_str(), &status) == 0) {
        // A mode is lost with the owner, so it comes last.
        static_cast<void>(::fchown(descriptor, status.st_uid, status.st_gid) == 0);
        static_cast<void>(::fchmod(descriptor, status.st_mode & 07777) == 0);
    }
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

bool is_missing(const std::string& path)
{
    struct stat status {};
    return ::lstat(find_path(path).c_str(), &status) != 0 &&
           (errno == ENOENT || errno == ENOTDIR) && !is_way_hidden(path);
}

bool lies_below(const std::string& path, const std::string& folder)
{
    const auto end_of_links = [](const std::string& of) {
        char* const found = ::realpath(find_path(of).c_str(), nullptr);
        const int error = errno;
        if (found == nullptr && error == ENOMEM) {
            throw std::bad_alloc();
        }
        std::string text = found ? found : "";
        std::free(found);
        errno = error;
        return text;
    };
    const std::string root = end_of_links(folder);
    const std::string place = end_of_links(path);
    if (place.empty()) { // what cannot be followed to its end may lead anywhere
        return errno == ENOENT;
    }
    return root == "/" || (!root.empty() && (place + '/').starts_with(root + '/'));
}

bool read_file_facts(int descriptor, file_facts& facts)
{
    facts = {};
    struct statx status {};
    return ::statx(descriptor, "", AT_EMPTY_PATH, wanted_facts, &status) == 0 &&
           facts_from(status, facts);
}

bool read_file_facts(const std::string& path, file_facts& facts)
{
    facts = {};
    struct statx status {};
    return ::statx(AT_FDCWD, find_path(path).c_str(), 0, wanted_facts, &status) == 0 &&
           facts_from(status, facts);
}

} // namespace platform
