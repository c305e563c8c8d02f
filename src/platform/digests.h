#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace platform {

enum class digest_kind {
    md5,    // RFC 1321, 16 bytes
    sha1,   // FIPS 180, 20 bytes
    sha256, // FIPS 180, 32 bytes
};

// The digest of `bytes` by the system's cryptographic library; empty if that refuses.
std::vector<std::uint8_t> compute_digest(digest_kind kind, std::span<const std::uint8_t> bytes);

// The name of that library, with its version where it is part of the program.
std::string digest_library();

} // namespace platform
