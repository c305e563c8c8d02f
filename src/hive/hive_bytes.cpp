#include "hive/hive_bytes.h"

#include <algorithm>
#include <utility>

namespace hive {

namespace {

constexpr std::uint64_t piece_size = 0x4000;
constexpr std::uint64_t largest_hive = 0xffffffff;

} // namespace

hive_bytes::hive_bytes(uni::byte_vector bytes) : given_(std::move(bytes)), bytes_(given_) {}

bool hive_bytes::open(const std::string& path)
{
    *this = {};
    auto file = std::make_unique<uni::fileio>();
    if (!file->open_read(path) || file->size() <= 0) {
        return false;
    }
    const auto size =
        static_cast<std::size_t>(std::min(static_cast<std::uint64_t>(file->size()), largest_hive));
    file_ = std::move(file);
    room_ = std::make_unique_for_overwrite<std::uint8_t[]>(size);
    bytes_ = {room_.get(), size};
    pieces_.assign((size + piece_size - 1) / piece_size, unread);
    return readable_in(0) != 0;
}

// Reads a piece if need be; answers how many of its bytes there are.
std::uint64_t hive_bytes::readable_in(std::uint64_t piece) const
{
    std::uint64_t& readable = pieces_[static_cast<std::size_t>(piece)];
    if (readable == unread) {
        const std::uint64_t begin = piece * piece_size;
        uni::byte_vector read;
        file_->read_at(read, std::min(piece_size, size() - begin),
                       static_cast<std::int64_t>(begin));
        std::copy(read.begin(), read.end(), bytes_.begin() + static_cast<std::ptrdiff_t>(begin));
        readable = read.size();
    }
    return readable;
}

uni::byte_view hive_bytes::at(std::uint64_t offset, std::uint64_t count) const
{
    const uni::byte_view all(bytes_);
    const uni::byte_view wanted = all.slice(offset, count);
    if (!file_ || wanted.empty()) {
        return wanted;
    }
    const std::uint64_t end = offset + wanted.size();
    for (std::uint64_t piece = offset / piece_size; piece * piece_size < end; ++piece) {
        const std::uint64_t readable_end = piece * piece_size + readable_in(piece);
        if (readable_end < std::min(end, (piece + 1) * piece_size)) {
            return all.slice(offset, std::max(readable_end, offset) - offset);
        }
    }
    return wanted;
}

uni::byte_view hive_bytes::pass(std::uint64_t offset, std::uint64_t count,
                                uni::byte_vector& room) const
{
    if (!file_) {
        return at(offset, count);
    }
    room.clear();
    if (offset < size()) {
        file_->read_at(room, std::min(count, size() - offset), static_cast<std::int64_t>(offset));
    }
    return uni::byte_view(room);
}

} // namespace hive
