#include "uni/numbers.h"

#include <algorithm>
#include <charconv>
#include <limits>

#include "uni/text.h"

namespace uni {

namespace {

// The number that the leading digits make: 0 without any, the largest value on overflow.
std::uint64_t leading_digits(std::string_view text, int base)
{
    std::uint64_t value = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value, base);
    return result.ec == std::errc::result_out_of_range ? std::numeric_limits<std::uint64_t>::max()
                                                       : value;
}

bool starts_decimal(std::string_view text)
{
    return !text.empty() &&
           ((text[0] >= '0' && text[0] <= '9') || text[0] == '+' || text[0] == '-');
}

bool has_sign(std::string_view text)
{
    return text[0] == '+' || text[0] == '-';
}

// The unsigned reader; `limit` is the type's largest value.
std::optional<std::uint64_t> read_unsigned(std::string_view original, std::uint64_t limit)
{
    const std::string text = lowered(trimmed(original));
    const std::string_view view = text;
    // before the "x" rule, so that 'x' is a character too
    if (view.size() == 3 && view[0] == '\'' && view[2] == '\'') {
        return static_cast<unsigned char>(view[1]);
    }
    if (view.size() > 1 && view[1] == 'x') {
        return std::min(leading_digits(view.substr(2), 16), limit);
    }
    if (view.starts_with('x')) {
        return std::min(leading_digits(view.substr(1), 16), limit);
    }
    if (view.starts_with('o')) {
        return std::min(leading_digits(view.substr(1), 8), limit);
    }
    if (!starts_decimal(view)) {
        return std::nullopt;
    }
    const std::uint64_t magnitude = leading_digits(view.substr(has_sign(view) ? 1 : 0), 10);
    if (magnitude > limit) {
        return limit;
    }
    return view[0] == '-' ? (0 - magnitude) & limit : magnitude;
}

} // namespace

std::optional<std::uint32_t> read_u32_auto(std::string_view text)
{
    const auto value = read_unsigned(text, std::numeric_limits<std::uint32_t>::max());
    return value ? std::optional(static_cast<std::uint32_t>(*value)) : std::nullopt;
}

std::optional<std::uint64_t> read_u64_auto(std::string_view text)
{
    return read_unsigned(text, std::numeric_limits<std::uint64_t>::max());
}

std::optional<std::uint32_t> read_number(std::string_view text)
{
    const bool is_hex = text.starts_with("0x") || text.starts_with("0X");
    text.remove_prefix(is_hex ? 2 : 0);
    std::uint32_t value = 0;
    const char* const end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, value, is_hex ? 16 : 10);
    return error == std::errc() && stopped == end ? std::optional(value) : std::nullopt;
}

std::string hex_text(std::span<const std::uint8_t> bytes)
{
    std::string out(bytes.size() * 2, '0');
    char* end = out.data();
    for (const std::uint8_t byte : bytes) {
        end = put_hex(end, byte, 2);
    }
    return out;
}

} // namespace uni
