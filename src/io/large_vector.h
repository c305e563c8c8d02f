#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "platform/memory.h"

namespace io {

// Allocator for arrays that may grow to many megabytes: these come from platform::allocate_large.
// Elements that are made without a value are left undefined, since they are about to be filled.
template <typename element, platform::memory_use use>
class large_allocator {
public:
    using value_type = element;
    template <typename type>
    struct rebind {
        using other = large_allocator<type, use>;
    };

    large_allocator() = default;
    template <typename other>
    large_allocator(const large_allocator<other, use>&) noexcept
    {}

    element* allocate(std::size_t count)
    {
        if (count > static_cast<std::size_t>(-1) / 2 / size) {
            throw std::bad_array_new_length();
        }
        return static_cast<element*>(is_large(count) ? platform::allocate_large(count * size, use)
                                                     : ::operator new(count* size));
    }
    void deallocate(element* memory, std::size_t count) noexcept
    {
        if (is_large(count)) {
            platform::free_large(memory, count * size);
        } else {
            ::operator delete(memory);
        }
    }
    template <typename other>
    void construct(other* place) noexcept
    {
        ::new (static_cast<void*>(place)) other;
    }
    template <typename other, typename... values>
    void construct(other* place, values&&... given)
    {
        std::construct_at(place, std::forward<values>(given)...);
    }
    friend bool operator==(const large_allocator&, const large_allocator&) noexcept { return true; }

private:
    // NOLINTNEXTLINE(bugprone-sizeof-expression): of a pointer where that is what is kept
    static constexpr std::size_t size = sizeof(element);
    static constexpr std::size_t large = std::size_t{1} << 20;
    static bool is_large(std::size_t count) noexcept { return count >= large / size; }
};

template <typename element>
using large_vector =
    std::vector<element, large_allocator<element, platform::memory_use::to_be_filled>>;
// One that has room reserved for the worst case.
template <typename element>
using roomy_vector =
    std::vector<element, large_allocator<element, platform::memory_use::mostly_untouched>>;

// Gives the memory of an array back.
template <typename array_type>
void release(array_type& array) noexcept
{
    array_type().swap(array);
}

// Bytes of a file or an image.
using byte_vector = large_vector<std::uint8_t>;

} // namespace io
