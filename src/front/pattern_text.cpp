#include "front/pattern_text.h"

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

// The low byte of a hexadecimal item, read from behind its "x" as far as its digits go. An item
// without "x" and without text is dropped.
std::optional<std::uint8_t> read_item(std::string_view item)
{
    const std::size_t prefix = item.find('x');
    if (prefix == std::string_view::npos && item.empty()) {
        return std::nullopt;
    }
    const std::string_view digits =
        prefix == std::string_view::npos ? item : item.substr(prefix + 1);
    std::uint64_t value = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
    return static_cast<std::uint8_t>(value);
}

} // namespace

std::vector<std::uint8_t> read_pattern_text(std::string_view text)
{
    const std::string lower = uni::lowered(text);
    const char separator = separator_of(lower);
    std::vector<std::string> items;
    if (separator != '\0') {
        items = uni::split(lower, separator, true);
    } else if (lower.size() == 2 || (lower.size() <= 4 && lower.find('x') != std::string::npos)) {
        items.push_back(lower);
    }
    std::vector<std::uint8_t> pattern;
    for (const std::string& item : items) {
        if (const auto byte = read_item(item)) {
            pattern.push_back(*byte);
        }
    }
    return pattern;
}

std::optional<std::string> read_guid_argument(std::string_view text)
{
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
