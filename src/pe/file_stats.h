#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "io/byte_source.h"
#include "uni/byte_view.h"

namespace pe {

// The figures of one stretch of bytes.
struct STATS {
    virtual ~STATS() = default;

    double mean = 0; // of the byte values
    double std_dev = 0;
    double variance = 0;
    double entropy = 0;                   // Shannon's, bits a byte divided by 8: 0 to 1
    std::vector<std::uint32_t> histogram; // 256 counts
    std::uint32_t max_count = 0;
    std::uint32_t max_byte = 0;  // the lowest byte value that has it
    std::uint32_t min_count = 0; // 65,535 at most
    std::uint32_t min_byte = 0;
};

// Whether a stretch looks random: compressed or encrypted.
bool is_high_entropy(const STATS& stats);

// A file open for reading, in parts. Nothing but what is asked for is read, so statistics cost
// nothing until something wants them.
class FILE_STATS : protected STATS {
public:
    // A null source is a file that is not valid.
    explicit FILE_STATS(std::unique_ptr<io::byte_source> source) : source_(std::move(source)) {}
    FILE_STATS(const FILE_STATS&) = delete;
    FILE_STATS& operator=(const FILE_STATS&) = delete;

    bool file_valid() const noexcept { return source_ != nullptr; }
    std::uint64_t size() const noexcept { return source_ ? source_->size() : 0; }

    // Fills `buffer`; false if it is empty or the file has fewer bytes at `offset`.
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

    // The figures of a stretch; false if it is empty or not inside the file. Bytes that cannot be
    // read count as missing from a stretch of the same length.
    bool compute_stats(std::uint64_t offset, std::uint64_t length, STATS& stats);
    // Those of the whole file, computed when first asked for; null for an empty file.
    const STATS* whole_file_stats();

private:
    std::unique_ptr<io::byte_source> source_;
    io::byte_vector block_; // the bytes read last by peek()
    std::uint64_t block_offset_ = 0;
    std::optional<bool> stats_valid_;
};

} // namespace pe
