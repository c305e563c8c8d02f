// Files that were deleted: their records are free, and still tell names, times and where contents lay.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>

#include "ntfs/stored_file.h"
#include "ntfs/volume.h"

namespace ntfs {

// Visits the files whose records are free and hold a name and a content, by entry number.
using deleted_visitor = std::function<void(const stored_file& file)>;
void visit_deleted_files(ntfs_volume& volume, const deleted_visitor& visit);

// Of the clusters of a stream, how many there are, and how many belong to no file now. What belongs to
// one by now may be its content.
struct cluster_counts {
    std::uint64_t all = 0;
    std::optional<std::uint64_t> free = 0; // none where the volume's bitmap cannot be read
};
cluster_counts count_clusters(ntfs_volume& volume, const record_row& stream);

} // namespace ntfs
