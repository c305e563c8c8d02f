// A registry hive: one file that holds a tree of keys.
//
// All integers are little-endian. The file is a base block of 4096 bytes and a run of bins that are
// filled with cells. What is looked at in the base block:
//
//   offset  width  field
//   0       4      "regf"
//   36      u32    reference of the root key's cell
//   512     4      "DIRT" or "HvLE" in a transaction log
//
// The checksum and the sequence numbers are not looked at: what an interrupted write or an unsteady
// hand left of a hive is read as it stands.
//
//   bin   0  4    "hbin"                                  4  u32  distance from the first bin
//   cell  0  i32  size with its head, negative while used  4       contents, told by two letters
//
// A reference is a u32 counted from the first bin, which ordinarily stands at 4096. From here on
// places in the file are 64-bit offsets from its first byte.
#pragma once

#include <cstdint>

#include "hive/hive_bytes.h"
#include "uni/byte_view.h"

namespace hive {

// Marks, as little-endian words.
inline constexpr std::uint32_t hive_mark = 0x66676572;    // "regf"
inline constexpr std::uint32_t bin_mark = 0x6e696268;     // "hbin"
inline constexpr std::uint32_t old_log_mark = 0x54524944; // "DIRT"
inline constexpr std::uint32_t entry_mark = 0x454c7648;   // "HvLE", in a log

class hive_image {
public:
    hive_image() = default;
    // Takes the bytes of a hive. If they are none, the image stays closed.
    explicit hive_image(hive_bytes bytes);

    bool is_open() const noexcept { return is_open_; }
    std::uint64_t size() const noexcept { return bytes_.size(); }
    std::uint64_t hive_bins_base() const noexcept { return hive_bins_base_; }
    std::uint64_t root_cell() const noexcept { return root_cell_; }
    // What became of the bytes while they were read, also of those that are no hive.
    bool has_failed() const noexcept { return bytes_.has_failed(); }
    bool has_changed() const { return bytes_.has_changed(); }

    // Where the cell of a reference begins.
    std::uint64_t offset_of(std::uint32_t reference) const noexcept
    {
        return hive_bins_base_ + reference;
    }

    // The first `count` bytes of a cell, its size field first; fewer where the image ends. A cell's
    // own size does not bound what is read of it. Empty for what lies outside the image or where no
    // signed 32-bit offset leads.
    uni::byte_view cell_at(std::uint64_t offset, std::uint64_t count) const;

    // The size that a cell gives itself, as a positive number.
    static std::uint64_t cell_size(uni::byte_view cell) noexcept;

private:
    hive_bytes bytes_;
    bool is_open_ = false;
    std::uint64_t hive_bins_base_ = 0;
    std::uint64_t root_cell_ = 0;
};

} // namespace hive
