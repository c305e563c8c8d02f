#include "pe/file_stats.h"

#include <algorithm>

namespace pe {

bool FILE_STATS::read_at(std::span<std::uint8_t> buffer, std::uint64_t offset)
{
    const uni::byte_view found = peek(offset, buffer.size());
    std::ranges::copy(found.bytes(), buffer.begin());
    return !found.empty();
}

bool FILE_STATS::read_into(io::byte_vector& bytes, std::uint64_t length, std::uint64_t offset)
{
    bytes.clear();
    if (!file_valid() || !contains(offset, length)) {
        return false;
    }
    bytes.resize(static_cast<std::size_t>(length));
    if (length == 0 || source_->read(bytes, offset) == length) {
        return true;
    }
    bytes.clear();
    return false;
}

uni::byte_view FILE_STATS::peek(std::uint64_t offset, std::uint64_t length)
{
    if (length == 0 || length > block_size || !file_valid() || !contains(offset, length)) {
        return {};
    }
    const std::uint64_t number = offset / block_size;
    const bool is_inside = offset + length <= (number + 1) * block_size;
    const block& found = is_inside ? filled(blocks_[number % blocks_.size()], number * block_size)
                                   : filled(between_, offset);
    const uni::byte_view bytes = uni::byte_view(found.bytes).slice(offset - found.offset, length);
    return bytes.size() == length ? bytes : uni::byte_view();
}

const FILE_STATS::block& FILE_STATS::filled(block& place, std::uint64_t offset)
{
    if (place.bytes.empty() || place.offset != offset) {
        place.offset = offset;
        place.bytes.resize(static_cast<std::size_t>(std::min(block_size, size() - offset)));
        place.bytes.resize(source_->read(place.bytes, offset));
    }
    return place;
}

} // namespace pe
