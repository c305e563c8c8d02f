#pragma once

#include <cstdint>
#include <future>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/digests.h"
#include "uni/thread_allowance.h"

namespace model {

// Digests in lower-case hexadecimal; one that is not to be had is empty.
struct digest_texts {
    std::string md5;
    std::string sha1;
    std::string sha256;
};

// The digests of an image, empty where the system computes none. Those of a
// long one are computed by threads that are to spare, from the moment at which the image stands in memory;
// else when they are asked for. The image must outlive the object.
class image_digests {
public:
    // SHA-256 waits until it is asked for, unless it `is_all` that is wanted.
    void start(std::span<const std::uint8_t> image, uni::thread_allowance* threads,
               bool is_all = false);
    bool is_started() const noexcept { return md5_.valid(); }

    // Each may be asked for once.
    std::string md5() { return text_of(md5_); }
    std::string sha1() { return text_of(sha1_); }
    std::string sha256() { return text_of(sha256_); }
    // The threads that helped are to spare again.
    digest_texts all();

private:
    using digest = std::future<std::vector<std::uint8_t>>;

    digest start(platform::digest_kind kind, std::span<const std::uint8_t> image);
    static std::string text_of(digest& made);

    std::optional<uni::helping_threads> helpers_;
    digest md5_;
    digest sha1_;
    digest sha256_;
};

} // namespace model
