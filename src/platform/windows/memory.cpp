#include "platform/memory.h"

#include <new>

namespace platform {

void* allocate_large(std::size_t bytes, memory_use)
{
    return ::operator new(bytes);
}

void free_large(void* memory, std::size_t) noexcept
{
    ::operator delete(memory);
}

// Of the heap nothing can be given back.
void forget(const void*, std::size_t) noexcept {}

} // namespace platform
