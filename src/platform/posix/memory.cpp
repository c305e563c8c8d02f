#include "platform/memory.h"

#include <cstdint>
#include <new>

#include <sys/mman.h>

namespace platform {

namespace {

constexpr std::size_t large_page = std::size_t{2} << 20;

std::size_t whole_pages(std::size_t bytes)
{
    return (bytes + large_page - 1) / large_page * large_page;
}

} // namespace

// Mapped by itself, so that all of it goes back to the system; at a large page's boundary, for which a
// page too many is mapped and what stands over is cut off.
void* allocate_large(std::size_t bytes, memory_use use)
{
    const std::size_t wanted = whole_pages(bytes);
    void* const mapped = ::mmap(nullptr, wanted + large_page, PROT_READ | PROT_WRITE,
                                MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped == MAP_FAILED) {
        throw std::bad_alloc();
    }
    const std::size_t over = reinterpret_cast<std::uintptr_t>(mapped) % large_page;
    const std::size_t before = over == 0 ? 0 : large_page - over;
    char* const memory = static_cast<char*>(mapped) + before;
    if (before != 0) {
        ::munmap(mapped, before);
    }
    ::munmap(memory + wanted, large_page - before);
    if (use == memory_use::to_be_filled) {
        ::madvise(memory, wanted, MADV_HUGEPAGE);
    }
    return memory;
}

void free_large(void* memory, std::size_t bytes) noexcept
{
    ::munmap(memory, whole_pages(bytes));
}

void forget(const void* part, std::size_t bytes) noexcept
{
    constexpr std::size_t page = 4096;
    const std::size_t over = reinterpret_cast<std::uintptr_t>(part) % page;
    const std::size_t before = over == 0 ? 0 : page - over;
    if (bytes > before) {
        char* const first = const_cast<char*>(static_cast<const char*>(part)) + before;
        ::madvise(first, (bytes - before) / page * page, MADV_DONTNEED);
    }
}

} // namespace platform
