#pragma once

#include <cstdint>
#include <mutex>
#include <string>

#include "io/byte_source.h"
#include "io/notice.h"
#include "model/image_digests.h"

namespace report {

// The digests of the file of a program, computed once for however many databases it is held against, as long
// as it stays the same. Several threads may ask.
class program_digests {
public:
    // Says, when they are computed, where there are none, and where the file became another.
    model::digest_texts of(io::byte_source& source, const std::string& path, io::notices& notices);

private:
    std::mutex mutex_;
    bool are_known_ = false;
    std::uint64_t size_ = 0;
    std::uint64_t write_time_ = 0;
    model::digest_texts digests_;
};

} // namespace report
