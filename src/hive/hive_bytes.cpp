#include "hive/hive_bytes.h"

#include <algorithm>
#include <utility>

namespace hive {

namespace {

constexpr std::uint64_t piece_size = 0x4000;
constexpr std::uint64_t largest_hive = 0xffffffff;

} // namespace

bool hive_bytes::open(std::unique_ptr<io::byte_source> source)
{
    *this = {};
    const auto room = source ? static_cast<std::size_t>(std::min(source->size(), largest_hive)) : 0;
    if (room == 0) {
        return false;
    }
    source_ = std::move(source);
    room_ = std::make_unique_for_overwrite<std::uint8_t[]>(room);
    bytes_ = {room_.get(), room};
    pieces_.assign((room + piece_size - 1) / piece_size, unread);
    return readable_in(0) != 0;
}

// Reads a piece if need be; answers how many of its bytes there are.
std::uint64_t hive_bytes::readable_in(std::uint64_t piece) const
{
    std::uint64_t& readable = pieces_[static_cast<std::size_t>(piece)];
    if (readable == unread) {
        const std::uint64_t begin = piece * piece_size;
        readable =
            source_->read(bytes_.subspan(static_cast<std::size_t>(begin),
                                         std::min(static_cast<std::size_t>(piece_size),
                                                  bytes_.size() - static_cast<std::size_t>(begin))),
                          begin);
    }
    return readable;
}

uni::byte_view hive_bytes::at(std::uint64_t offset, std::uint64_t count) const
{
    const uni::byte_view all(bytes_);
    const uni::byte_view wanted = all.slice(offset, count);
    if (wanted.empty()) {
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
                                io::byte_vector& room) const
{
    room.resize(offset < size() ? static_cast<std::size_t>(std::min(count, size() - offset)) : 0);
    if (!room.empty()) {
        room.resize(source_->read(room, offset));
    }
    return uni::byte_view(room);
}

} // namespace hive
