#include "uni/byte_view.h"

namespace uni {

std::uint64_t byte_view::read_cut(std::uint64_t position) const noexcept
{
    std::uint64_t value = 0;
    for (unsigned shift = 0; position < size(); ++position, shift += 8) {
        value |= std::uint64_t{bytes_[static_cast<std::size_t>(position)]} << shift;
    }
    return value;
}

} // namespace uni
