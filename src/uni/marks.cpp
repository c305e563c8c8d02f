#include "uni/marks.h"

#include <algorithm>
#include <array>
#include <cstddef>

#include "uni/text_targets.h"
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

// Whether a text is plain from end to end, which is found out faster than where it is not.
bool is_plain(std::string_view text)
{
    constexpr std::size_t block = 16;
    std::array<unsigned char, block> others{};
    const auto look_at = [&](std::size_t at) {
        for (std::size_t i = 0; i < block; ++i) {
            const auto c = static_cast<unsigned char>(text[at + i]);
            const auto from_blank = static_cast<unsigned char>(c - 0x20);
            others[i] |= static_cast<unsigned char>((from_blank >= 0x5f) & (c != '\t'));
        }
    };
    if (text.size() < block) {
        return plain_run(text) == text.size();
    }
    for (std::size_t at = 0; at + block <= text.size(); at += block) {
        look_at(at);
    }
    look_at(text.size() - block); // its end, in part once more
    return std::ranges::count(others, 0) == block;
}

char* put_byte_mark(char* to, char32_t byte)
{
    *to++ = '[';
    *to++ = 'x';
    *to++ = hex_digits[byte >> 4 & 15];
    *to++ = hex_digits[byte & 15];
    *to++ = ']';
    return to;
}

char* put_mark(char* to, const utf8_character& one)
{
    if (one.character == 0xfffe || one.character == 0xffff) {
        return std::ranges::copy(std::string_view("\xef\xbf\xbd"), to).out;
    }
    if (!turns_order(one.character)) {
        return put_byte_mark(to, one.character);
    }
    to = std::ranges::copy(std::string_view("[U+"), to).out;
    for (int shift = 12; shift >= 0; shift -= 4) {
        const char digit = hex_digits[one.character >> shift & 15];
        *to++ = digit >= 'a' ? static_cast<char>(digit - 'a' + 'A') : digit;
    }
    *to++ = ']';
    return to;
}

// Where the first character stands, from `at` on, that gets a mark.
std::size_t next_marked(std::string_view text, std::size_t at, tab_marking tabs)
{
    while (at < text.size()) {
        if (tabs == tab_marking::none) {
            at += plain_run(text.substr(at));
        } else if (is_plain_ascii(text[at]) && text[at] != '\t') {
            ++at;
            continue;
        }
        if (at == text.size()) {
            break;
        }
        const utf8_character one = decode_utf8(text.substr(at));
        if (needs_mark(one) || one.character == '\t') {
            break;
        }
        at += one.length;
    }
    return at;
}

// The mark of the line end at `at`, which takes so many bytes; nothing if none stands there.
std::string_view line_end_mark(std::string_view text, std::size_t at, std::size_t& length)
{
    const char next = at + 1 < text.size() ? text[at + 1] : '\0';
    if (text[at] == '\r') {
        length = next == '\n' ? 2 : 1;
        return next == '\n' ? "[CRLF]" : "[CR]";
    }
    if (text[at] == '\n') {
        const bool is_pair = next == '\r' && at > 0;
        length = is_pair ? 2 : 1;
        return is_pair ? "[LFCR]" : "[LF]";
    }
    return {};
}

} // namespace

std::string_view marked_pieces::next()
{
    const std::size_t begin = at_;
    at_ = next_marked(text_, at_, tabs_);
    return at_ > begin || at_ == text_.size() ? text_.substr(begin, at_ - begin) : next_mark();
}

std::string_view marked_pieces::next_mark()
{
    std::size_t length = 0;
    if (const std::string_view mark = line_end_mark(text_, at_, length); !mark.empty()) {
        at_ += length;
        return mark;
    }
    const utf8_character one = decode_utf8(text_.substr(at_));
    at_ += one.length;
    const char* const end = put_mark(mark_.data(), one);
    return {mark_.data(), static_cast<std::size_t>(end - mark_.data())};
}

void write_marked(text_buffer& out, std::string_view text, tab_marking tabs)
{
    marked_pieces pieces(text, tabs);
    for (std::string_view piece = pieces.next(); !piece.empty(); piece = pieces.next()) {
        out.text(piece);
    }
}

bool needs_marks(std::string_view text, tab_marking tabs)
{
    if (tabs == tab_marking::none && is_plain(text)) {
        return false;
    }
    return next_marked(text, 0, tabs) != text.size();
}

std::string marked(std::string_view text, tab_marking tabs)
{
    constexpr std::size_t long_text = 0x8000;
    std::string out;
    if (text.size() > long_text) { // what grows is held twice
        text_counter counted;
        write_marked(counted, text, tabs);
        out.reserve(static_cast<std::size_t>(counted.total()));
    }
    marked_pieces pieces(text, tabs);
    for (std::string_view piece = pieces.next(); !piece.empty(); piece = pieces.next()) {
        out += piece;
    }
    return out;
}

void mark(std::string& text, tab_marking tabs)
{
    if (needs_marks(text, tabs)) {
        text = marked(text, tabs);
    }
}

} // namespace uni
