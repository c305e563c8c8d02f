// Directories and the look-up of paths.
//
// A directory keeps its index in attributes named "$I30": an index root, which is resident, and, when
// large, an index allocation of "INDX" blocks. Names are read from the records of the children, not
// from the index, and every block is read whatever the order of the entries: so a file is found in
// a damaged index too.
//
// Index root:                        Node, at 16 of a root and at 24 of a block:
//   offset  bytes                      offset  bytes
//        0      4  indexed attribute;       0      4  offset of the first entry, from here
//                  0x30                     4      4  size of all entries
//        8      4  allocation unit
//
// Index entry:                       File name attribute:
//        0      8  reference of the        0      8  reference of the directory
//                  file's record          64      1  length of the name in UTF-16 units
//        8      2  length of the entry    65      1  namespace: 0 POSIX, 1 Win32, 2 DOS, 3 Win32
//       10      2  length of the key                 and DOS
//       12      2  flags: 2 the last      66         the name
//       16         key: a file name attribute
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "ntfs/volume.h"

namespace ntfs {

inline constexpr std::uint64_t root_entry = 5;

enum class index_parsing {
    strict,  // an entry that names no file ends its node
    lenient, // it is passed over
};

// The entry numbers that a directory's index names, ascending, each once. True if an index could be
// read; the children are not opened.
bool enum_directory(mft_entries_ctx& context, std::uint64_t entry,
                    std::vector<std::uint64_t>& children, index_parsing parsing);

// A name that a record has.
struct file_name {
    std::uint64_t parent = 0; // entry number of the directory
    std::string name;         // as stored
};

// The names of a record, with those in records that extend it, but none of the DOS namespace alone.
// With a `parent`, only names in that directory.
void collect_file_names(mft_entries_ctx& context, std::uint64_t entry, const file_record& record,
                        std::vector<file_name>& names, const std::uint64_t* parent = nullptr);

// Finds the file at a path (UTF-8) and, into `parent_inode`, its directory. Letter case does not
// count, nor do a leading drive, a device prefix of a snapshot or what follows a ":" in a segment.
// `canonical_path` becomes the path with single backslashes, its segments as typed. False if there
// is no such file; then `inode` is the last entry that was found.
bool resolve_path_to_inode(mft_entries_ctx& context, std::string_view path, std::uint64_t& inode,
                           std::uint64_t& parent_inode, std::string& canonical_path);

// The same without the canonical path.
bool resolve_file(mft_entries_ctx& context, std::string_view path, std::uint64_t& inode,
                  std::uint64_t& parent_inode);

} // namespace ntfs
