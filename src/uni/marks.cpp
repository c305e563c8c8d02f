#include "uni/marks.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace uni {

namespace {

constexpr std::string_view hex_digits = "0123456789abcdef";

bool is_plain_ascii(char c)
{
    return (c >= 0x20 && c < 0x7f) || c == '\t';
}

// A character and the bytes that it takes; a byte that begins none stands for itself.
struct decoded {
    char32_t character = 0;
    std::size_t length = 1;
    bool is_valid = false;
};

decoded decode(std::string_view text)
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

bool turns_order(char32_t c)
{
    return c == 0x61c || c == 0x200e || c == 0x200f || (c >= 0x202a && c <= 0x202e) ||
           (c >= 0x2066 && c <= 0x2069);
}

bool needs_mark(const decoded& one)
{
    const char32_t c = one.character;
    return !one.is_valid || (c < 0x20 && c != '\t') || (c >= 0x7f && c < 0xa0) || turns_order(c) ||
           c == 0xfffe || c == 0xffff;
}

void add_byte(std::string& out, char32_t byte)
{
    out.append("[x");
    out += hex_digits[byte >> 4 & 15];
    out += hex_digits[byte & 15];
    out += ']';
}

void add_mark(std::string& out, const decoded& one)
{
    if (one.character == 0xfffe || one.character == 0xffff) {
        out += "\xef\xbf\xbd";
    } else if (!turns_order(one.character)) {
        add_byte(out, one.character);
    } else {
        out += "[U+";
        for (int shift = 12; shift >= 0; shift -= 4) {
            const char digit = hex_digits[one.character >> shift & 15];
            out += digit >= 'a' ? static_cast<char>(digit - 'a' + 'A') : digit;
        }
        out += ']';
    }
}

// Adds the mark of the line end at `at`, if one stands there; gives the bytes that it takes.
std::size_t add_line_end(std::string& out, std::string_view text, std::size_t at)
{
    const char next = at + 1 < text.size() ? text[at + 1] : '\0';
    if (text[at] == '\r') {
        out += next == '\n' ? "[CRLF]" : "[CR]";
        return next == '\n' ? 2 : 1;
    }
    if (text[at] == '\n') {
        const bool is_pair = next == '\r' && at > 0;
        out += is_pair ? "[LFCR]" : "[LF]";
        return is_pair ? 2 : 1;
    }
    return 0;
}

} // namespace

bool needs_marks(std::string_view text)
{
    for (std::size_t at = 0; at < text.size();) {
        if (is_plain_ascii(text[at])) {
            ++at;
            continue;
        }
        const decoded one = decode(text.substr(at));
        if (needs_mark(one)) {
            return true;
        }
        at += one.length;
    }
    return false;
}

std::string marked(std::string_view text)
{
    std::string out;
    for (std::size_t at = 0; at < text.size();) {
        if (const std::size_t taken = add_line_end(out, text, at)) {
            at += taken;
            continue;
        }
        const decoded one = decode(text.substr(at));
        if (needs_mark(one)) {
            add_mark(out, one);
        } else {
            out.append(text.substr(at, one.length));
        }
        at += one.length;
    }
    return out;
}

void mark(std::string& text)
{
    if (needs_marks(text)) {
        text = marked(text);
    }
}

} // namespace uni
