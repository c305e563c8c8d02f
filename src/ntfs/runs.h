// Where the clusters of a non-resident value lie.
//
// A run list is a sequence of runs, ended by a zero byte. A run is a byte with the size of the
// offset in its upper and the size of the length in its lower half, then the length in clusters
// (unsigned), then the offset of its first cluster from that of the run before (signed). A run
// without an offset is sparse: it has no clusters and reads as zeros.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <vector>

#include "ntfs/record.h"
#include "uni/byte_view.h"

namespace ntfs {

// One decoded run. Clusters of the volume are counted by lcn, those of the value by vcn.
struct byte_run {
    std::uint64_t lcn = 0; // that of the run before for a sparse run
    std::uint64_t vcn = 0;
    std::uint64_t length = 0;             // clusters
    std::int64_t offset = 0;              // as stored
    bool is_sparse = false;               // has no offset
    uni::byte_view raw;                   // the run's bytes
    std::array<std::uint8_t, 3> behind{}; // the bytes behind it, if two are left or more
    std::uint64_t position = 0;           // of the run in its list
};

// What reads go by.
struct extent {
    std::uint64_t lcn = 0;
    std::uint64_t vcn = 0;
    bool is_sparse = false;
    std::uint64_t length = 0; // clusters
};

// Decodes the run list of a non-resident attribute. What does not fit the attribute ends it, and so
// does a length or a cluster that no volume can have.
void decode_data_runs(const attribute& of, std::vector<byte_run>& runs);

// Appends the extents of runs. A run whose stored offset is 0 is sparse, but not the first of a
// list that has an offset: a value may begin with the volume's first cluster.
void runs_to_extents(const std::vector<byte_run>& runs, std::vector<extent>& extents);

// Bytes that extents hold, at most 2^63.
std::uint64_t extent_byte_length(const std::vector<extent>& extents, std::uint64_t cluster_size,
                                 bool skip_sparse);

// The extent that holds a cluster of the value; null if none does. `extents` ascend by vcn.
const extent* find_extent(const std::vector<extent>& extents, std::uint64_t vcn);

// Counts the clusters of the volume that extents use again. Sound ones use each once; others could
// make endless bytes of a few clusters, and records and indexes are read whole.
class cluster_use {
public:
    explicit cluster_use(std::uint64_t most_again) : left_(most_again) {}

    // Notes the clusters of an extent. False once more of them came again than may.
    bool add(const extent& part);

private:
    std::map<std::uint64_t, std::uint64_t> used_; // spans apart: the first, the one behind the last
    std::uint64_t left_;
};

// Puts extents that came in pieces into the order of their vcn.
void sort_extents(std::vector<extent>& extents);

} // namespace ntfs
