#include "uni/guid.h"

#include <algorithm>
#include <charconv>

#include "uni/numbers.h"

namespace uni {

namespace {

constexpr std::size_t shortest_text = 22;

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
    // Where each byte's two digits stand in the text; no branches, as reports are full of these.
    constexpr std::array<std::uint8_t, guid_size> places = {6,  4,  2,  0,  11, 9,  16, 14,
                                                            19, 21, 24, 26, 28, 30, 32, 34};
    for (std::size_t i = 0; i < guid_size; ++i) {
        const std::size_t pair = bytes[i] * std::size_t{2};
        out[places[i]] = hex_pairs[pair];
        out[places[i] + 1] = hex_pairs[pair + 1];
    }
    out[8] = out[13] = out[18] = out[23] = '-';
    return out + guid_text_length;
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
