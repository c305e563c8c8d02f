// The blocks of a directory's index, which lie in its index allocation one behind the other.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "ntfs/runs.h"
#include "ntfs/volume.h"
#include "uni/byte_view.h"

namespace ntfs {

inline constexpr std::uint64_t index_block_header = 24; // where its node begins
inline constexpr std::uint64_t index_root_header = 16;  // where that of the root does
inline constexpr std::uint64_t index_entry_header = 16;

// Gets the number of a block, its bytes with the update sequence put back, and whether it was written
// whole.
using index_block_visitor =
    std::function<void(std::uint64_t number, uni::byte_view block, bool is_whole)>;

// Reads the blocks in large pieces and visits each that is one. Clusters that are sparse hold none;
// extents, which are put in order, are followed up to where they use clusters over and over. False if
// nothing could be read.
bool visit_index_blocks(ntfs_volume& volume, std::vector<extent>& extents,
                        const index_block_visitor& visit);

} // namespace ntfs
