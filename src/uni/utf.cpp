#include "uni/utf.h"

#include <cstring>

namespace uni {

namespace {

constexpr std::uint32_t replacement_character = 0xfffd;

constexpr bool is_high_surrogate(std::uint32_t unit)
{
    return unit >= 0xd800 && unit <= 0xdbff;
}

constexpr bool is_low_surrogate(std::uint32_t unit)
{
    return unit >= 0xdc00 && unit <= 0xdfff;
}

constexpr std::uint32_t joined(std::uint32_t high, std::uint32_t low)
{
    return 0x10000 + ((high - 0xd800) << 10) + (low - 0xdc00);
}

char* put_code_point(char* out, std::uint32_t code)
{
    const auto continuation = [code](unsigned shift) {
        return static_cast<char>(0x80 | ((code >> shift) & 0x3f));
    };
    if (code < 0x80) {
        *out++ = static_cast<char>(code);
    } else if (code < 0x800) {
        *out++ = static_cast<char>(0xc0 | (code >> 6));
        *out++ = continuation(0);
    } else if (code < 0x10000) {
        *out++ = static_cast<char>(0xe0 | (code >> 12));
        *out++ = continuation(6);
        *out++ = continuation(0);
    } else {
        *out++ = static_cast<char>(0xf0 | (code >> 18));
        *out++ = continuation(12);
        *out++ = continuation(6);
        *out++ = continuation(0);
    }
    return out;
}

// How many continuation bytes follow a lead byte; -1 for a byte that cannot lead.
int continuation_count(std::uint8_t lead)
{
    if (lead < 0x80) {
        return 0;
    }
    if ((lead & 0xe0) == 0xc0) {
        return 1;
    }
    if ((lead & 0xf0) == 0xe0) {
        return 2;
    }
    return (lead & 0xf8) == 0xf0 ? 3 : -1;
}

// Four units at once, when none of them is zero or beyond ASCII.
bool four_ascii_units(std::uint64_t units)
{
    constexpr std::uint64_t lows = 0x0001000100010001;
    constexpr std::uint64_t beyond_ascii = 0xff80ff80ff80ff80;
    constexpr std::uint64_t highs = 0x8000800080008000;
    return (units & beyond_ascii) == 0 && ((units - lows) & highs) == 0;
}

char* put_four_ascii(char* out, std::uint64_t units)
{
    units = (units | (units >> 8)) & 0x0000ffff0000ffff;
    const auto packed = static_cast<std::uint32_t>(units | (units >> 16));
    std::memcpy(out, &packed, sizeof packed);
    return out + sizeof packed;
}

} // namespace

std::string utf8_from_utf16(std::u16string_view text)
{
    std::string out(text.size() * 3, '\0');
    char* end = out.data();
    for (std::size_t i = 0; i < text.size(); ++i) {
        std::uint32_t code = text[i];
        if (is_high_surrogate(code)) {
            if (i + 1 == text.size() || !is_low_surrogate(text[i + 1])) {
                return {};
            }
            code = joined(code, text[++i]);
        }
        // A lone low surrogate passes as three bytes: meant, and it comes back as it was.
        end = put_code_point(end, code);
    }
    out.resize(static_cast<std::size_t>(end - out.data()));
    return out;
}

std::u16string utf16_from_utf8(std::string_view text)
{
    std::u16string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        const auto lead = static_cast<std::uint8_t>(text[i++]);
        const int following = continuation_count(lead);
        if (following < 0 || text.size() - i < static_cast<std::size_t>(following)) {
            return {};
        }
        std::uint32_t code = following == 0 ? lead : lead & (0x3fu >> following);
        for (int k = 0; k < following; ++k) {
            const auto next = static_cast<std::uint8_t>(text[i++]);
            if ((next & 0xc0) != 0x80) {
                return {};
            }
            code = (code << 6) | (next & 0x3f);
        }
        if (code < 0x10000) {
            out.push_back(static_cast<char16_t>(code));
        } else if (code - 0x10000 > 0xfffff) {
            return {};
        } else {
            out.push_back(static_cast<char16_t>(0xd800 + ((code - 0x10000) >> 10)));
            out.push_back(static_cast<char16_t>(0xdc00 + ((code - 0x10000) & 0x3ff)));
        }
    }
    return out;
}

char* put_stored_utf16(char* out, byte_view stored)
{
    const std::uint64_t end = stored.size() / 2 * 2;
    std::uint64_t at = 0;
    while (at < end) {
        if (end - at >= 8) {
            const std::uint64_t units = stored.u64(at);
            if (four_ascii_units(units)) {
                out = put_four_ascii(out, units);
                at += 8;
                continue;
            }
        }
        std::uint32_t code = stored.u16(at);
        at += 2;
        if (code == 0) {
            break;
        }
        if (is_high_surrogate(code) && at < end && is_low_surrogate(stored.u16(at))) {
            code = joined(code, stored.u16(at));
            at += 2;
        } else if (is_high_surrogate(code) || is_low_surrogate(code)) {
            code = replacement_character;
        }
        out = put_code_point(out, code);
    }
    return out;
}

std::uint64_t utf16_to_text(byte_view stored, std::string& text)
{
    const std::uint64_t whole = stored.size() / 2 * 2;
    std::uint64_t length = 0;
    while (length < whole && stored.u16(length) != 0) {
        length += 2;
    }
    text.resize(static_cast<std::size_t>(length) / 2 * 3);
    char* const end = put_stored_utf16(text.data(), stored.slice(0, length));
    text.resize(static_cast<std::size_t>(end - text.data()));
    if (length == 0) {
        return 0;
    }
    return length + 2 <= stored.size() ? length + 2 : length;
}

} // namespace uni
