#pragma once

#include <cstdint>

#include "uni/byte_view.h"
#include "uni/text_buffer.h"

namespace pe {

// Writes bytes as lines of 16: "0000 0010:  ", each byte as two digits and a blank, one more blank
// behind the eighth, then the bytes as text, "." for what does not print. The first line's number is
// `base`. More than 16 MiB are refused with a line that says so.
void hex_dump(uni::byte_view bytes, uni::text_buffer& out, std::uint64_t base);

} // namespace pe
