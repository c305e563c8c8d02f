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

// The digests of an image in lower-case hexadecimal, empty where the system computes none. Those of a
// long one are computed by threads that are to spare, from the moment at which the image stands in memory;
// else when they are asked for. The image must outlive the object.
class image_digests {
public:
    void start(std::span<const std::uint8_t> image, uni::thread_allowance* threads);
    bool is_started() const noexcept { return md5_.valid(); }

    // Each may be asked for once.
    std::string md5() { return text_of(md5_); }
    std::string sha1() { return text_of(sha1_); }

private:
    using digest = std::future<std::vector<std::uint8_t>>;

    digest start(platform::digest_kind kind, std::span<const std::uint8_t> image);
    static std::string text_of(digest& made);

    std::optional<uni::helping_threads> helpers_;
    digest md5_;
    digest sha1_;
};

} // namespace model
