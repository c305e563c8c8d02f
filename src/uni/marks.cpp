#include "uni/marks.h"

#include <algorithm>
#include <cstddef>

#include "uni/utf.h"

namespace uni {

namespace {

constexpr std::string_view hex_digits = "0123456789abcdef";

bool is_plain_ascii(char c)
{
    return (c >= 0x20 && c < 0x7f) || c == '\t';
}

bool needs_mark(const utf8_character& one)
{
    const char32_t c = one.character;
    return !one.is_valid || (c < 0x20 && c != '\t') || (c >= 0x7f && c < 0xa0) || turns_order(c) ||
           c == 0xfffe || c == 0xffff;
}

// How many blocks of characters at the start of a text are plain. Without a branch or a truth in the loop,
// which is what compilers need to look at many bytes at once.
template <std::size_t block>
std::size_t plain_blocks(std::string_view text)
{
    std::size_t at = 0;
    for (; at + block <= text.size(); at += block) {
        unsigned char others = 0;
        for (std::size_t i = 0; i < block; ++i) {
            const auto c = static_cast<unsigned char>(text[at + i]);
            const auto from_blank = static_cast<unsigned char>(c - 0x20);
            others |= static_cast<unsigned char>((from_blank >= 0x5f) & (c != '\t'));
        }
        if (others != 0) {
            break;
        }
    }
    return at;
}

// How many characters at the start of a text are plain, most texts being nothing else.
std::size_t plain_run(std::string_view text)
{
    std::size_t at = plain_blocks<32>(text);
    at += plain_blocks<8>(text.substr(at));
    while (at < text.size() && is_plain_ascii(text[at])) {
        ++at;
    }
    return at;
}

void add_byte(std::string& out, char32_t byte)
{
    out.append("[x");
    out += hex_digits[byte >> 4 & 15];
    out += hex_digits[byte & 15];
    out += ']';
}

void add_mark(std::string& out, const utf8_character& one)
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
    for (std::size_t at = plain_run(text); at < text.size(); at += plain_run(text.substr(at))) {
        const utf8_character one = decode_utf8(text.substr(at));
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
        if (const std::size_t plain = plain_run(text.substr(at))) {
            out.append(text.substr(at, plain));
            at += plain;
            continue;
        }
        if (const std::size_t taken = add_line_end(out, text, at)) {
            at += taken;
            continue;
        }
        const utf8_character one = decode_utf8(text.substr(at));
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
