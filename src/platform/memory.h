#pragma once

#include <cstddef>

namespace platform {

// What becomes of memory: an array that will be filled is backed by large pages where the system
// offers them, since touching it page by page costs more than what is done with it.
enum class memory_use { to_be_filled, mostly_untouched };

// Memory for arrays of many megabytes, contents undefined. Throws std::bad_alloc.
void* allocate_large(std::size_t bytes, memory_use use);
void free_large(void* memory, std::size_t bytes) noexcept;

// Tells that what stands in a part of such memory will not be read again before it is written, so that
// the system may have its pages.
void forget(const void* part, std::size_t bytes) noexcept;

} // namespace platform
