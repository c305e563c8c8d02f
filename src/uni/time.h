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
enum class time_kind {
    filetime,
    unix_seconds, // signed; a stored dword is sign-extended by the caller
};

// One moment in all forms that the reports need. Without a moment every field is 0.
struct time_value {
    std::int64_t unix_seconds = 0; // since 1970-01-01, fraction cut towards zero
    std::uint64_t filetime = 0;
    std::uint32_t nanoseconds = 0; // the fraction of the second
    std::uint16_t year = 0;
    std::uint16_t month = 0; // from 1
    std::uint16_t day = 0;   // from 1
    std::uint16_t hour = 0;
    std::uint16_t minute = 0;
    std::uint16_t second = 0;
    bool valid = false; // fit for printing: years 1900 to 3000, unix_seconds not 0
};

// The moment of a raw number. A FILETIME with its top bit set and Unix times at or below 0 or beyond
// FILETIME's range give an empty value.
time_value time_value_from(std::uint64_t raw, time_kind kind);

// The same for programs, and where nothing may be left out: each year up to 9999 is valid.
time_value told_moment(std::uint64_t raw, time_kind kind);

// How moments are printed: the two format texts in compiled form. A style in which nothing is set
// counts as not compiled.
struct date_style {
    enum class field_order : std::uint8_t { none, day_month_year, month_day_year, year_month_day };
    enum class month_form : std::uint8_t { none, number, name };

    field_order order = field_order::none;
    month_form month = month_form::none;
    bool four_digit_year = false;     // "yyyy" and not "yy"
    bool pair_datetime = false;       // date and time share a column
    char separator = '\0';            // between the fields of the date; 0 for none
    std::uint8_t fraction_digits = 0; // at most 9

    bool is_compiled() const { return *this != date_style{}; }
    bool operator==(const date_style&) const = default;
};

// Compiles a date format such as "yyyy-mm-dd", "mm/dd/yyyy" or "dd-mmm-yyyy" and a time format such
// as "hh:mm:ss.xxx", both in lower case. From the time format only the length of the "x" run (three
// or more) counts; the rest of the time is always "hh:mm:ss". An empty date format is accepted and
// sets no date. A date format without day, month and year in one of the three orders answers false;
// what was found up to there stays, and such a style prints times without a fraction.
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
