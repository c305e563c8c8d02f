#include "hive/hive_bytes.h"

#include <algorithm>
#include <utility>

#include "io/fileio.h"

namespace hive {

namespace {

constexpr std::uint64_t piece_size = 0x4000;
constexpr std::uint64_t largest_hive = 0xffffffff;

} // namespace

hive_bytes::hive_bytes(io::byte_vector bytes) : given_(std::move(bytes)), bytes_(given_) {}

bool hive_bytes::open(const std::string& path)
{
    *this = {};
    const auto file = std::make_shared<io::fileio>();
    if (!file->open_read(path) || file->size() <= 0) {
        return false;
    }
    return open(static_cast<std::uint64_t>(file->size()),
                [file](std::span<std::uint8_t> out, std::uint64_t offset) -> std::uint64_t {
                    io::byte_vector read;
                    file->read_at(read, out.size(), static_cast<std::int64_t>(offset));
                    std::copy(read.begin(), read.end(), out.begin());
                    return read.size();
                });
}

bool hive_bytes::open(std::uint64_t size, piece_reader read)
{
    *this = {};
    const auto room = static_cast<std::size_t>(std::min(size, largest_hive));
    if (room == 0) {
        return false;
    }
    read_ = std::move(read);
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
        readable = read_(bytes_.subspan(static_cast<std::size_t>(begin),
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
    if (!read_ || wanted.empty()) {
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
    if (!read_) {
        return at(offset, count);
    }
    room.resize(offset < size() ? static_cast<std::size_t>(std::min(count, size() - offset)) : 0);
    if (!room.empty()) {
        room.resize(static_cast<std::size_t>(read_(room, offset)));
    }
    return uni::byte_view(room);
}

} // namespace hive
