#include "uni/text.h"

#include <algorithm>

#include "uni/numbers.h"

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

std::string_view first_characters(std::string_view text, std::size_t count) noexcept
{
    std::size_t end = 0;
    while (end < text.size()) {
        // What goes on with a character begins none.
        const bool begins_one = (static_cast<unsigned char>(text[end]) & 0xc0) != 0x80;
        if (begins_one && count-- == 0) {
            break;
        }
        ++end;
    }
    return text.substr(0, end);
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
