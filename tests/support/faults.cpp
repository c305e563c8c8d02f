// Preloaded into a program, lets one of its calls to the system fail, or be cut short.
//
//   QUILT_FAULT=<kind>:<number>         that call of its kind fails, counted from 1; with "/short"
//                                       behind it the call does half of its work instead
//   QUILT_FAULT_COUNT=<file>            nothing fails; how many calls of each kind there were is
//                                       written to that file at the end

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

enum kind {
    k_open,
    k_close,
    k_read,
    k_write,
    k_seek,
    k_stat,
    k_rename,
    k_readdir,
    k_thread,
    k_memory,
    kinds
};
constexpr const char* names[kinds] = {"open", "close",  "read",    "write",  "seek",
                                      "stat", "rename", "readdir", "thread", "memory"};

std::atomic<long> counts[kinds];
int wanted_kind = -1;
long wanted_number = 0;
bool wanted_short = false;
std::atomic<bool> is_ready = false;

template <typename function>
function* next(const char* name)
{
    return reinterpret_cast<function*>(dlsym(RTLD_NEXT, name));
}

enum class fate { as_always, fails, is_short };

fate fate_of(kind what)
{
    if (!is_ready) {
        return fate::as_always;
    }
    const long number = ++counts[what];
    if (what != wanted_kind || number != wanted_number) {
        return fate::as_always;
    }
    return wanted_short ? fate::is_short : fate::fails;
}

int failed(int error)
{
    errno = error;
    return -1;
}

__attribute__((constructor)) void begin()
{
    if (const char* const fault = std::getenv("QUILT_FAULT")) {
        for (int i = 0; i < kinds; ++i) {
            const std::size_t length = std::strlen(names[i]);
            if (std::strncmp(fault, names[i], length) == 0 && fault[length] == ':') {
                wanted_kind = i;
                wanted_number = std::atol(fault + length + 1);
                wanted_short = std::strstr(fault, "/short") != nullptr;
            }
        }
    }
    is_ready = true;
}

__attribute__((destructor)) void end()
{
    is_ready = false;
    if (const char* const path = std::getenv("QUILT_FAULT_COUNT")) {
        if (std::FILE* const file = std::fopen(path, "w")) {
            for (int i = 0; i < kinds; ++i) {
                std::fprintf(file, "%s %ld\n", names[i], counts[i].load());
            }
            std::fclose(file);
        }
    }
}

} // namespace

extern "C" {

int open(const char* path, int flags, ...)
{
    std::va_list rest;
    va_start(rest, flags);
    const mode_t mode = va_arg(rest, mode_t);
    va_end(rest);
    static const auto real = next<int(const char*, int, mode_t)>("open");
    return fate_of(k_open) == fate::as_always ? real(path, flags, mode) : failed(EMFILE);
}

int open64(const char* path, int flags, ...)
{
    std::va_list rest;
    va_start(rest, flags);
    const mode_t mode = va_arg(rest, mode_t);
    va_end(rest);
    static const auto real = next<int(const char*, int, mode_t)>("open64");
    return fate_of(k_open) == fate::as_always ? real(path, flags, mode) : failed(EMFILE);
}

DIR* opendir(const char* path)
{
    static const auto real = next<DIR*(const char*)>("opendir");
    if (fate_of(k_open) == fate::as_always) {
        return real(path);
    }
    errno = EMFILE;
    return nullptr;
}

int close(int descriptor)
{
    static const auto real = next<int(int)>("close");
    const fate what = fate_of(k_close);
    const int result = real(descriptor);
    return what == fate::as_always ? result : failed(EIO);
}

ssize_t pread(int descriptor, void* out, size_t count, off_t offset)
{
    static const auto real = next<ssize_t(int, void*, size_t, off_t)>("pread");
    const fate what = fate_of(k_read);
    return what == fate::fails
               ? failed(EIO)
               : real(descriptor, out, what == fate::is_short && count > 1 ? count / 2 : count,
                      offset);
}
ssize_t pread64(int descriptor, void* out, size_t count, off64_t offset)
{
    return pread(descriptor, out, count, offset);
}

ssize_t read(int descriptor, void* out, size_t count)
{
    static const auto real = next<ssize_t(int, void*, size_t)>("read");
    const fate what = fate_of(k_read);
    return what == fate::fails
               ? failed(EIO)
               : real(descriptor, out, what == fate::is_short && count > 1 ? count / 2 : count);
}

ssize_t write(int descriptor, const void* bytes, size_t count)
{
    static const auto real = next<ssize_t(int, const void*, size_t)>("write");
    const fate what = fate_of(k_write);
    return what == fate::fails
               ? failed(ENOSPC)
               : real(descriptor, bytes, what == fate::is_short && count > 1 ? count / 2 : count);
}

off_t lseek(int descriptor, off_t offset, int whence)
{
    static const auto real = next<off_t(int, off_t, int)>("lseek");
    return fate_of(k_seek) == fate::as_always ? real(descriptor, offset, whence) : failed(EIO);
}
off64_t lseek64(int descriptor, off64_t offset, int whence)
{
    return lseek(descriptor, offset, whence);
}

int ftruncate(int descriptor, off_t length)
{
    static const auto real = next<int(int, off_t)>("ftruncate");
    return fate_of(k_seek) == fate::as_always ? real(descriptor, length) : failed(EIO);
}
int ftruncate64(int descriptor, off64_t length)
{
    return ftruncate(descriptor, length);
}

int stat(const char* path, struct stat* out)
{
    static const auto real = next<int(const char*, struct stat*)>("stat");
    return fate_of(k_stat) == fate::as_always ? real(path, out) : failed(EIO);
}
int lstat(const char* path, struct stat* out)
{
    static const auto real = next<int(const char*, struct stat*)>("lstat");
    return fate_of(k_stat) == fate::as_always ? real(path, out) : failed(EIO);
}
int fstat(int descriptor, struct stat* out)
{
    static const auto real = next<int(int, struct stat*)>("fstat");
    return fate_of(k_stat) == fate::as_always ? real(descriptor, out) : failed(EIO);
}
int fstatat(int folder, const char* path, struct stat* out, int flags)
{
    static const auto real = next<int(int, const char*, struct stat*, int)>("fstatat");
    return fate_of(k_stat) == fate::as_always ? real(folder, path, out, flags) : failed(EIO);
}
int statx(int folder, const char* path, int flags, unsigned mask, struct statx* out)
{
    static const auto real = next<int(int, const char*, int, unsigned, struct statx*)>("statx");
    return fate_of(k_stat) == fate::as_always ? real(folder, path, flags, mask, out) : failed(EIO);
}

int rename(const char* from, const char* to)
{
    static const auto real = next<int(const char*, const char*)>("rename");
    return fate_of(k_rename) == fate::as_always ? real(from, to) : failed(EIO);
}

dirent* readdir(DIR* listing)
{
    static const auto real = next<dirent*(DIR*)>("readdir");
    if (fate_of(k_readdir) == fate::as_always) {
        return real(listing);
    }
    errno = EIO;
    return nullptr;
}
dirent64* readdir64(DIR* listing)
{
    return reinterpret_cast<dirent64*>(readdir(listing));
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                   void* argument)
{
    static const auto real =
        next<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>("pthread_create");
    return fate_of(k_thread) == fate::as_always ? real(thread, attributes, run, argument) : EAGAIN;
}

// Looking the next one up would take memory itself.
void* __libc_malloc(size_t size);

void* malloc(size_t size)
{
    if (fate_of(k_memory) == fate::as_always) {
        return __libc_malloc(size);
    }
    errno = ENOMEM;
    return nullptr;
}
void* mmap(void* place, size_t size, int protection, int flags, int file, off_t offset)
{
    if ((flags & MAP_ANONYMOUS) == 0 || fate_of(k_memory) == fate::as_always) {
        return reinterpret_cast<void*>(
            ::syscall(SYS_mmap, place, size, protection, flags, file, offset));
    }
    errno = ENOMEM;
    return MAP_FAILED;
}

} // extern "C"
