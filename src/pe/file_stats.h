#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <utility>

#include "io/byte_source.h"
#include "uni/byte_view.h"

namespace pe {

// A file open for reading, in parts. Nothing but what is asked for is read.
class FILE_STATS {
public:
    // A null source is a file that is not valid.
    explicit FILE_STATS(std::unique_ptr<io::byte_source> source) : source_(std::move(source)) {}
    FILE_STATS(const FILE_STATS&) = delete;
    FILE_STATS& operator=(const FILE_STATS&) = delete;

    bool file_valid() const noexcept { return source_ != nullptr; }
    std::uint64_t size() const noexcept { return source_ ? source_->size() : 0; }
    // What became of the file since it was opened: see byte_source.
    bool has_failed() const noexcept { return source_ && source_->has_failed(); }
    bool has_changed() const { return source_ && source_->has_changed(); }

    // Gives the source up: nothing can be read any more.
    std::unique_ptr<io::byte_source> take_source() noexcept { return std::move(source_); }

    // Fills `buffer`, of 1 to `block_size` bytes; false, and nothing filled, if the file has fewer at
    // `offset`.
    bool read_at(std::span<std::uint8_t> buffer, std::uint64_t offset);
    // The same into a vector that is replaced; here a length of 0 is no failure.
    bool read_into(io::byte_vector& bytes, std::uint64_t length, std::uint64_t offset);
    // A look at 1 to `block_size` bytes at `offset`, good until the next read; empty if the file has
    // fewer.
    uni::byte_view peek(std::uint64_t offset, std::uint64_t length);
    static constexpr std::uint64_t block_size = 4096;

    // Whether the file has `length` bytes at `offset`.
    bool contains(std::uint64_t offset, std::uint64_t length) const noexcept
    {
        return offset <= size() && length <= size() - offset;
    }

private:
    std::unique_ptr<io::byte_source> source_;
    // Pieces of the file that were read. A tree of resources is read here and there, back and forth.
    struct block {
        std::uint64_t offset = 0;
        io::byte_vector bytes = {};
    };
    const block& filled(block& place, std::uint64_t offset);

    std::array<block, 8> blocks_; // whole ones, by their number
    block between_;               // what lies in two of them
};

} // namespace pe
