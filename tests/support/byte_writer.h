#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "io/byte_source.h"

// What all builders of files write with: numbers are little-endian, `width` bytes each.
namespace test_support {

using bytes = std::vector<std::uint8_t>;

// Writes over what stands at a place; what is too short for it grows.
inline void put(bytes& out, std::uint64_t at, std::uint64_t number, unsigned width)
{
    if (out.size() < at + width) {
        out.resize(static_cast<std::size_t>(at + width));
    }
    for (unsigned i = 0; i < width; ++i) {
        out[static_cast<std::size_t>(at) + i] = static_cast<std::uint8_t>(number >> (8 * i));
    }
}

// The same for many numbers at once.
struct field {
    std::uint64_t at, number;
    unsigned width;
};
inline void put(bytes& out, std::initializer_list<field> fields)
{
    for (const field& each : fields) {
        put(out, each.at, each.number, each.width);
    }
}

inline void append(bytes& out, std::uint64_t number, unsigned width)
{
    for (unsigned i = 0; i < width; ++i) {
        out.push_back(static_cast<std::uint8_t>(number >> (8 * i)));
    }
}

inline void append(bytes& out, std::span<const std::uint8_t> values)
{
    out.insert(out.end(), values.begin(), values.end());
}

inline void append(bytes& out, std::string_view text)
{
    out.insert(out.end(), text.begin(), text.end());
}

inline void append(bytes& out, std::u16string_view units)
{
    for (const char16_t unit : units) {
        append(out, unit, 2);
    }
}

// The same for text, units and bytes.
void put(bytes& out, std::uint64_t at, const auto& values)
{
    bytes piece;
    append(piece, values);
    out.resize(std::max(out.size(), static_cast<std::size_t>(at) + piece.size()));
    std::copy(piece.begin(), piece.end(), out.begin() + static_cast<std::ptrdiff_t>(at));
}

// Bytes as formats take them.
inline std::unique_ptr<io::byte_source> source_of(std::span<const std::uint8_t> values)
{
    return std::make_unique<io::memory_source>(io::byte_vector(values.begin(), values.end()));
}

inline void align(bytes& out, std::size_t to)
{
    out.resize((out.size() + to - 1) / to * to);
}

} // namespace test_support
