// A file as its record tells of it: names, times, streams, and what its content is.
//
// Standard information:            Reparse point:
//   offset  bytes                    offset  bytes
//        0      8  creation               0      4  kind
//        8      8  change                 4      2  length of the data
//       16      8  change of the record   8         data
//       24      8  access
//       32      4  file attributes
//
// The data of a link (kinds 0xa0000003 and 0xa000000c) are the offsets and lengths of two texts, the
// second for readers, 2 bytes each, and these texts, behind 4 bytes of flags in the second kind.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "io/byte_source.h"
#include "ntfs/attributes.h"
#include "ntfs/volume.h"

namespace ntfs {

// FILETIME ticks.
struct stored_times {
    std::uint64_t creation = 0;
    std::uint64_t write = 0;
    std::uint64_t record_change = 0;
    std::uint64_t access = 0;
};

struct stored_name {
    std::uint64_t parent = 0; // reference
    std::string name;         // UTF-8
    std::uint8_t name_space = 0;
    stored_times times;

    bool is_short_name() const noexcept { return (name_space & 3) == 2; }
};

struct stored_file {
    std::uint64_t entry = 0;
    std::uint16_t sequence = 0;
    bool is_in_use = false;
    bool is_directory = false;
    // All that its record tells was read, and written whole; else names and streams may be missing.
    bool is_whole = false;
    std::uint32_t attributes = 0;
    std::uint32_t reparse_kind = 0; // 0 for none
    std::string link_text;          // where a link leads, as far as it says
    stored_times times;             // of the standard information
    std::vector<stored_name> names;
    std::vector<record_row> streams; // data, the unnamed one too

    // The stream of a name, letter case aside for ASCII; empty for the content. Null if there is none.
    const record_row* stream(std::string_view name) const;
};

// What became of reading a file's record.
enum class record_state {
    read,
    another,    // it belongs to another file by now, or extends one
    unreadable, // it cannot be read, or is none
};

// Reads the record of a reference, whose sequence number counts unless it is 0.
record_state read_stored_file(mft_entries_ctx& context, std::uint64_t reference, stored_file& file);

// How a stream can be read.
enum class stream_state {
    readable,
    encrypted,
    packed,    // by the system in a way of its own
    elsewhere, // a place holder: the content is on another machine
    link,
    damaged, // its record does not tell how long it is
};
stream_state state_of(const stored_file& file, const record_row& stream);

// Length of a stream in bytes, as stored.
std::uint64_t stream_size(const record_row& stream);

// Reads a stream from `offset` on; gives the bytes up to the first that cannot be read. One stream goes
// with one `last`, see read_value().
std::uint64_t read_stream(ntfs_volume& volume, const record_row& stream, std::uint64_t offset,
                          std::span<std::uint8_t> out, expanded_unit& last);

} // namespace ntfs
