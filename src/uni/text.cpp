#include "uni/text.h"

#include <algorithm>
#include <utility>

#include "uni/numbers.h"
#include "uni/utf.h"

namespace uni {

namespace {

constexpr std::string_view blanks = " \t";

} // namespace

void lower_text(std::string& text)
{
    std::transform(text.begin(), text.end(), text.begin(), lower_ascii);
}

std::string lowered(std::string_view text)
{
    std::string out(text);
    lower_text(out);
    return out;
}

bool equal_ignoring_case(std::string_view a, std::string_view b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return lower_ascii(x) == lower_ascii(y); });
}

std::string_view trimmed(std::string_view text)
{
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

void trim(std::string& text)
{
    text.erase(text.find_last_not_of(blanks) + 1);
    text.erase(0, text.find_first_not_of(blanks));
}

namespace {

std::size_t columns_of(char32_t c)
{
    constexpr std::size_t tab_columns = 8;
    // Unicode's East Asian widths W and F, with what stands between them, and pictures.
    constexpr std::pair<char32_t, char32_t> wide[] = {
        {0x1100, 0x115f}, {0x231a, 0x232a}, {0x23e9, 0x23f3},   {0x25fd, 0x27bf}, {0x2b1b, 0x2b55},
        {0x2e80, 0xa4cf}, {0xa960, 0xa97f}, {0xac00, 0xd7a3},   {0xf900, 0xfaff}, {0xfe10, 0xfe6f},
        {0xff00, 0xff60}, {0xffe0, 0xffe6}, {0x10000, 0x10ffff}};
    if (c == '\t') {
        return tab_columns;
    }
    const bool is_wide = c >= wide[0].first && std::ranges::any_of(wide, [c](const auto& range) {
                             return c >= range.first && c <= range.second;
                         });
    return is_wide ? 2 : 1;
}

} // namespace

std::string_view first_columns(std::string_view text, std::size_t columns) noexcept
{
    std::size_t end = 0;
    while (end < text.size()) {
        const utf8_character next = decode_utf8(text.substr(end));
        const std::size_t own = columns_of(next.character);
        if (own > columns) {
            break;
        }
        columns -= own;
        end += next.length;
    }
    return text.substr(0, end);
}

std::size_t columns_of(std::string_view text) noexcept
{
    std::size_t columns = 0;
    while (!text.empty()) {
        const utf8_character next = decode_utf8(text);
        columns += columns_of(next.character);
        text.remove_prefix(next.length);
    }
    return columns;
}

void replace_char(std::string& text, char from, char to)
{
    std::replace(text.begin(), text.end(), from, to);
}

std::size_t remove_char(std::string& text, char c)
{
    return std::erase(text, c);
}

std::string replace_all(std::string_view text, std::string_view from, std::string_view to)
{
    std::string out;
    std::size_t done = 0;
    for (std::size_t at = text.find(from); at != std::string_view::npos;
         at = text.find(from, done)) {
        out.append(text, done, at - done).append(to);
        done = at + from.size();
    }
    return out.append(text, done);
}

std::vector<std::string> split(std::string_view text, char separator, bool trim_items)
{
    std::vector<std::string> items;
    std::size_t start = 0;
    while (start <= text.size()) {
        const std::size_t end = std::min(text.find(separator, start), text.size());
        std::string_view item = text.substr(start, end - start);
        if (trim_items) {
            item = trimmed(item);
        }
        if (!item.empty()) {
            items.emplace_back(item);
        }
        start = end + 1;
    }
    return items;
}

std::string_view xml_entity(char c) noexcept
{
    switch (c) {
    case '<':
        return "&lt;";
    case '>':
        return "&gt;";
    case '&':
        return "&amp;";
    case '"':
        return "&quot;";
    default:
        return {};
    }
}

void write_xml_escaped(text_buffer& out, std::string_view text)
{
    constexpr std::string_view replaced = "<>&\"";
    std::size_t done = 0;
    for (std::size_t at = text.find_first_of(replaced); at != std::string_view::npos;
         at = text.find_first_of(replaced, done)) {
        out.text(text.substr(done, at - done));
        out.text(xml_entity(text[at]));
        done = at + 1;
    }
    out.text(text.substr(done));
}

std::string xml_escape(std::string_view text)
{
    text_buffer out;
    write_xml_escaped(out, text);
    return std::string(out.view());
}

} // namespace uni
