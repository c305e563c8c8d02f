#include "sdb/inflate.h"

#include <algorithm>
#include <memory>
#include <new>

#define ZLIB_CONST
#include <zlib.h>

#include "sdb/database.h"

namespace sdb {

namespace {

constexpr int zlib_window_bits = 15;
constexpr std::uint64_t largest_growth = 10;

// Inflates all of `input`, at first into four times its size, then into as much as is allowed.
inflation inflate_whole(z_stream& stream, std::uint64_t limit, io::byte_vector& out)
{
    out.resize(
        static_cast<std::size_t>(std::min<std::uint64_t>(limit, stream.avail_in * 4ull + 64)));
    for (;;) {
        stream.next_out = out.data() + stream.total_out;
        stream.avail_out = static_cast<uInt>(out.size() - stream.total_out);
        const int answer = ::inflate(&stream, Z_FINISH);
        if (answer == Z_MEM_ERROR) {
            throw std::bad_alloc();
        }
        if (answer == Z_STREAM_END) {
            out.resize(stream.total_out);
            return out.empty() ? inflation::damaged : inflation::whole;
        }
        if (answer != Z_BUF_ERROR || stream.avail_out != 0) {
            return inflation::damaged;
        }
        if (out.size() == limit) {
            return inflation::too_large;
        }
        out.resize(static_cast<std::size_t>(std::min<std::uint64_t>(limit, out.size() * 2ull)));
    }
}

} // namespace

inflation inflate_image(uni::byte_view image, io::byte_vector& out, std::uint64_t most,
                        std::uint64_t* unused)
{
    out.clear();

    const auto input = image.from(compressed_header_size).bytes();
    z_stream stream{};
    stream.next_in = input.data();
    stream.avail_in = static_cast<uInt>(input.size());
    if (input.empty()) {
        return inflation::damaged;
    }
    if (::inflateInit2(&stream, zlib_window_bits) != Z_OK) {
        throw std::bad_alloc(); // all else is as it must be
    }
    const std::unique_ptr<z_stream, decltype(&::inflateEnd)> ends(&stream, &::inflateEnd);
    const inflation result =
        inflate_whole(stream, std::min(most, image.size() * largest_growth), out);
    if (unused != nullptr) {
        *unused = stream.avail_in;
    }
    if (result != inflation::whole) {
        io::release(out);
    }
    return result;
}

std::string inflate_library()
{
    return std::string("zlib ") + ::zlibVersion();
}

} // namespace sdb
