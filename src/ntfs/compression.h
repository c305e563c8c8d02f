// Compressed contents.
//
// A compressed value is cut into units of 16 clusters. A unit whose 16 clusters are all allocated
// is stored as it is, one with none is zeros, and any other is compressed into the clusters that it
// has. Compressed bytes are a sequence of chunks of 4096 bytes each, the last perhaps fewer:
//   offset  bytes
//        0      2  bits 0 to 11: size of the chunk behind this head less 1; bit 15: it is
//                  compressed, else stored; 0 ends the unit
//        2         groups of a byte, whose bits from the lowest up stand for eight tokens, and
//                  these tokens: 0 a byte as it is, 1 a word that copies what came before
//
// How the word of a copy is shared between distance and length depends on the place in the chunk:
// its upper bits, 4 in the first 16 bytes and one more each time that place doubles, are the
// distance less 1, the others the length less 3.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "ntfs/runs.h"
#include "uni/byte_view.h"

namespace ntfs {

struct ntfs_volume;

inline constexpr std::uint64_t compression_unit = 16; // clusters

// Expands compressed bytes; what they leave of `out` becomes zeros. Gives how much of `out`, from
// its beginning, is sound: all of it unless a chunk is damaged or cut off.
std::uint64_t decompress(uni::byte_view from, std::span<std::uint8_t> out);

// The unit of a value that was expanded last.
struct expanded_unit {
    std::uint64_t vcn = ~std::uint64_t{0}; // of its first cluster; none yet
    std::vector<std::uint8_t> bytes;
    std::uint64_t sound = 0; // of the bytes, from the first on
};

// Reads what a compressed value holds from `offset` on. Gives the bytes up to the first that cannot
// be read. One value goes with one `last`, which saves expanding a unit for each of its pieces.
std::uint64_t read_compressed(ntfs_volume& volume, const std::vector<extent>& extents,
                              std::uint64_t offset, std::span<std::uint8_t> out,
                              expanded_unit& last);

} // namespace ntfs
