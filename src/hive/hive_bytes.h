#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <vector>

#include "io/byte_source.h"
#include "uni/byte_view.h"

namespace hive {

// The bytes of a hive, read piece by piece as they are asked for, since a query looks at a small part
// of a large hive.
class hive_bytes {
public:
    // Takes a source, up to 4 GiB of it. False if it is null or gives no byte, which
    // has_failed() tells from an empty one.
    bool open(std::unique_ptr<io::byte_source> source);

    std::uint64_t size() const noexcept { return bytes_.size(); }

    // What became of the source since it was opened: see byte_source.
    bool has_failed() const noexcept { return source_ && source_->has_failed(); }
    bool has_changed() const { return source_ && source_->has_changed(); }

    // Those of the `count` bytes at `offset` that exist and can be read, up to the first that
    // cannot. The view lasts as long as this object.
    uni::byte_view at(std::uint64_t offset, std::uint64_t count) const;

    // The same for bytes that are looked at once: they stand in `room` and are not kept here.
    uni::byte_view pass(std::uint64_t offset, std::uint64_t count, io::byte_vector& room) const;

private:
    static constexpr std::uint64_t unread = ~std::uint64_t{0};

    std::uint64_t readable_in(std::uint64_t piece) const;
    std::uint64_t read_part(std::uint64_t begin, std::uint64_t size) const;
    std::uint64_t readable_to(std::uint64_t begin, std::uint64_t end) const;

    std::unique_ptr<io::byte_source> source_;
    // Room for the whole hive, of which the system provides what is touched. Filled as pieces are
    // read, which nobody sees.
    std::unique_ptr<std::uint8_t[]> room_;
    std::span<std::uint8_t> bytes_;             // the same
    mutable std::vector<std::uint64_t> pieces_; // how many bytes of each could be read, or unread
    // Of a piece that could not be read whole, the same of its parts, as bad ones need not end it.
    static constexpr std::size_t parts = 4;
    mutable std::map<std::uint64_t, std::array<std::uint64_t, parts>> broken_;
};

} // namespace hive
