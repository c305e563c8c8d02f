#include "platform/memory.h"

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

void* allocate_large(std::size_t bytes)
{
    const auto alignment = static_cast<std::align_val_t>(large_page);
    void* const memory = ::operator new(whole_pages(bytes), alignment);
    ::madvise(memory, whole_pages(bytes), MADV_HUGEPAGE);
    return memory;
}

void free_large(void* memory, std::size_t) noexcept
{
    ::operator delete(memory, static_cast<std::align_val_t>(large_page));
}

} // namespace platform
