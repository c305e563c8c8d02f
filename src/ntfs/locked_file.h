#pragma once

#include <memory>
#include <string_view>

#include "io/byte_source.h"
#include "ntfs/volume.h"

namespace ntfs {

// Opens the main content of the file at a path of a volume, read off the volume itself: so a file is
// read that the running system keeps locked, or that lies in an image which nobody mounted. Clusters
// are read when their bytes are asked for, and the volume stays open until then; what the record
// itself holds is read at once. Null if there is no such file, or nothing can be read of it, and for
// a null volume.
std::unique_ptr<io::byte_source> open_locked_file(std::unique_ptr<ntfs_volume> volume,
                                                  std::string_view path,
                                                  const trace_text& trace = {});

} // namespace ntfs
