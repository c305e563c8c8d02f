#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

namespace uni {

// A view of bytes that somebody else owns, and the only place where untrusted bytes are read.
// Positions are 64 bits wide, so that a sum of an offset and a size read from a file cannot wrap.
// Numbers are little-endian. A number that the view's end cuts off reads with zeros for the
// missing bytes; contains() tells beforehand whether it is whole.
class byte_view {
public:
    constexpr byte_view() noexcept = default;
    constexpr byte_view(std::span<const std::uint8_t> bytes) noexcept : bytes_(bytes) {}

    constexpr std::uint64_t size() const noexcept { return bytes_.size(); }
    constexpr bool empty() const noexcept { return bytes_.empty(); }
    constexpr std::span<const std::uint8_t> bytes() const noexcept { return bytes_; }

    // Whether `count` bytes exist at `position`.
    constexpr bool contains(std::uint64_t position, std::uint64_t count) const noexcept
    {
        return position <= size() && count <= size() - position;
    }

    // Those of the `count` bytes at `position` that exist.
    constexpr byte_view slice(std::uint64_t position, std::uint64_t count) const noexcept
    {
        if (position >= size()) {
            return {};
        }
        return bytes_.subspan(static_cast<std::size_t>(position),
                              static_cast<std::size_t>(std::min(count, size() - position)));
    }

    constexpr byte_view from(std::uint64_t position) const noexcept
    {
        return slice(position, size());
    }

    std::uint8_t u8(std::uint64_t position) const noexcept { return read<std::uint8_t>(position); }
    std::uint16_t u16(std::uint64_t position) const noexcept
    {
        return read<std::uint16_t>(position);
    }
    std::uint32_t u32(std::uint64_t position) const noexcept
    {
        return read<std::uint32_t>(position);
    }
    std::uint64_t u64(std::uint64_t position) const noexcept
    {
        return read<std::uint64_t>(position);
    }

private:
    template <typename number>
    number read(std::uint64_t position) const noexcept
    {
        static_assert(std::endian::native == std::endian::little);
        if (!contains(position, sizeof(number))) [[unlikely]] {
            return static_cast<number>(read_cut(position));
        }
        number value;
        std::memcpy(&value, bytes_.data() + position, sizeof(number));
        return value;
    }

    // The bytes from `position` to the end, fewer than a number has. Not here, so that the usual
    // read stays small.
    std::uint64_t read_cut(std::uint64_t position) const noexcept;

    std::span<const std::uint8_t> bytes_;
};

// The bytes of a text. (A char may be looked at as a byte.)
inline std::span<const std::uint8_t> bytes_of(std::string_view text) noexcept
{
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

} // namespace uni
