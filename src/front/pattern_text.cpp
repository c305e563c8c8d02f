#include "front/pattern_text.h"

#include <algorithm>
#include <charconv>

#include "uni/guid.h"
#include "uni/text.h"

namespace front {

namespace {

constexpr std::size_t shortest_guid_argument = 22;

// The separator that a pattern uses, 0 for none.
char separator_of(std::string_view text)
{
    for (const char separator : {' ', ',', ':', '-'}) {
        if (text.find(separator) != std::string_view::npos) {
            return separator;
        }
    }
    return '\0';
}

// The low byte of a hexadecimal item, read from behind its first "x" as far as its digits go. Nothing
// for an item without digits there, or one that begins with none but for "x" or "0x".
std::optional<std::uint8_t> read_item(std::string_view item)
{
    constexpr std::string_view hex_digits = "0123456789abcdef";
    constexpr std::size_t digits_of_byte = 2;
    const std::size_t x = item.find('x');
    if (x > 0 && hex_digits.find(item[0]) == std::string_view::npos) {
        return std::nullopt;
    }
    std::string_view digits = x == std::string_view::npos ? item : item.substr(x + 1);
    digits = digits.substr(0, digits.find_first_not_of(hex_digits));
    if (digits.empty()) {
        return std::nullopt;
    }
    digits.remove_prefix(digits.size() - std::min(digits.size(), digits_of_byte));
    std::uint8_t value = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
    return value;
}

std::string_view without_braces(std::string_view text)
{
    const std::string_view whole = uni::trimmed(text);
    return whole.size() > 1 && whole.front() == '{' && whole.back() == '}'
               ? whole.substr(1, whole.size() - 2)
               : text;
}

} // namespace

std::vector<std::uint8_t> read_pattern_text(std::string_view text)
{
    const std::string lower = uni::lowered(without_braces(text));
    const char separator = separator_of(lower);
    std::vector<std::string> items;
    if (separator != '\0') {
        items = uni::split(lower, separator, true);
    } else if (lower.size() == 2 || (lower.size() <= 4 && lower.find('x') != std::string::npos)) {
        items.push_back(lower);
    }
    std::vector<std::uint8_t> pattern;
    for (const std::string& item : items) {
        const auto byte = read_item(item);
        if (!byte) {
            return {};
        }
        pattern.push_back(*byte);
    }
    return pattern;
}

std::optional<std::string> read_guid_argument(std::string_view argument)
{
    const std::string_view text = without_braces(argument);
    if (text.size() < shortest_guid_argument) {
        return std::nullopt;
    }
    const std::vector<std::uint8_t> pattern = read_pattern_text(text);
    if (pattern.size() == uni::guid_size) {
        return uni::guid_text(pattern);
    }
    const auto guid = uni::guid_from_text(text);
    return guid ? std::optional(uni::guid_text(*guid)) : std::nullopt;
}

} // namespace front
