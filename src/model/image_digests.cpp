#include "model/image_digests.h"

#include "uni/numbers.h"

namespace model {

void image_digests::start(std::span<const std::uint8_t> image, uni::thread_allowance* threads,
                          bool is_all)
{
    helpers_.emplace(threads);
    md5_ = start(platform::digest_kind::md5, image);
    sha1_ = start(platform::digest_kind::sha1, image);
    sha256_ = is_all ? start(platform::digest_kind::sha256, image)
                     : std::async(std::launch::deferred, platform::compute_digest,
                                  platform::digest_kind::sha256, image);
}

digest_texts image_digests::all()
{
    digest_texts texts;
    texts.sha256 = sha256();
    texts.sha1 = sha1();
    texts.md5 = md5(); // which takes longest
    helpers_.reset();
    return texts;
}

image_digests::digest image_digests::start(platform::digest_kind kind,
                                           std::span<const std::uint8_t> image)
{
    constexpr std::size_t worth_a_thread = 0x100000;
    const bool has_help = image.size() >= worth_a_thread && helpers_->take(1) != 0;
    return std::async(has_help ? std::launch::async | std::launch::deferred : std::launch::deferred,
                      platform::compute_digest, kind, image);
}

std::string image_digests::text_of(digest& made)
{
    return uni::hex_text(made.get());
}

} // namespace model
