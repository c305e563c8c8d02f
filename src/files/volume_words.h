// Why something on a volume cannot be read, in words.
#pragma once

#include <string>

#include "io/byte_source.h"
#include "ntfs/stored_file.h"

namespace files {

// What holds no NTFS volume; `no_ntfs_volume` for what is not known.
inline constexpr const char* no_ntfs_volume = "is no NTFS volume";
const char* words_of_contents(io::byte_source& source);

// A stream; empty for one that can be read.
std::string words_of(const ntfs::stored_file& file, const ntfs::record_row& stream);

// A record that was not read.
const char* words_of(ntfs::record_state state);

} // namespace files
