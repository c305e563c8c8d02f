#include "uni/utf.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <span>

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

// A unit that is no printable ASCII, or that markup gives a meaning.
constexpr bool is_special(std::uint16_t unit)
{
    // "<" and ">" differ in one bit, and so do "&" and the double quote.
    return (unit | 2) == '>' || (unit | 4) == '&' || static_cast<std::uint16_t>(unit - 0x20) > 0x5e;
}

// Writes `length` units, at least `count`, as one byte each, `count` at a time, the last ones
// overlapping those before them. Gives false if any of them is special, when what was written does
// not count. Loops of a fixed count without branches, so that the compiler can do them at once.
template <std::size_t count>
bool put_plain_blocks(char* out, const std::uint8_t* units, std::size_t length)
{
    std::array<std::uint16_t, count> specials{};
    for (std::size_t done = 0; done < length; done += count) {
        const std::size_t at = std::min(done, length - count);
        std::array<std::uint16_t, count> block;
        std::memcpy(block.data(), units + at * 2, sizeof block);
        for (std::size_t i = 0; i < count; ++i) {
            specials[i] |= static_cast<std::uint16_t>((block[i] | 2) == '>');
            specials[i] |= static_cast<std::uint16_t>((block[i] | 4) == '&');
            specials[i] |=
                static_cast<std::uint16_t>(static_cast<std::uint16_t>(block[i] - 0x20) > 0x5e);
        }
        for (std::size_t i = 0; i < count; ++i) {
            out[at + i] = static_cast<char>(block[i]);
        }
    }
    std::uint64_t any = 0;
    for (const std::uint64_t lanes :
         std::bit_cast<std::array<std::uint64_t, count / 4>>(specials)) {
        any |= lanes;
    }
    return any == 0;
}

// The whole units of stored text without the zero unit at its end, if it has one.
byte_view without_terminator(byte_view stored)
{
    const std::uint64_t whole = stored.size() / 2 * 2;
    const bool is_terminated = whole != 0 && stored.u16(whole - 2) == 0;
    return stored.slice(0, is_terminated ? whole - 2 : whole);
}

// Long text up to its first zero unit: what stands behind that is not looked at again and again.
byte_view cut_at_zero(byte_view units)
{
    constexpr std::uint64_t long_text = 1024;
    if (units.size() <= long_text) {
        return units;
    }
    std::uint64_t length = 0;
    while (length < units.size() && units.u16(length) != 0) {
        length += 2;
    }
    return units.slice(0, length);
}

// Writes all units as one byte each and gives true if none of them is special.
bool put_plain(char* out, byte_view units)
{
    constexpr std::size_t large = 8;
    constexpr std::size_t small = 4;
    const auto length = static_cast<std::size_t>(units.size() / 2);
    const std::uint8_t* const first = units.bytes().data();
    if (length >= large) {
        return put_plain_blocks<large>(out, first, length);
    }
    if (length >= small) {
        return put_plain_blocks<small>(out, first, length);
    }
    for (std::size_t i = 0; i < length; ++i) {
        const std::uint16_t unit = units.u16(i * 2);
        if (is_special(unit)) {
            return false;
        }
        out[i] = static_cast<char>(unit);
    }
    return true;
}

} // namespace

utf8_character decode_utf8(std::string_view text)
{
    const auto lead = static_cast<unsigned char>(text[0]);
    if (lead < 0x80) {
        return {lead, 1, true};
    }
    const std::size_t length = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
    if (lead < 0xc2 || lead > 0xf4 || text.size() < length) {
        return {lead, 1, false};
    }
    char32_t character = lead & (0x7fu >> length);
    for (std::size_t i = 1; i < length; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if ((byte & 0xc0) != 0x80) {
            return {lead, 1, false};
        }
        character = character << 6 | (byte & 0x3f);
    }
    constexpr char32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool is_surrogate = character >= 0xd800 && character < 0xe000;
    if (character < smallest[length] || character > 0x10ffff || is_surrogate) {
        return {lead, 1, false};
    }
    return {character, length, true};
}

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
        // A lone low surrogate passes as three bytes, so that a path comes back as it was.
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

char* put_stored_utf16(char* out, byte_view stored, bool& plain)
{
    const byte_view units = cut_at_zero(without_terminator(stored));
    plain = put_plain(out, units);
    if (plain) {
        return out + units.size() / 2;
    }
    for (std::uint64_t at = 0; at < units.size(); at += 2) {
        std::uint32_t code = units.u16(at);
        if (code == 0) {
            break;
        }
        if (is_high_surrogate(code) && is_low_surrogate(units.u16(at + 2))) {
            code = joined(code, units.u16(at + 2));
            at += 2;
        } else if (is_high_surrogate(code) || is_low_surrogate(code)) {
            code = replacement_character;
        }
        out = put_code_point(out, code);
    }
    return out;
}

char* put_stored_utf16(char* out, byte_view stored)
{
    bool plain = false;
    return put_stored_utf16(out, stored, plain);
}

std::uint64_t utf16_to_text(byte_view stored, std::string& text)
{
    constexpr std::size_t short_room = 384;
    const std::span<const std::uint8_t> bytes = stored.bytes();
    const std::size_t whole = bytes.size() / 2 * 2;
    std::size_t length = 0;
    while (length < whole && (bytes[length] | bytes[length + 1]) != 0) {
        length += 2;
    }
    const byte_view units = stored.slice(0, length);
    // Most are short: those are made apart, so that the string takes no more than it holds.
    if (stored_text_room(length) <= short_room) {
        std::array<char, short_room> made;
        text.assign(made.data(), put_stored_utf16(made.data(), units));
    } else {
        text.resize(stored_text_room(length));
        char* const end = put_stored_utf16(text.data(), units);
        text.resize(static_cast<std::size_t>(end - text.data()));
    }
    if (length == 0) {
        return 0;
    }
    return length + 2 <= stored.size() ? length + 2 : length;
}

} // namespace uni
