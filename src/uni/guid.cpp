#include "uni/guid.h"

#include <algorithm>
#include <charconv>

#include "uni/numbers.h"

namespace uni {

namespace {

constexpr std::size_t shortest_text = 22;

// Byte order of the text: which byte each pair of digits shows. 0xff stands for a hyphen.
constexpr std::uint8_t hyphen = 0xff;
constexpr std::uint8_t shown_order[] = {3,      2, 1, 0,      hyphen, 5,  4,  hyphen, 7,  6,
                                        hyphen, 8, 9, hyphen, 10,     11, 12, 13,     14, 15};

struct group {
    std::size_t offset;
    std::size_t width; // in bytes
    bool little_endian;
};

constexpr group groups[] = {
    {0, 4, true}, {4, 2, true}, {6, 2, true}, {8, 2, false}, {10, 6, false}};

void store(std::span<std::uint8_t> field, std::uint64_t value, bool little_endian)
{
    for (std::size_t i = 0; i < field.size(); ++i, value >>= 8) {
        field[little_endian ? i : field.size() - 1 - i] = static_cast<std::uint8_t>(value);
    }
}

} // namespace

char* put_guid(char* out, std::span<const std::uint8_t, guid_size> bytes)
{
    for (const std::uint8_t index : shown_order) {
        if (index == hyphen) {
            *out++ = '-';
        } else {
            const std::size_t pair = bytes[index] * std::size_t{2};
            *out++ = hex_pairs[pair];
            *out++ = hex_pairs[pair + 1];
        }
    }
    return out;
}

void swap_guid_order(std::span<std::uint8_t, guid_size> bytes)
{
    std::ranges::reverse(bytes.subspan<0, 4>());
    std::ranges::reverse(bytes.subspan<4, 2>());
    std::ranges::reverse(bytes.subspan<6, 2>());
}

std::string guid_text(std::span<const std::uint8_t> bytes)
{
    if (bytes.size() < guid_size) {
        return {};
    }
    std::string out(guid_text_length, '-');
    put_guid(out.data(), bytes.first<guid_size>());
    return out;
}

std::optional<std::array<std::uint8_t, guid_size>> guid_from_text(std::string_view text)
{
    if (text.size() < shortest_text) {
        return std::nullopt;
    }
    std::array<std::uint8_t, guid_size> bytes{};
    for (const group& g : groups) {
        if (g.offset != 0) {
            text.remove_prefix(std::min<std::size_t>(1, text.size())); // any separator will do
        }
        const std::string_view digits = text.substr(0, g.width * 2);
        std::uint64_t value = 0;
        const auto [end, error] =
            std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
        if (error != std::errc{}) {
            return std::nullopt;
        }
        text.remove_prefix(static_cast<std::size_t>(end - digits.data()));
        store(std::span(bytes).subspan(g.offset, g.width), value, g.little_endian);
    }
    return bytes;
}

} // namespace uni
