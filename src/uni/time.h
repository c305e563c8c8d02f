// Moments and their text. All times are UTC, and no text shows an offset.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace uni {

// FILETIME: 100-nanosecond ticks since 1601-01-01, the clock of all file formats here.
inline constexpr std::uint64_t ticks_per_second = 10'000'000;
inline constexpr std::int64_t seconds_1601_to_1970 = 11'644'473'600;

// What a raw number counts.
enum class time_kind : std::uint32_t {
    filetime = 1,
    unix_seconds = 8,       // signed; a stored dword is sign-extended by the caller
    unix_milliseconds = 16, // signed as well
};

// One moment in all forms that the reports need. Without a moment every field is 0.
struct time_value {
    std::int64_t unix_seconds = 0; // since 1970-01-01, fraction cut towards zero
    std::uint64_t filetime = 0;
    std::uint16_t year = 0;
    std::uint16_t month = 0;   // from 1
    std::uint16_t weekday = 0; // 0 for Sunday
    std::uint16_t day = 0;     // from 1
    std::uint16_t hour = 0;
    std::uint16_t minute = 0;
    std::uint16_t second = 0;
    std::uint16_t millisecond = 0; // this and the next three: the fraction of the second, cut off
    std::uint64_t microseconds = 0;
    std::uint64_t nanoseconds = 0;
    std::uint64_t picoseconds = 0;
    bool valid = false; // fit for printing: years 1900 to 3000, unix_seconds not 0
};

// The moment of a raw number. A FILETIME with its top bit set, Unix times at or below 0 or beyond
// FILETIME's range, milliseconds below one second, and unknown kinds give an empty value.
time_value time_value_from(std::uint64_t raw, time_kind kind);

// Bits of date_style::flags. The low 8 bits hold the date separator, 0 for none.
namespace date_flag {
inline constexpr std::uint32_t separator_mask = 0xff;
inline constexpr std::uint32_t month_name = 0x100;      // "mmm"
inline constexpr std::uint32_t month_number = 0x200;    // "mm"
inline constexpr std::uint32_t four_digit_year = 0x400; // "yyyy"
inline constexpr std::uint32_t short_year = 0x800;      // "yy"
inline constexpr std::uint32_t comma = 0x1000;          // the format holds a comma
inline constexpr std::uint32_t day_month_year = 0x2000;
inline constexpr std::uint32_t month_day_year = 0x4000;
inline constexpr std::uint32_t year_month_day = 0x8000;
inline constexpr std::uint32_t pair_datetime = 0x10000; // date and time share a column
inline constexpr unsigned fraction_shift = 17;          // 4 bits: digits of the fraction, 0 to 9
inline constexpr std::uint32_t fraction_mask = 0xf;
} // namespace date_flag

// How moments are printed: the two format texts in compiled form.
struct date_style {
    std::uint32_t flags = 0; // date_flag bits; 0 means not compiled
};

// Compiles a date format such as "yyyy-mm-dd", "mm/dd/yyyy" or "dd-mmm-yyyy" and a time format such
// as "hh:mm:ss.xxx", both in lower case. From the time format only the length of the "x" run (three
// or more) counts; the rest of the time is always "hh:mm:ss". An empty date format is accepted and
// sets no date. A date format without day, month and year in one of the three orders answers false;
// the flags found up to there stay, and such a style prints times without a fraction.
bool compile_date_style(date_style& style, std::string_view dateformat, std::string_view timeformat,
                        bool pair_datetime);

// Writes date and time. False with both texts empty for a value that is not valid; false, with the
// texts made as "yyyy-mm-dd" and "hh:mm:ss.xxx", for a style that is not compiled. A style without
// an order of fields gives an empty date.
//
// "yy" does not shorten a year: behind day or month it prints all digits, and a format that begins
// with it prints no year.
bool filetime_text(std::string& date_out, std::string& time_out, const time_value& value,
                   const date_style& style);

// The date, one blank and the time, the blank alone for a value that is not valid, as filetime_text
// makes them. `out` must have room for longest_moment_text; gives the end of the text.
inline constexpr std::size_t longest_moment_text = 80;
char* put_moment(char* out, const time_value& value, const date_style& style);

// The same for format texts that are used once. A date format that cannot be compiled gives an
// empty date; a value that is not valid gives two empty texts.
void format_date_time(std::string& date_out, std::string& time_out, const time_value& value,
                      std::string_view dateformat, std::string_view timeformat);

// A moment by its calendar fields, as the user states it. Nothing is checked.
struct system_time {
    std::uint16_t year = 0;
    std::uint16_t month = 0;
    std::uint16_t day = 0;
    std::uint16_t hour = 0;
    std::uint16_t minute = 0;
    std::uint16_t second = 0;
    std::uint16_t millisecond = 0;
};

// Reads a date and a time of day.
//
// `field_order` has a letter D, M or Y for each part of the date, as in "YMD"; `separator` stands
// between them. A month may be an English name, of which the first three letters count. Parts
// take the forms of read_u32_auto. The time is "hh", "hh:mm" or "hh:mm:ss.fff" with "am" or "pm"
// anywhere behind the hour; empty means midnight. "pm" adds 12 to any hour, 12 included.
//
// False, with `out` empty, when the date is empty, a part is missing or is no number, or a part of
// the time is longer than 31 characters. The fields are not checked against the calendar.
bool parse_date_time(std::string_view date, std::string_view time, std::string_view field_order,
                     char separator, system_time& out);

// The FILETIME of calendar fields; nothing when they name no moment from 1601 on. The millisecond
// may be 1000, since a parsed fraction is rounded: it is then the next second.
std::optional<std::uint64_t> filetime_from(const system_time& fields);

// Seconds from one FILETIME to another; negative when `end` is the earlier one.
double seconds_between(std::uint64_t start, std::uint64_t end);

// The present moment as a FILETIME, in whole milliseconds.
std::uint64_t now_filetime();

} // namespace uni
