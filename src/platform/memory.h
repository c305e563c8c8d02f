#pragma once

#include <cstddef>

namespace platform {

// Memory for arrays of many megabytes, contents undefined, backed by large pages where the system
// offers them, since touching it page by page costs more than what is done with it. Throws
// std::bad_alloc.
void* allocate_large(std::size_t bytes);
void free_large(void* memory, std::size_t bytes) noexcept;

} // namespace platform
