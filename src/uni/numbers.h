// Numbers from and to text.
//
// The put_ functions are for the hot path of the reports: they write into a buffer of the caller's,
// without a terminator, and answer the end of what they wrote. The caller sees to the room: at most
// 20 characters for a decimal number, 16 for a hexadecimal one, and never less than the digits
// asked for.
#pragma once

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
std::optional<std::uint64_t> read_u64_auto(std::string_view text);

// The signed reader is more lenient about prefixes and has no character form: what stands behind
// the first "x" anywhere in the text is hexadecimal, else what stands behind the first "o" is
// octal, else a text that starts with a digit or a sign is decimal. A number out of range gives the
// end of the range that it lies beyond.
std::optional<std::int32_t> read_i32_auto(std::string_view text);

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
    while ((value /= 10) != 0) {
        ++count;
    }
    return count;
}

// Exactly `digits` lower-case hexadecimal digits, filled with zeros; higher digits are cut.
constexpr char* put_hex(char* out, std::uint64_t value, unsigned digits) noexcept
{
    for (unsigned i = digits; i > 0; --i, value >>= 4) {
        out[i - 1] = "0123456789abcdef"[value & 15];
    }
    return out + digits;
}

// The same with at least `minimum_digits`: a larger number takes as many as it needs.
constexpr char* put_hex_min(char* out, std::uint64_t value, unsigned minimum_digits) noexcept
{
    const unsigned needed = hex_digit_count(value);
    return put_hex(out, value, needed > minimum_digits ? needed : minimum_digits);
}

// At least `minimum_digits` decimal digits, filled with zeros.
constexpr char* put_decimal_min(char* out, std::uint64_t value, unsigned minimum_digits) noexcept
{
    const unsigned needed = decimal_digit_count(value);
    const unsigned digits = needed > minimum_digits ? needed : minimum_digits;
    for (unsigned i = digits; i > 0; --i, value /= 10) {
        out[i - 1] = static_cast<char>('0' + value % 10);
    }
    return out + digits;
}

// As many decimal digits as the number needs.
constexpr char* put_decimal(char* out, std::uint64_t value) noexcept
{
    return put_decimal_min(out, value, 1);
}

} // namespace uni
