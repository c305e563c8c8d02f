// Numbers from and to text.
//
// The put_ functions are for the hot path of the reports: they write into a buffer of the caller's,
// without a terminator, and answer the end of what they wrote. The caller sees to the room: at most
// 20 characters for a decimal number, 16 for a hexadecimal one, and never less than the digits
// asked for.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace uni {

// The readers take these forms, blanks and tabs around them and letter case aside:
//
//   ?x1f  x1f   hexadecimal (the character before the "x" is not looked at)
//   o17         octal
//   17 +17 -17  decimal; a negative number wraps round
//   'c'         the code of the character c, as a lower-case letter
//
// Any other text, the empty one included, gives nothing. Digits are taken as far as they go, so
// that "12ab" is 12 and "0x" is 0. A number too large for the type gives the type's largest value.
std::optional<std::uint32_t> read_u32_auto(std::string_view text);
// A whole text that is a decimal number or, behind "0x", a hexadecimal one of 32 bits, and nothing
// else.
std::optional<std::uint32_t> read_number(std::string_view text);

std::optional<std::uint64_t> read_u64_auto(std::string_view text);

// Two lower-case hexadecimal digits for each byte, without separators.
std::string hex_text(std::span<const std::uint8_t> bytes);

// The number of significant digits of a number; at least 1.
constexpr unsigned hex_digit_count(std::uint64_t value) noexcept
{
    unsigned count = 1;
    while ((value >>= 4) != 0) {
        ++count;
    }
    return count;
}

constexpr unsigned decimal_digit_count(std::uint64_t value) noexcept
{
    unsigned count = 1;
    for (std::uint64_t limit = 10; value >= limit; limit *= 10) {
        if (++count == 20) {
            break;
        }
    }
    return count;
}

// All byte values as two digits each.
inline constexpr auto hex_pairs = [] {
    std::array<char, 512> pairs{};
    for (std::size_t byte = 0; byte < 256; ++byte) {
        pairs[byte * 2] = "0123456789abcdef"[byte >> 4];
        pairs[byte * 2 + 1] = "0123456789abcdef"[byte & 15];
    }
    return pairs;
}();

// Exactly `digits` lower-case hexadecimal digits, filled with zeros; higher digits are cut.
constexpr char* put_hex(char* out, std::uint64_t value, unsigned digits) noexcept
{
    unsigned left = digits;
    for (; left >= 2; left -= 2, value >>= 8) {
        out[left - 2] = hex_pairs[(value & 0xff) * 2];
        out[left - 1] = hex_pairs[(value & 0xff) * 2 + 1];
    }
    if (left != 0) {
        out[0] = hex_pairs[(value & 0xf) * 2 + 1];
    }
    return out + digits;
}

// The same with at least `minimum_digits`: a larger number takes as many as it needs.
constexpr char* put_hex_min(char* out, std::uint64_t value, unsigned minimum_digits) noexcept
{
    const unsigned needed = hex_digit_count(value);
    return put_hex(out, value, needed > minimum_digits ? needed : minimum_digits);
}

// Exactly two decimal digits of a number below 100.
constexpr char* put_two_decimals(char* out, unsigned value) noexcept
{
    out[0] = static_cast<char>('0' + value / 10);
    out[1] = static_cast<char>('0' + value % 10);
    return out + 2;
}

// Writes the last decimal digits of a number so that they end at `end`, two at a time.
template <typename unsigned_number>
constexpr void put_last_decimals(char* end, unsigned_number value, unsigned digits) noexcept
{
    for (; digits >= 2; digits -= 2, value /= 100) {
        end -= 2;
        put_two_decimals(end, static_cast<unsigned>(value % 100));
    }
    if (digits != 0) {
        *(end - 1) = static_cast<char>('0' + value % 10);
    }
}

// At least `minimum_digits` decimal digits, filled with zeros.
constexpr char* put_decimal_min(char* out, std::uint64_t value, unsigned minimum_digits) noexcept
{
    const unsigned needed = decimal_digit_count(value);
    char* const end = out + (needed > minimum_digits ? needed : minimum_digits);
    if (value <= 0xffffffff) { // which is divided faster
        put_last_decimals(end, static_cast<std::uint32_t>(value), static_cast<unsigned>(end - out));
    } else {
        put_last_decimals(end, value, static_cast<unsigned>(end - out));
    }
    return end;
}

// As many decimal digits as the number needs.
constexpr char* put_decimal(char* out, std::uint64_t value) noexcept
{
    return put_decimal_min(out, value, 1);
}

} // namespace uni
