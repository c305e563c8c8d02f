#include "hive/hive_bytes.h"

#include <algorithm>
#include <utility>

namespace hive {

namespace {

constexpr std::uint64_t piece_size = 0x4000;
constexpr std::uint64_t part_size = 0x1000;
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

std::uint64_t hive_bytes::read_part(std::uint64_t begin, std::uint64_t size) const
{
    const auto at = static_cast<std::size_t>(std::min<std::uint64_t>(begin, bytes_.size()));
    return source_->read(
        bytes_.subspan(at, std::min(static_cast<std::size_t>(size), bytes_.size() - at)), begin);
}

// Reads a piece if need be; answers how many of its bytes there are up to the first that cannot be
// read.
std::uint64_t hive_bytes::readable_in(std::uint64_t piece) const
{
    std::uint64_t& readable = pieces_[static_cast<std::size_t>(piece)];
    if (readable == unread) {
        const std::uint64_t begin = piece * piece_size;
        readable = read_part(begin, piece_size);
        if (readable < std::min(piece_size, bytes_.size() - begin)) {
            std::array<std::uint64_t, parts>& broken = broken_[piece];
            for (std::size_t i = 0; i < parts; ++i) {
                broken[i] = read_part(begin + i * part_size, part_size);
            }
        }
    }
    return readable;
}

// The end of what can be read from `begin` on, which lies in one piece, as `end` does.
std::uint64_t hive_bytes::readable_to(std::uint64_t begin, std::uint64_t end) const
{
    const std::uint64_t piece = begin / piece_size;
    const std::uint64_t readable_end = piece * piece_size + readable_in(piece);
    const auto broken = broken_.find(piece);
    if (readable_end >= end || broken == broken_.end()) {
        return std::min(end, std::max(readable_end, begin));
    }
    std::uint64_t at = begin;
    while (at < end) {
        const std::uint64_t part = at % piece_size / part_size;
        const std::uint64_t part_begin = at / part_size * part_size;
        const std::uint64_t part_end = part_begin + broken->second[static_cast<std::size_t>(part)];
        if (part_end < std::min(end, part_begin + part_size)) {
            return std::max(at, part_end);
        }
        at = part_begin + part_size;
    }
    return end;
}

uni::byte_view hive_bytes::at(std::uint64_t offset, std::uint64_t count) const
{
    const uni::byte_view all(bytes_);
    const uni::byte_view wanted = all.slice(offset, count);
    const std::uint64_t end = offset + wanted.size();
    for (std::uint64_t at = offset; at < end && !wanted.empty();) {
        const std::uint64_t piece_end = std::min(end, (at / piece_size + 1) * piece_size);
        const std::uint64_t readable = readable_to(at, piece_end);
        if (readable < piece_end) {
            return all.slice(offset, readable - offset);
        }
        at = piece_end;
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
