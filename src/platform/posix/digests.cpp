#include "platform/digests.h"

#include <openssl/evp.h>

namespace platform {

std::vector<std::uint8_t> compute_digest(digest_kind kind, std::span<const std::uint8_t> bytes)
{
    const EVP_MD* const algorithm = kind == digest_kind::md5 ? EVP_md5() : EVP_sha1();
    std::vector<std::uint8_t> digest(EVP_MAX_MD_SIZE);
    unsigned length = 0;
    if (EVP_Digest(bytes.data(), bytes.size(), digest.data(), &length, algorithm, nullptr) != 1) {
        length = 0;
    }
    digest.resize(length);
    return digest;
}

} // namespace platform
