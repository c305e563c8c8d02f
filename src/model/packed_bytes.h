// Bytes that look packed or enciphered, by their entropy.
#pragma once

#include <cstdint>
#include <optional>

#include "uni/byte_view.h"

namespace model {

struct byte_run {
    std::uint64_t at = 0; // from the first byte
    std::uint64_t length = 0;
};

// A run of 256 bytes or more that has 7.2 bits a byte or more, wherever it begins: of up to 512 bytes as long
// as any 32 bytes more or fewer make it, of more as 768, 1,024, 4,096 or 16,384 bytes or all of them. It takes
// time that grows with the bytes alone.
std::optional<byte_run> find_packed_run(uni::byte_view bytes);

} // namespace model
