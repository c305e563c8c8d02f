// A mounted NTFS volume: its clusters and its FILE records.
//
// Boot sector, the first 512 bytes, numbers little-endian:
//   offset  bytes
//        3      8  "NTFS    "
//       11      2  bytes per sector
//       13      1  sectors per cluster; above 0x80 negative, its magnitude their binary logarithm
//       40      8  total sectors
//       48      8  first cluster of $MFT, the file of all FILE records; entry n is its n-th record
//       64      1  clusters per FILE record; if negative, its magnitude is the binary logarithm of
//                  the record's size in bytes; 0 unknown, then 1024 bytes
//
// It is written for volumes that are damaged or in use: a bad record is a skipped record, every
// walk is bounded by lengths, and a failure leaves the volume usable. Nothing words a failure, but
// whoever asks can have a trace of what was met.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "ntfs/raw_disk_io.h"
#include "ntfs/record.h"
#include "ntfs/runs.h"

namespace ntfs {

// A name in a directory, and which of several equal ones it is.
struct named_child {
    std::uint64_t entry = 0;
    unsigned rank = 0; // the lowest has the name, the first of these
};

// What a directory holds.
struct directory_node {
    std::vector<std::uint64_t> children;                // entry numbers, ascending, each once
    std::unordered_map<std::string, named_child> names; // by lower-case name
};

// Records read ahead. Records that are asked for one after the other come in ever larger reads.
struct record_window {
    std::uint64_t position = 0; // in $MFT
    std::vector<std::uint8_t> bytes;
};

struct ntfs_volume {
    std::array<std::uint8_t, 512> boot_sector{};
    std::unique_ptr<RAW_DISK_IO> reader;
    std::uint64_t volume_offset = 0; // of the volume in what the reader reads
    std::uint32_t cluster_size = 0;  // bytes
    std::uint64_t total_clusters = 0;
    std::uint32_t sectors_per_cluster = 0;
    std::uint32_t clusters_per_record = 0; // 0 where a cluster holds several records
    std::uint64_t mft_offset = 0;          // bytes
    std::uint32_t record_size = 0;         // bytes
    std::uint32_t record_alloc_size = 0;   // bytes from one record to the next
    std::uint64_t record_count = 0;
    bool mounted = false;
    std::vector<extent> mft_extents;
    std::vector<extent> bitmap_extents; // of the volume's cluster bitmap
    record_window window;
    std::map<std::uint64_t, directory_node> directories; // those whose contents were read
};

using trace_text = std::function<void(std::string_view)>;

// What belongs to one look-up on a volume.
struct mft_entries_ctx {
    explicit mft_entries_ctx(ntfs_volume& of) : volume(of) {}

    ntfs_volume& volume;
    trace_text trace;  // gets what was met; empty for none
    bool bad = false;  // the record read last was given up by the file system
    bool torn = false; // or was not written whole
    // Of the attributes that were visited last, whether there may be more, or they may not be what was
    // written: a record of theirs or their list is damaged or torn.
    bool incomplete = false;
    // Records that attribute lists named, and whom they extend: the base that they tell or, where
    // they tell none, who named them first. So no look-up reads a record again for everyone that
    // claims it.
    std::unordered_map<std::uint64_t, std::uint64_t> extension_owners;
    std::uint64_t list_bytes = 0; // tried to read of attribute lists that lie in clusters
};

// Writes a trace line as printf would.
void trace_line(const mft_entries_ctx& context, const char* format, ...);

// What the text of open_ntfs_volume is.
enum class volume_source {
    letter, // only its first character counts
    device, // a device path, whole
};

// What became of a volume that was to be opened.
enum class volume_state {
    mounted,
    closed,    // there is no such device, or it cannot be opened
    not_ntfs,  // it holds something else, or nothing that can be read
    no_records // its boot sector or the record of $MFT is damaged
};

// Opens and mounts a volume; null on failure, also for an empty text. `state`, where it is given,
// tells what became of it.
std::unique_ptr<ntfs_volume>
open_ntfs_volume(std::string_view text, volume_source source,
                 const platform::device_opener& open_device = platform::open_device,
                 volume_state* state = nullptr);
std::unique_ptr<ntfs_volume> open_ntfs_volume(std::unique_ptr<io::byte_source> source,
                                              volume_state* state = nullptr);

// Reads what must be known of a volume whose reader is set. True when it is ready, at once if it
// was before.
bool mount_ntfs_volume(ntfs_volume& volume, std::uint64_t& mft_offset);

// How many clusters records or an index may use more than once: 16 MiB of them.
std::uint64_t most_clusters_again(const ntfs_volume& volume);

// Bytes that nothing on the volume can exceed, whatever sizes it claims: its own length and 64 MiB
// for zeros that have no clusters.
std::uint64_t largest_content(const ntfs_volume& volume);

// Reads whole clusters; gives the bytes read from the first one on.
std::uint64_t read_clusters(ntfs_volume& volume, std::uint64_t lcn, std::span<std::uint8_t> out);

// Reads what extents hold from `byte_offset` on, zeros for sparse ones. Gives the bytes up to the
// first that cannot be read.
std::uint64_t read_extents(ntfs_volume& volume, const std::vector<extent>& extents,
                           std::uint64_t byte_offset, std::span<std::uint8_t> out);

// Reads and fixes up a record: a "FILE" record, also one that the file system gave up, which marks the
// context, or an "INDX" block. False, and an empty buffer, if it cannot be read or is something else.
bool read_file_record(mft_entries_ctx& context, std::uint64_t entry,
                      std::vector<std::uint8_t>& buffer);

} // namespace ntfs
