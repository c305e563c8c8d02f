#include "platform/digests.h"

// The steps as that version has them need no memory of their own, so that nothing in them can fail;
// today's wrappers around them end the program where memory runs out.
#define OPENSSL_API_COMPAT 10101
#include <openssl/crypto.h>
#include <openssl/md5.h>
#include <openssl/sha.h>

namespace platform {

namespace {

template <std::size_t length, typename state>
std::vector<std::uint8_t>
digest_by(int (*begin)(state*), int (*take)(state*, const void*, std::size_t),
          int (*end)(unsigned char*, state*), std::span<const std::uint8_t> bytes)
{
    std::vector<std::uint8_t> digest(length);
    state now;
    begin(&now);
    take(&now, bytes.data(), bytes.size());
    end(digest.data(), &now);
    return digest;
}

} // namespace

std::vector<std::uint8_t> compute_digest(digest_kind kind, std::span<const std::uint8_t> bytes)
{
    switch (kind) {
    case digest_kind::md5:
        return digest_by<MD5_DIGEST_LENGTH>(MD5_Init, MD5_Update, MD5_Final, bytes);
    case digest_kind::sha1:
        return digest_by<SHA_DIGEST_LENGTH>(SHA1_Init, SHA1_Update, SHA1_Final, bytes);
    case digest_kind::sha256:
        return digest_by<SHA256_DIGEST_LENGTH>(SHA256_Init, SHA256_Update, SHA256_Final, bytes);
    }
    return {};
}

std::string digest_library()
{
    return std::string("OpenSSL ") + OpenSSL_version(OPENSSL_VERSION_STRING);
}

} // namespace platform
