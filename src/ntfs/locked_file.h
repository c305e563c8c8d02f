#pragma once

#include <string_view>

#include "ntfs/volume.h"
#include "uni/large_vector.h"

namespace ntfs {

// Reads the main content of the file at a path of a volume off the volume itself: so a file is read
// that the running system keeps locked, or that lies in an image which nobody mounted. The volume
// is open for this one read. False, and nothing in `bytes`, if there is no such volume or file, or
// the file is empty.
bool load_locked_file(std::string_view volume_text, volume_source source, std::string_view path,
                      uni::byte_vector& bytes, const trace_text& trace = {},
                      const platform::device_opener& open_device = platform::open_device);

} // namespace ntfs
