#include "uni/time.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <limits>
#include <ratio>

#include "uni/numbers.h"
#include "uni/text.h"

namespace uni {

namespace {

using ticks = std::chrono::duration<std::int64_t, std::ratio<1, ticks_per_second>>;

constexpr std::chrono::sys_days start_of_filetime =
    std::chrono::year(1601) / std::chrono::January / 1;
constexpr std::uint16_t first_printable_year = 1900;
constexpr std::uint16_t last_printable_year = 3000;
constexpr std::size_t longest_time_part = 31;

constexpr std::array<std::string_view, 12> month_names = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                          "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

constexpr date_style default_style = {.order = date_style::field_order::year_month_day,
                                      .month = date_style::month_form::number,
                                      .four_digit_year = true,
                                      .separator = '-',
                                      .fraction_digits = 3};

time_value from_ticks(std::uint64_t raw)
{
    namespace chrono = std::chrono;
    time_value value;
    if (raw > static_cast<std::uint64_t>(ticks::max().count())) {
        return value;
    }
    const auto moment = start_of_filetime + ticks(raw);
    const auto midnight = chrono::floor<chrono::days>(moment);
    const chrono::year_month_day date(midnight);
    const chrono::hh_mm_ss time(moment - midnight);
    value.filetime = raw;
    value.unix_seconds = chrono::duration_cast<chrono::seconds>(moment.time_since_epoch()).count();
    value.nanoseconds = static_cast<std::uint32_t>(chrono::nanoseconds(time.subseconds()).count());
    value.year = static_cast<std::uint16_t>(static_cast<int>(date.year()));
    value.month = static_cast<std::uint16_t>(static_cast<unsigned>(date.month()));
    value.day = static_cast<std::uint16_t>(static_cast<unsigned>(date.day()));
    value.hour = static_cast<std::uint16_t>(time.hours().count());
    value.minute = static_cast<std::uint16_t>(time.minutes().count());
    value.second = static_cast<std::uint16_t>(time.seconds().count());
    value.valid = value.unix_seconds != 0 && value.year >= first_printable_year &&
                  value.year <= last_printable_year;
    return value;
}

time_value from_unix(std::uint64_t seconds)
{
    constexpr std::uint64_t largest = std::numeric_limits<std::int64_t>::max() / ticks_per_second;
    constexpr auto offset = static_cast<std::uint64_t>(seconds_1601_to_1970);
    if (static_cast<std::int64_t>(seconds) <= 0 || seconds >= largest - offset) {
        return {};
    }
    return from_ticks((seconds + offset) * ticks_per_second);
}

char* put_separator(char* out, const date_style& style)
{
    if (style.separator != '\0') {
        *out++ = style.separator;
    }
    return out;
}

char* put_month(char* out, const time_value& value, const date_style& style)
{
    if (style.month == date_style::month_form::number) {
        return put_two_decimals(out, value.month);
    }
    return std::ranges::copy(month_names[value.month - 1u], out).out;
}

// `value` is valid, so its year has four digits.
char* put_date(char* out, const time_value& value, const date_style& style)
{
    switch (style.order) {
    case date_style::field_order::none:
        break;
    case date_style::field_order::day_month_year:
        out = put_separator(put_two_decimals(out, value.day), style);
        out = put_separator(put_month(out, value, style), style);
        return put_decimal(out, value.year);
    case date_style::field_order::month_day_year:
        out = put_separator(put_month(out, value, style), style);
        out = put_separator(put_two_decimals(out, value.day), style);
        return put_decimal(out, value.year);
    case date_style::field_order::year_month_day:
        if (style.four_digit_year) { // readers of earlier reports count on no year for "yy"
            out = put_separator(put_decimal(out, value.year), style);
        }
        out = put_separator(put_month(out, value, style), style);
        return put_two_decimals(out, value.day);
    }
    return out;
}

char* put_time(char* out, const time_value& value, const date_style& style)
{
    out = put_two_decimals(out, value.hour);
    *out++ = ':';
    out = put_two_decimals(out, value.minute);
    *out++ = ':';
    out = put_two_decimals(out, value.second);
    if (style.fraction_digits == 0) {
        return out;
    }
    std::uint32_t fraction = value.nanoseconds;
    for (unsigned i = style.fraction_digits; i < 9; ++i) {
        fraction /= 10;
    }
    *out++ = '.';
    return put_decimal_min(out, fraction, style.fraction_digits);
}

void put_texts(std::string& date_out, std::string& time_out, const time_value& value,
               const date_style& style)
{
    char buffer[longest_moment_text];
    date_out.assign(buffer, put_date(buffer, value, style));
    time_out.assign(buffer, put_time(buffer, value, style));
}

char separator_of(std::string_view dateformat)
{
    for (const char separator : {'/', '-', ' '}) {
        if (dateformat.find(separator) != std::string_view::npos) {
            return separator;
        }
    }
    return '\0';
}

// Sets what the date format says, as far as it could be found.
bool compile_date(date_style& style, std::string_view format)
{
    constexpr auto missing = std::string_view::npos;
    style.separator = separator_of(format);
    const bool name = format.find("mmm") != missing;
    const std::size_t month = format.find(name ? "mmm" : "mm");
    if (month == missing) {
        return false;
    }
    style.month = name ? date_style::month_form::name : date_style::month_form::number;
    style.four_digit_year = format.find("yyyy") != missing;
    const std::size_t year = format.find(style.four_digit_year ? "yyyy" : "yy");
    const std::size_t day = format.find("dd");
    if (year == missing || day == missing) {
        return false;
    }
    if (day < month && month < year) {
        style.order = date_style::field_order::day_month_year;
    } else if (month < day && day < year) {
        style.order = date_style::field_order::month_day_year;
    } else if (year < month && month < day) {
        style.order = date_style::field_order::year_month_day;
    }
    return style.order != date_style::field_order::none;
}

std::uint8_t fraction_digits_of(std::string_view timeformat)
{
    if (timeformat.find("xxx") == std::string_view::npos) {
        return 0;
    }
    const std::size_t run = timeformat.rfind('x') - timeformat.find('x') + 1;
    return static_cast<std::uint8_t>(std::min<std::size_t>(run, 9));
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
    out.hour = static_cast<std::uint16_t>(*hour + (afternoon ? 12 : 0));
    out.minute = *minute;
    return true;
}

} // namespace

time_value time_value_from(std::uint64_t raw, time_kind kind)
{
    return kind == time_kind::filetime ? from_ticks(raw) : from_unix(raw);
}

time_value told_moment(std::uint64_t raw, time_kind kind)
{
    constexpr std::uint16_t last_year_of_four_digits = 9999;
    time_value value = time_value_from(raw, kind);
    value.valid = value.valid || (kind == time_kind::filetime && raw != 0 && value.year != 0 &&
                                  value.year <= last_year_of_four_digits);
    return value;
}

bool compile_date_style(date_style& style, std::string_view dateformat, std::string_view timeformat,
                        bool pair_datetime)
{
    style = {.pair_datetime = pair_datetime};
    if (!dateformat.empty() && !compile_date(style, dateformat)) {
        return false;
    }
    style.fraction_digits = fraction_digits_of(timeformat);
    return true;
}

char* put_moment(char* out, const time_value& value, const date_style& style)
{
    const date_style& compiled = style.is_compiled() ? style : default_style;
    if (value.valid) {
        out = put_date(out, value, compiled);
    }
    *out++ = ' ';
    return value.valid ? put_time(out, value, compiled) : out;
}

bool filetime_text(std::string& date_out, std::string& time_out, const time_value& value,
                   const date_style& style)
{
    date_out.clear();
    time_out.clear();
    if (value.valid) {
        put_texts(date_out, time_out, value, style.is_compiled() ? style : default_style);
    }
    return value.valid && style.is_compiled();
}

void format_date_time(std::string& date_out, std::string& time_out, const time_value& value,
                      std::string_view dateformat, std::string_view timeformat)
{
    date_out.clear();
    time_out.clear();
    if (value.valid) {
        date_style style;
        compile_date_style(style, dateformat, timeformat, false);
        put_texts(date_out, time_out, value, style);
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
    namespace chrono = std::chrono;
    // the last year that is whole in a signed FILETIME
    constexpr std::uint16_t last_year = 30'827;
    // before they become calendar types, which are a byte wide
    if (fields.year < 1601 || fields.year > last_year || fields.month > 12 || fields.day > 31 ||
        fields.hour > 23 || fields.minute > 59 || fields.second > 59 || fields.millisecond > 1000) {
        return std::nullopt;
    }
    const chrono::year_month_day date(chrono::year(fields.year), chrono::month(fields.month),
                                      chrono::day(fields.day));
    if (!date.ok()) {
        return std::nullopt;
    }
    const ticks since_start = chrono::sys_days(date) - start_of_filetime +
                              chrono::hours(fields.hour) + chrono::minutes(fields.minute) +
                              chrono::seconds(fields.second) +
                              chrono::milliseconds(fields.millisecond);
    return static_cast<std::uint64_t>(since_start.count());
}

double seconds_between(std::uint64_t start, std::uint64_t end)
{
    return static_cast<double>(static_cast<std::int64_t>(end - start)) /
           static_cast<double>(ticks_per_second);
}

std::uint64_t now_filetime()
{
    const auto now =
        std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
    return static_cast<std::uint64_t>(ticks(now - start_of_filetime).count());
}

} // namespace uni
