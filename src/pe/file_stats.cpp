#include "pe/file_stats.h"

#include <algorithm>

namespace pe {

bool FILE_STATS::read_at(std::span<std::uint8_t> buffer, std::uint64_t offset)
{
    return !buffer.empty() && file_valid() && contains(offset, buffer.size()) &&
           source_->read(buffer, offset) == buffer.size();
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
    if (offset < block_offset_ ||
        !uni::byte_view(block_).contains(offset - block_offset_, length)) {
        const std::uint64_t whole_block = offset / block_size * block_size;
        block_offset_ = offset + length <= whole_block + block_size ? whole_block : offset;
        block_.resize(static_cast<std::size_t>(std::min(block_size, size() - block_offset_)));
        block_.resize(source_->read(block_, block_offset_));
    }
    const uni::byte_view found = uni::byte_view(block_).slice(offset - block_offset_, length);
    return found.size() == length ? found : uni::byte_view();
}

} // namespace pe
