// The logs of a hive, which bring one up to date that was not closed. They lie beside it, as NAME.LOG1
// and NAME.LOG2, on old systems as NAME.LOG.
//
// A hive was not closed if the checksum of its base block is wrong or its two sequence numbers differ.
// What is looked at in a base block, that of the hive and the copy with which a log begins:
//
//   offset  width  field
//   0       4      "regf"
//   4       u32    primary sequence number
//   8       u32    secondary sequence number
//   12      u64    last written, FILETIME
//   28      u32    0 a hive; 1 and 2 a log of the old format, 6 one of the new
//   40      u32    size of the bins
//   144     u32    flags
//   508     u32    XOR of the 127 words before; 1 for 0, and all ones less one for all ones
//
// Old log, behind its base block of 512 bytes: "DIRT", a bit for each 512 bytes of the bins from the
// lowest up, and from the next 512 bytes on those whose bits are set.
//
// New log: entries, each a multiple of 512 bytes:
//   0       4      "HvLE"
//   4       u32    size of the entry
//   8       u32    flags: bit 0 goes to those of the base block
//   12      u32    sequence number
//   16      u32    size of the bins behind it
//   20      u32    count of pages
//   24      u64    hash of the bytes from 40 to the entry's end
//   32      u64    hash of the first 32 bytes
//   40      8 each offset in the bins and size of a page; then the pages
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "io/byte_source.h"
#include "uni/byte_view.h"

namespace hive {

// The hash of log entries. `seed` holds two words, the second above the first, and so does the hash.
inline constexpr std::uint64_t log_seed = 0xc5554e7a884def82;
std::uint64_t log_hash(uni::byte_view data, std::uint64_t seed = log_seed);

// Whether a hive was not closed. A file whose beginning is that of none counts too: its logs may restore it.
bool is_unclosed(io::byte_source& hive);

// What was taken of the logs.
struct log_outcome {
    std::uint64_t entries = 0; // of new logs; an old one is one
    std::uint64_t pages = 0;
    std::uint64_t bad_bins = 0; // that were changed and are none: they cannot be read any more
    bool is_complete = true;    // false where entries were left that could not be taken
    bool has_failed = false;    // some of the logs could not be read
};

// The bytes of a hive that was not closed, with what its logs hold: entries by ascending sequence number,
// as far as they follow each other and their hashes are right. Nothing is written. Gives the hive as it is
// where no log counts.
std::unique_ptr<io::byte_source> with_logs(std::unique_ptr<io::byte_source> hive,
                                           std::vector<std::unique_ptr<io::byte_source>> logs,
                                           log_outcome& outcome);

} // namespace hive
