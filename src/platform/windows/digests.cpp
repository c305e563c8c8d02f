#include "platform/digests.h"

#include <algorithm>

#include <windows.h>

#include <bcrypt.h>

namespace platform {

namespace {

struct algorithm_handle {
    BCRYPT_ALG_HANDLE handle = nullptr;
    ~algorithm_handle()
    {
        if (handle != nullptr) {
            ::BCryptCloseAlgorithmProvider(handle, 0);
        }
    }
};

struct hash_handle {
    BCRYPT_HASH_HANDLE handle = nullptr;
    ~hash_handle()
    {
        if (handle != nullptr) {
            ::BCryptDestroyHash(handle);
        }
    }
};

bool succeeded(NTSTATUS status)
{
    return status >= 0;
}

struct digest_facts {
    const wchar_t* name;
    std::size_t length; // of a digest, in bytes
};
digest_facts facts_of(digest_kind kind)
{
    switch (kind) {
    case digest_kind::md5:
        return {BCRYPT_MD5_ALGORITHM, 16};
    case digest_kind::sha1:
        return {BCRYPT_SHA1_ALGORITHM, 20};
    default:
        return {BCRYPT_SHA256_ALGORITHM, 32};
    }
}

bool add_bytes(BCRYPT_HASH_HANDLE hash, std::span<const std::uint8_t> bytes)
{
    constexpr std::size_t largest_block = 0x10000000;
    while (!bytes.empty()) {
        const std::size_t block = std::min(bytes.size(), largest_block);
        // The call takes its input as changeable but does not change it.
        auto* const input = const_cast<PUCHAR>(bytes.data());
        if (!succeeded(::BCryptHashData(hash, input, static_cast<ULONG>(block), 0))) {
            return false;
        }
        bytes = bytes.subspan(block);
    }
    return true;
}

} // namespace

std::vector<std::uint8_t> compute_digest(digest_kind kind, std::span<const std::uint8_t> bytes)
{
    const auto [name, length] = facts_of(kind);
    std::vector<std::uint8_t> digest(length);
    algorithm_handle algorithm;
    hash_handle hash;
    if (!succeeded(::BCryptOpenAlgorithmProvider(&algorithm.handle, name, nullptr, 0)) ||
        !succeeded(::BCryptCreateHash(algorithm.handle, &hash.handle, nullptr, 0, nullptr, 0, 0)) ||
        !add_bytes(hash.handle, bytes) ||
        !succeeded(
            ::BCryptFinishHash(hash.handle, digest.data(), static_cast<ULONG>(digest.size()), 0))) {
        return {};
    }
    return digest;
}

std::string digest_library()
{
    return "CNG of Windows";
}

} // namespace platform
