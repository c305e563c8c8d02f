// What a disk or a volume says of itself in its first blocks: the file system, the partitions.
//
// The entries of a partition table stand at offset 446 of its sector, four of 16 bytes each:
//   offset  bytes
//        4      1  type
//        8      4  first sector
//       12      4  count of sectors
// The sector ends in 0xaa55, but see read_partitions(). An entry of type 5 or 15 leads to another such
// sector, whose entries count from it; its own further one counts from the first in the chain. Type
// 0xee says that the partitions stand in a GUID partition table from sector 1 on, of which the last
// sector of the disk has a copy:
//   offset  bytes
//        0      8  "EFI PART"
//       12      4  size of this header, at least 92
//       16      4  CRC-32 of the header, with zeros in its own place
//       72      8  first sector of the entries
//       80      4  count of entries
//       84      4  size of an entry
//       88      4  CRC-32 of the entries
// An entry is a type and a GUID of 16 bytes each, the first sector and the last.
//
// A sector has 512 or 4096 bytes. A table of GUIDs shows it by its place; an older one does not, but
// the boot sectors to which it leads tell theirs.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "ntfs/raw_disk_io.h"
#include "uni/byte_view.h"

namespace ntfs {

// Set in the kind of a partition that no table names.
inline constexpr std::uint32_t guessed_kind = 0x8000;

struct volume_identity {
    std::string_view name;                 // of the file system; empty if unknown
    std::uint32_t kind = 0;                // partition type that goes with it
    std::uint32_t sector_size = 0;         // bytes; 0 where it is not told
    std::uint32_t sectors_per_cluster = 0; // the same
    std::uint32_t block_size = 0;          // bytes; of file systems that count in blocks
    std::uint64_t sector_count = 0;        // the same
    std::uint64_t serial = 0;              // the same
};

// Sectors in a cluster of NTFS from the boot sector's byte at 13; 0 for what none can have.
std::uint32_t sectors_per_cluster(std::uint8_t stored);

// Tells the file system from the first block of a volume, at least 512 bytes of it. Some are told
// only by what stands 1080 bytes in.
volume_identity identify_volume(uni::byte_view first_block);

// Name of a partition type, with " [guess]" behind that of a guessed one.
std::string partition_type_name(std::uint32_t kind);

struct disk_partition {
    std::uint32_t kind = 0;
    std::uint64_t start = 0; // bytes
    std::uint64_t size = 0;  // bytes
    // As systems count them: by the place in the table, from 1, those of a chain from 5; 0 for a
    // guessed one.
    unsigned number = 0;
};

enum class table_state {
    none, // a volume without a table, or anything else
    sound,
    copy,    // the table itself is damaged, and its copy was taken
    damaged, // what can be read of it was taken
};

struct disk_table {
    table_state state = table_state::none;
    std::uint32_t sector_size = 0;
    std::vector<disk_partition> partitions; // in the order of the tables
};

// The partition table of a disk. Where a further table is not marked, those of its entries count that
// lie on the disk.
disk_table read_partitions(RAW_DISK_IO& disk);

} // namespace ntfs
