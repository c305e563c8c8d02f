#pragma once

#include <cstdint>

#include "io/large_vector.h"
#include "uni/byte_view.h"

namespace sdb {

// Inflates a compressed database image: one zlib stream from offset 20 to its end marker, whatever
// follows it; `unused`, where given, takes how many bytes that are. The output may grow to ten times the image's
// size. False, with an empty output, for
// an image without a stream, a damaged or unfinished stream, and one that grows beyond that.
bool inflate_image(uni::byte_view image, io::byte_vector& out, std::uint64_t* unused = nullptr);

} // namespace sdb
