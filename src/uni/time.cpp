#include "uni/time.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <limits>
#include <vector>

#include "uni/numbers.h"
#include "uni/text.h"

namespace uni {

namespace {

constexpr std::uint64_t seconds_per_day = 86'400;
constexpr std::uint64_t days_per_year = 365;
constexpr std::uint64_t days_per_4_years = 4 * days_per_year + 1;
constexpr std::uint64_t days_per_century = 25 * days_per_4_years - 1;
constexpr std::uint64_t days_per_400_years = 4 * days_per_century + 1;
constexpr std::uint16_t first_printable_year = 1900;
constexpr std::uint16_t last_printable_year = 3000;
constexpr std::size_t longest_time_part = 31;

constexpr std::array<std::string_view, 12> month_names = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                          "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

// Day of the year on which each month begins, and the year's length; common and leap years.
constexpr std::uint16_t month_starts[2][13] = {
    {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365},
    {0, 31, 60, 91, 121, 152, 182, 213, 244, 274, 305, 335, 366}};

constexpr bool is_leap(std::uint64_t year)
{
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

constexpr std::uint64_t days_before_year(std::uint64_t year)
{
    const std::uint64_t years = year - 1601; // 1601 begins a cycle of 400 years
    return years * days_per_year + years / 4 - years / 100 + years / 400;
}

void set_calendar_day(time_value& value, std::uint64_t days)
{
    value.weekday = static_cast<std::uint16_t>((days + 1) % 7); // 1601-01-01 was a Monday
    std::uint64_t year = 1601 + days / days_per_400_years * 400;
    days %= days_per_400_years;
    // the last century of a cycle and the last year of four are a day longer than the others
    const std::uint64_t century = std::min<std::uint64_t>(days / days_per_century, 3);
    days -= century * days_per_century;
    year += century * 100 + days / days_per_4_years * 4;
    days %= days_per_4_years;
    const std::uint64_t single = std::min<std::uint64_t>(days / days_per_year, 3);
    days -= single * days_per_year;
    year += single;

    const auto& starts = month_starts[is_leap(year) ? 1 : 0];
    std::size_t month = days / 32; // never too late, and at most one too early
    if (days >= starts[month + 1]) {
        ++month;
    }
    value.year = static_cast<std::uint16_t>(year);
    value.month = static_cast<std::uint16_t>(month + 1);
    value.day = static_cast<std::uint16_t>(days - starts[month] + 1);
}

time_value from_ticks(std::uint64_t ticks)
{
    time_value value;
    if (ticks > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
        return value;
    }
    const std::uint64_t seconds = ticks / ticks_per_second;
    const std::uint64_t second_of_day = seconds % seconds_per_day;
    const std::uint64_t fraction = ticks % ticks_per_second;
    constexpr auto ticks_per_second_signed = static_cast<std::int64_t>(ticks_per_second);
    value.filetime = ticks;
    value.unix_seconds =
        (static_cast<std::int64_t>(ticks) - seconds_1601_to_1970 * ticks_per_second_signed) /
        ticks_per_second_signed;
    set_calendar_day(value, seconds / seconds_per_day);
    value.hour = static_cast<std::uint16_t>(second_of_day / 3600);
    value.minute = static_cast<std::uint16_t>(second_of_day / 60 % 60);
    value.second = static_cast<std::uint16_t>(second_of_day % 60);
    value.millisecond = static_cast<std::uint16_t>(fraction / 10'000);
    value.microseconds = fraction / 10;
    value.nanoseconds = fraction * 100;
    value.picoseconds = fraction * 100'000;
    value.valid = value.unix_seconds != 0 && value.year >= first_printable_year &&
                  value.year <= last_printable_year;
    return value;
}

time_value from_unix(std::uint64_t seconds, std::uint64_t milliseconds)
{
    constexpr std::uint64_t largest = std::numeric_limits<std::int64_t>::max() / ticks_per_second;
    constexpr auto offset = static_cast<std::uint64_t>(seconds_1601_to_1970);
    if (static_cast<std::int64_t>(seconds) <= 0 || seconds >= largest - offset) {
        return {};
    }
    return from_ticks((seconds + offset) * ticks_per_second + milliseconds * 10'000);
}

char* put_text(char* out, std::string_view text)
{
    return std::copy(text.begin(), text.end(), out);
}

char* put_separator(char* out, std::uint32_t flags)
{
    if (const std::uint32_t separator = flags & date_flag::separator_mask) {
        *out++ = static_cast<char>(separator);
    }
    return out;
}

char* put_month(char* out, const time_value& value, std::uint32_t flags)
{
    if ((flags & date_flag::month_name) == 0) {
        return put_decimal_min(out, value.month, 2);
    }
    const bool known = value.month >= 1 && value.month <= month_names.size();
    return known ? put_text(out, month_names[value.month - 1u]) : out;
}

char* put_date(char* out, const time_value& value, std::uint32_t flags)
{
    const bool full_year = (flags & date_flag::four_digit_year) != 0;
    const unsigned year_digits = full_year ? 4 : 2;
    if ((flags & date_flag::day_month_year) != 0) {
        out = put_separator(put_decimal_min(out, value.day, 2), flags);
        out = put_separator(put_month(out, value, flags), flags);
        return put_decimal_min(out, value.year, year_digits);
    }
    if ((flags & date_flag::month_day_year) != 0) {
        out = put_separator(put_month(out, value, flags), flags);
        out = put_separator(put_decimal_min(out, value.day, 2), flags);
        return put_decimal_min(out, value.year, year_digits);
    }
    if ((flags & date_flag::year_month_day) != 0) {
        if (full_year) { // a leading "yy" prints no year: this is meant
            out = put_separator(put_decimal_min(out, value.year, year_digits), flags);
        }
        out = put_separator(put_month(out, value, flags), flags);
        return put_decimal_min(out, value.day, 2);
    }
    return out;
}

char* put_time(char* out, const time_value& value, std::uint32_t flags)
{
    out = put_decimal_min(out, value.hour, 2);
    *out++ = ':';
    out = put_decimal_min(out, value.minute, 2);
    *out++ = ':';
    out = put_decimal_min(out, value.second, 2);
    const unsigned digits = (flags >> date_flag::fraction_shift) & date_flag::fraction_mask;
    if (digits == 0) {
        return out;
    }
    std::uint64_t fraction = value.nanoseconds;
    for (unsigned i = digits; i < 9; ++i) {
        fraction /= 10;
    }
    *out++ = '.';
    return put_decimal_min(out, fraction, digits);
}

void put_texts(std::string& date_out, std::string& time_out, const time_value& value,
               std::uint32_t flags)
{
    char buffer[64]; // no text has more than 38 characters, whatever the fields hold
    date_out.assign(buffer, put_date(buffer, value, flags));
    time_out.assign(buffer, put_time(buffer, value, flags));
}

std::uint32_t separator_of(std::string_view dateformat)
{
    for (const char separator : {'/', '-', ' '}) {
        if (dateformat.find(separator) != std::string_view::npos) {
            return static_cast<unsigned char>(separator);
        }
    }
    return 0;
}

// The flags of the date format, as far as they could be found, are added to `flags`.
bool compile_date(std::uint32_t& flags, std::string_view format)
{
    constexpr auto missing = std::string_view::npos;
    flags |= separator_of(format);
    const bool name = format.find("mmm") != missing;
    const std::size_t month = format.find(name ? "mmm" : "mm");
    if (month == missing) {
        return false;
    }
    flags |= name ? date_flag::month_name : date_flag::month_number;
    const bool full_year = format.find("yyyy") != missing;
    const std::size_t year = format.find(full_year ? "yyyy" : "yy");
    if (year == missing) {
        return false;
    }
    flags |= full_year ? date_flag::four_digit_year : date_flag::short_year;
    if (format.find(',') != missing) {
        flags |= date_flag::comma;
    }
    const std::size_t day = format.find("dd");
    if (day == missing) {
        return false;
    }
    if (day < month && month < year) {
        flags |= date_flag::day_month_year;
    } else if (month < day && day < year) {
        flags |= date_flag::month_day_year;
    } else if (year < month && month < day) {
        flags |= date_flag::year_month_day;
    } else {
        return false;
    }
    return true;
}

void compile_fraction(std::uint32_t& flags, std::string_view timeformat)
{
    if (timeformat.find("xxx") == std::string_view::npos) {
        return;
    }
    const std::size_t run = timeformat.rfind('x') - timeformat.find('x') + 1;
    const auto digits = static_cast<std::uint32_t>(std::min<std::size_t>(run, 9));
    flags |= digits << date_flag::fraction_shift;
}

// A number that fits a calendar field, with room for the 12 hours of "pm".
std::optional<std::uint16_t> read_field(std::string_view text)
{
    constexpr std::uint32_t largest = std::numeric_limits<std::uint16_t>::max() - 12;
    const auto number = read_u32_auto(text);
    if (!number || *number > largest) {
        return std::nullopt;
    }
    return static_cast<std::uint16_t>(*number);
}

// Cuts off and answers what stands before the separator; the separator is dropped.
std::string_view take_part(std::string_view& rest, char separator)
{
    const std::size_t end = std::min(rest.find(separator), rest.size());
    const std::string_view part = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    return part;
}

std::string with_month_numbers(std::string_view date)
{
    std::string text = lowered(date);
    for (std::size_t i = 0; i < month_names.size(); ++i) {
        text = replace_all(text, lowered(month_names[i]), std::to_string(i + 1));
    }
    return text;
}

bool parse_date(std::string_view date, std::string_view field_order, char separator,
                system_time& out)
{
    if (date.empty() || field_order.size() < 3) {
        return false;
    }
    const std::string text = with_month_numbers(date);
    std::string_view rest = text;
    for (const char letter : field_order) {
        const auto number = read_field(take_part(rest, separator));
        if (!number) {
            return false;
        }
        switch (letter) {
        case 'D':
            out.day = *number;
            break;
        case 'M':
            out.month = *number;
            break;
        case 'Y':
            out.year = *number;
            break;
        default:
            return false;
        }
    }
    return true;
}

bool parse_seconds(std::string_view part, system_time& out)
{
    part = trimmed(part);
    double seconds = 0;
    const auto result =
        std::from_chars(part.data(), part.data() + part.size(), seconds, std::chars_format::fixed);
    if (result.ec != std::errc{} || !(seconds >= 0 && seconds < 65'536)) {
        return false;
    }
    out.second = static_cast<std::uint16_t>(seconds);
    out.millisecond = static_cast<std::uint16_t>(std::lround((seconds - out.second) * 1000));
    return true;
}

bool parse_time(std::string_view time, system_time& out)
{
    const std::string text = lowered(trimmed(time));
    std::string_view rest = text;
    if (rest.empty()) {
        return true;
    }
    const std::string_view hour_part = take_part(rest, ':');
    const bool has_minute = !rest.empty();
    const std::string_view minute_part = take_part(rest, ':');
    if (std::max({hour_part.size(), minute_part.size(), rest.size()}) > longest_time_part) {
        return false;
    }
    const auto hour = read_field(hour_part);
    const auto minute = has_minute ? read_field(minute_part) : 0;
    if (!hour || !minute || (!rest.empty() && !parse_seconds(rest, out))) {
        return false;
    }
    const bool afternoon = text.find("pm") != std::string::npos;
    out.hour = static_cast<std::uint16_t>(*hour + (afternoon ? 12 : 0)); // 12 pm too: meant
    out.minute = *minute;
    return true;
}

} // namespace

time_value time_value_from(std::uint64_t raw, time_kind kind)
{
    switch (kind) {
    case time_kind::filetime:
        return from_ticks(raw);
    case time_kind::unix_seconds:
        return from_unix(raw, 0);
    case time_kind::unix_milliseconds: {
        const auto milliseconds = static_cast<std::int64_t>(raw);
        return milliseconds < 0 ? time_value{} : from_unix(raw / 1000, raw % 1000);
    }
    }
    return {};
}

bool compile_date_style(date_style& style, std::string_view dateformat, std::string_view timeformat,
                        bool pair_datetime)
{
    style.flags = pair_datetime ? date_flag::pair_datetime : 0;
    if (!dateformat.empty() && !compile_date(style.flags, dateformat)) {
        return false;
    }
    compile_fraction(style.flags, timeformat);
    return true;
}

char* put_moment(char* out, const time_value& value, const date_style& style)
{
    date_style compiled = style;
    if (style.flags == 0) {
        compile_date_style(compiled, "yyyy-mm-dd", "hh:mm:ss.xxx", false);
    }
    if (value.valid) {
        out = put_date(out, value, compiled.flags);
    }
    *out++ = ' ';
    return value.valid ? put_time(out, value, compiled.flags) : out;
}

bool filetime_text(std::string& date_out, std::string& time_out, const time_value& value,
                   const date_style& style)
{
    if (style.flags == 0) {
        format_date_time(date_out, time_out, value, "yyyy-mm-dd", "hh:mm:ss.xxx");
        return false;
    }
    if (!value.valid) {
        date_out.clear();
        time_out.clear();
        return false;
    }
    put_texts(date_out, time_out, value, style.flags);
    return true;
}

void format_date_time(std::string& date_out, std::string& time_out, const time_value& value,
                      std::string_view dateformat, std::string_view timeformat)
{
    date_out.clear();
    time_out.clear();
    if (value.valid) {
        date_style style;
        compile_date_style(style, dateformat, timeformat, false);
        put_texts(date_out, time_out, value, style.flags);
    }
}

bool parse_date_time(std::string_view date, std::string_view time, std::string_view field_order,
                     char separator, system_time& out)
{
    out = {};
    if (parse_date(date, field_order, separator, out) && parse_time(time, out)) {
        return true;
    }
    out = {};
    return false;
}

std::optional<std::uint64_t> filetime_from(const system_time& fields)
{
    // the last year that is whole in a signed FILETIME
    constexpr std::uint16_t last_year = 30'827;
    if (fields.year < 1601 || fields.year > last_year || fields.month < 1 || fields.month > 12 ||
        fields.hour > 23 || fields.minute > 59 || fields.second > 59 || fields.millisecond > 1000) {
        return std::nullopt;
    }
    const auto* starts = month_starts[is_leap(fields.year) ? 1 : 0] + (fields.month - 1);
    if (fields.day < 1 || fields.day > starts[1] - starts[0]) {
        return std::nullopt;
    }
    const std::uint64_t days = days_before_year(fields.year) + starts[0] + fields.day - 1;
    const std::uint64_t minutes = (days * 24 + fields.hour) * 60 + fields.minute;
    const std::uint64_t milliseconds = (minutes * 60 + fields.second) * 1000 + fields.millisecond;
    return milliseconds * 10'000;
}

double seconds_between(std::uint64_t start, std::uint64_t end)
{
    return static_cast<double>(static_cast<std::int64_t>(end - start)) /
           static_cast<double>(ticks_per_second);
}

std::uint64_t now_filetime()
{
    const auto since_1970 = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::system_clock::now().time_since_epoch());
    return static_cast<std::uint64_t>(since_1970.count() + seconds_1601_to_1970 * 1000) * 10'000;
}

} // namespace uni
