#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "uni/byte_view.h"
#include "io/large_vector.h"

namespace hive {

// Reads into `out` what stands at an offset; gives how many of its first bytes could be read.
using piece_reader =
    std::function<std::uint64_t(std::span<std::uint8_t> out, std::uint64_t offset)>;

// The bytes of a hive: a file that is read piece by piece as they are asked for, since a query looks
// at a small part of a large hive, or bytes that were read by other means.
class hive_bytes {
public:
    hive_bytes() = default;
    explicit hive_bytes(io::byte_vector bytes);

    // Opens the file at `path`, up to 4 GiB of it. False if it does not open or gives no byte.
    bool open(const std::string& path);
    // Takes `size` bytes from what `read` gives. False if it gives none.
    bool open(std::uint64_t size, piece_reader read);

    std::uint64_t size() const noexcept { return bytes_.size(); }

    // Those of the `count` bytes at `offset` that exist and can be read, up to the first that
    // cannot. The view lasts as long as this object.
    uni::byte_view at(std::uint64_t offset, std::uint64_t count) const;

    // The same for bytes that are looked at once: they stand in `room` if they had to be read, and
    // are not kept here.
    uni::byte_view pass(std::uint64_t offset, std::uint64_t count, io::byte_vector& room) const;

private:
    static constexpr std::uint64_t unread = ~std::uint64_t{0};

    std::uint64_t readable_in(std::uint64_t piece) const;

    piece_reader read_; // none when all bytes were given
    io::byte_vector given_;
    // Room for the whole file, of which the system provides what is touched. Filled as pieces are
    // read, which nobody sees.
    std::unique_ptr<std::uint8_t[]> room_;
    std::span<std::uint8_t> bytes_;             // either of the two
    mutable std::vector<std::uint64_t> pieces_; // how many bytes of each could be read, or unread
};

} // namespace hive
