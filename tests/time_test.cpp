#include "uni/time.h"

#include <gtest/gtest.h>

namespace {

using uni::time_kind;
using uni::time_value_from;

constexpr std::uint64_t ticks_per_day = 86'400 * uni::ticks_per_second;

constexpr std::uint64_t start_of_1970 = 116'444'736'000'000'000;

std::uint64_t ticks_of(std::uint16_t year, std::uint16_t month, std::uint16_t day)
{
    return uni::filetime_from({year, month, day, 0, 0, 0, 0}).value();
}

std::string text_of(const uni::time_value& value, std::string_view date, std::string_view time)
{
    uni::date_style style;
    uni::compile_date_style(style, date, time, false);
    std::string date_text, time_text;
    uni::filetime_text(date_text, time_text, value, style);
    return date_text + "|" + time_text;
}

// 2021-03-04 05:06:07.8912345
const uni::time_value sample = time_value_from(132'593'079'678'912'345, time_kind::filetime);

// Counts the days off one by one, without any of the arithmetic under test.
TEST(time, every_day_from_1601_to_3001_has_its_date)
{
    const unsigned lengths[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    std::uint64_t ticks = 0;
    unsigned weekday = 1;
    for (unsigned year = 1601; year <= 3001; ++year) {
        const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
        for (unsigned month = 1; month <= 12; ++month) {
            const unsigned length = lengths[month - 1] + (leap && month == 2 ? 1 : 0);
            for (unsigned day = 1; day <= length; ++day, ticks += ticks_per_day) {
                for (const std::uint64_t moment : {ticks, ticks + ticks_per_day - 1}) {
                    const auto value = time_value_from(moment, time_kind::filetime);
                    ASSERT_EQ(value.year, year) << moment;
                    ASSERT_EQ(value.month, month) << moment;
                    ASSERT_EQ(value.day, day) << moment;
                    ASSERT_EQ(value.weekday, weekday) << moment;
                    ASSERT_EQ(value.hour, moment == ticks ? 0 : 23) << moment;
                    ASSERT_EQ(value.valid, year >= 1900 && year <= 3000 &&
                                               moment != start_of_1970 &&
                                               moment != start_of_1970 - 1)
                        << moment;
                }
                ASSERT_EQ(ticks_of(static_cast<std::uint16_t>(year),
                                   static_cast<std::uint16_t>(month),
                                   static_cast<std::uint16_t>(day)),
                          ticks);
                weekday = (weekday + 1) % 7;
            }
        }
    }
}

TEST(time, fractions_are_cut_off)
{
    EXPECT_EQ(sample.second, 7);
    EXPECT_EQ(sample.millisecond, 891);
    EXPECT_EQ(sample.microseconds, 891'234u);
    EXPECT_EQ(sample.nanoseconds, 891'234'500u);
    EXPECT_EQ(sample.picoseconds, 891'234'500'000u);
    EXPECT_EQ(sample.unix_seconds, 1'614'834'367);
}

TEST(time, raw_kinds)
{
    constexpr std::uint64_t minus_one = ~std::uint64_t{0};
    const struct {
        std::uint64_t raw;
        time_kind kind;
        std::uint64_t filetime;
    } cases[] = {
        {1'614'834'367, time_kind::unix_seconds, 132'593'079'670'000'000},
        {0xffffffff, time_kind::unix_seconds, 159'394'408'950'000'000},
        {1, time_kind::unix_seconds, 116'444'736'010'000'000},
        {0, time_kind::unix_seconds, 0},
        {minus_one, time_kind::unix_seconds, 0},
        {std::uint64_t{1} << 62, time_kind::unix_seconds, 0},
        {start_of_1970 + 10'000'000, time_kind::filetime, start_of_1970 + 10'000'000},
        {1'614'834'367'891, time_kind::unix_milliseconds, 132'593'079'678'910'000},
        {999, time_kind::unix_milliseconds, 0},
        {minus_one, time_kind::unix_milliseconds, 0},
        {std::uint64_t{1} << 63, time_kind::filetime, 0},
        {42, static_cast<time_kind>(2), 0},
    };
    for (const auto& c : cases) {
        const auto value = time_value_from(c.raw, c.kind);
        EXPECT_EQ(value.filetime, c.filetime) << c.raw;
        EXPECT_EQ(value.valid, c.filetime != 0) << c.raw;
    }
    EXPECT_EQ(time_value_from(~std::uint64_t{0} >> 1, time_kind::filetime).year, 30828);
}

TEST(time, formats)
{
    const std::pair<std::pair<std::string_view, std::string_view>, std::string_view> cases[] = {
        {{"yyyy-mm-dd", "hh:mm:ss.xxx"}, "2021-03-04|05:06:07.891"},
        {{"mm/dd/yyyy", "hh:mm:ss"}, "03/04/2021|05:06:07"},
        {{"dd-mmm-yyyy", "hh:mm:ss.xxxx"}, "04-Mar-2021|05:06:07.8912"},
        {{"mmm dd, yyyy", "hh:mm:ss.xxxxx"}, "Mar 04 2021|05:06:07.89123"},
        {{"yyyy mmm dd", "hh:mm:ss.xxxxxx"}, "2021 Mar 04|05:06:07.891234"},
        {{"yyyymmdd", "hh:mm:ss.xxxxxxx"}, "20210304|05:06:07.8912345"},
        {{"yy/mm/dd", "hh:mm:ss.xxxxxxxx"}, "03/04|05:06:07.89123450"},
        {{"mm/dd/yy", "hh:mm:ss.xxxxxxxxx"}, "03/04/2021|05:06:07.891234500"},
        {{"dd/mm-yy", "hh:mm:ss.xxxxxxxxxxx"}, "04/03/2021|05:06:07.891234500"},
        {{"mm dd mmm yyyy", "hh:mm:ss"}, "04 Mar 2021|05:06:07"}, // the name is the month
        {{"yyyy-dd-mm", "hh:mm:ss.xxx"}, "|05:06:07"},            // not one of the three orders
        {{"yyyy-mm", "hh:mm:ss.xxx"}, "|05:06:07"},
        {{"abcdefgh", "hh:mm:ss"}, "2021-03-04|05:06:07.891"}, // nothing found: not compiled
        {{"abc/efgh", "hh:mm:ss"}, "|05:06:07"},
        {{"", "hh:mm:ss.xxx"}, "|05:06:07.891"},
        {{"", ""}, "2021-03-04|05:06:07.891"},
    };
    for (const auto& [formats, expected] : cases) {
        EXPECT_EQ(text_of(sample, formats.first, formats.second), expected) << formats.first;
    }
}

TEST(time, answers_say_which_way_the_text_was_made)
{
    std::string date, time;
    uni::date_style style;
    EXPECT_FALSE(uni::filetime_text(date, time, sample, style));
    EXPECT_EQ(date + time, "2021-03-0405:06:07.891");
    EXPECT_TRUE(uni::compile_date_style(style, "", "", true));
    EXPECT_TRUE(uni::filetime_text(date, time, sample, style));
    EXPECT_EQ(date + time, "05:06:07");
    for (const std::uint64_t raw : {std::uint64_t{0}, ~std::uint64_t{0}, ticks_of(3001, 1, 1),
                                    ticks_of(1899, 12, 31), ticks_of(1970, 1, 1)}) {
        date = time = "old";
        EXPECT_FALSE(
            uni::filetime_text(date, time, time_value_from(raw, time_kind::filetime), style));
        EXPECT_EQ(date + time, "");
        EXPECT_EQ(text_of(time_value_from(raw, time_kind::filetime), "", ""), "|");
    }
    uni::format_date_time(date, time, sample, "mm/dd/yyyy", "hh:mm:ss");
    EXPECT_EQ(date + time, "03/04/202105:06:07");
    uni::format_date_time(date, time, sample, "abcdefgh", "hh:mm:ss");
    EXPECT_EQ(date + time, "05:06:07");
    uni::format_date_time(date, time, {}, "mm/dd/yyyy", "hh:mm:ss");
    EXPECT_EQ(date + time, "");
}

TEST(time, parses_what_users_type)
{
    const struct {
        std::string_view date, time, order, expected;
        char separator = '-';
    } cases[] = {
        {"2021-03-04", "", "YMD", "2021-03-04|00:00:00.000"},
        {"2021-March-04", "05:06:07.891", "YMD", "2021-03-04|05:06:07.891"},
        {"4/dec/2021", " 5:30 PM ", "DMY", "2021-12-04|17:30:00.000", '/'},
        {"2021-03-04", "5pm", "YMD", "2021-03-04|17:00:00.000"},
        {"2021-03-04", "5:06:07 am", "YMD", "2021-03-04|05:06:07.000"},
        {"2021-12-31", "23:59:59.9996", "YMD", "2022-01-01|00:00:00.000"}, // rounds up
        {"2021-03-04", "12:00 pm", "YMD", "no moment"},
        {"2021-02-29", "", "YMD", "no moment"},
        {"2021-13-01", "", "YMD", "no moment"},
        {"1600-01-01", "", "YMD", "no moment"},
        {"2021-03-04", "24:00", "YMD", "no moment"},
        {"", "05:06", "YMD", "unread"},
        {"2021-03", "", "YMD", "unread"},
        {"2021--04", "", "YMD", "unread"},
        {"2021-abc-04", "", "YMD", "unread"},
        {"2021-03-65536", "", "YMD", "unread"},
        {"2021-03-04", "", "YM", "unread"},
        {"2021-03-04", "", "YMQ", "unread"},
        {"2021-03-04", "noon", "YMD", "unread"},
        {"2021-03-04", "05:06:ss", "YMD", "unread"},
        {"2021-03-04", "05:06:-1", "YMD", "unread"},
        {"2021-03-04", "05:06:nan", "YMD", "unread"},
        {"2021-03-04", "65535 pm", "YMD", "unread"},
        {"2021-03-04", "05:06:07.00000000000000000000000000001", "YMD", "unread"},
    };
    for (const auto& c : cases) {
        uni::system_time fields{1, 1, 1, 1, 1, 1, 1};
        std::string text = "unread";
        if (uni::parse_date_time(c.date, c.time, c.order, c.separator, fields)) {
            const auto ticks = uni::filetime_from(fields);
            text = ticks ? text_of(time_value_from(*ticks, time_kind::filetime), "yyyy-mm-dd",
                                   "hh:mm:ss.xxx")
                         : "no moment";
        } else {
            EXPECT_EQ(fields.year + fields.hour, 0);
        }
        EXPECT_EQ(text, c.expected) << c.date << ' ' << c.time;
    }
}

TEST(time, the_clock_runs_in_filetime)
{
    const std::uint64_t now = uni::now_filetime();
    EXPECT_TRUE(time_value_from(now, time_kind::filetime).valid);
    EXPECT_GT(now, ticks_of(2024, 1, 1));
    EXPECT_EQ(now % 10'000, 0u);
    EXPECT_DOUBLE_EQ(uni::seconds_between(now, now + 12'500'000), 1.25);
    EXPECT_DOUBLE_EQ(uni::seconds_between(now + 5'000'000, now), -0.5);
}

} // namespace
