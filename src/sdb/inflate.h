#pragma once

#include <cstdint>
#include <string>

#include "io/large_vector.h"
#include "uni/byte_view.h"

namespace sdb {

// The most bytes that are inflated, unless told otherwise.
inline constexpr std::uint64_t most_inflated = 0x4000000;

enum class inflation { whole, damaged, too_large };

// Inflates a compressed database image: one zlib stream from offset 20 to its end marker, whatever
// follows it; `unused`, where given, takes how many bytes that are. The output may grow to ten times the
// image's size, and to `most` bytes. Unless it is whole, it is empty: without a stream, with a damaged
// or unfinished one, or one that holds nothing, and with one that grows beyond that.
inflation inflate_image(uni::byte_view image, io::byte_vector& out,
                        std::uint64_t most = most_inflated, std::uint64_t* unused = nullptr);

// The name of the library that does so, with its version.
std::string inflate_library();

} // namespace sdb
