#include "uni/time.h"

#include <algorithm>
#include <sstream>

#include <gtest/gtest.h>

namespace {

using uni::time_kind;
using uni::time_value_from;

constexpr std::uint64_t start_of_1970 = 116'444'736'000'000'000;
constexpr std::uint64_t start_of_1900 = 94'354'848'000'000'000;
constexpr std::uint64_t start_of_3001 = 441'796'896'000'000'000;

// 2021-03-04 05:06:07.8912345
const uni::time_value sample = time_value_from(132'593'079'678'912'345, time_kind::filetime);

std::string fields_of(const uni::time_value& value)
{
    std::ostringstream text;
    text << value.year << '-' << value.month << '-' << value.day << ' ' << value.hour << ':'
         << value.minute << ':' << value.second << '.' << value.nanoseconds << ' ' << value.filetime
         << ' ' << value.unix_seconds << (value.valid ? " valid" : "");
    return text.str();
}

// Date and time in a style; with the answer that is expected, and as put_moment makes them.
std::string text_of(const uni::time_value& value, const uni::date_style& style, bool answer)
{
    std::string date = "old", time = "old";
    EXPECT_EQ(uni::filetime_text(date, time, value, style), answer);
    char moment[uni::longest_moment_text];
    EXPECT_EQ(std::string(&moment[0], uni::put_moment(moment, value, style)), date + ' ' + time);
    return date + '|' + time;
}

TEST(time, fields_of_a_moment)
{
    const std::string none = "0-0-0 0:0:0.0 0 0";
    constexpr std::uint64_t largest = ~std::uint64_t{0} >> 1;
    constexpr time_kind unix_seconds = time_kind::unix_seconds;
    const struct {
        std::uint64_t raw;
        std::string fields;
        time_kind kind = time_kind::filetime;
    } cases[] = {
        {0, "1601-1-1 0:0:0.0 0 -11644473600"},
        {start_of_1900 - 1, "1899-12-31 23:59:59.999999900 94354847999999999 -2208988800"},
        {start_of_1900, "1900-1-1 0:0:0.0 94354848000000000 -2208988800 valid"},
        {start_of_1970 - 10'000'001, "1969-12-31 23:59:58.999999900 116444735989999999 -1 valid"},
        {start_of_1970 - 1, "1969-12-31 23:59:59.999999900 116444735999999999 0"},
        {start_of_1970, "1970-1-1 0:0:0.0 116444736000000000 0"},
        {sample.filetime, "2021-3-4 5:6:7.891234500 132593079678912345 1614834367 valid"},
        {start_of_3001 - 1, "3000-12-31 23:59:59.999999900 441796895999999999 32535215999 valid"},
        {start_of_3001, "3001-1-1 0:0:0.0 441796896000000000 32535216000"},
        {largest, "30828-9-14 2:48:5.477580700 9223372036854775807 910692730085"},
        {largest + 1, none},
        {951'782'400, "2000-2-29 0:0:0.0 125962560000000000 951782400 valid", unix_seconds},
        {0xffffffff, "2106-2-7 6:28:15.0 159394408950000000 4294967295 valid", unix_seconds},
        {910'692'730'084, "30828-9-14 2:48:4.0 9223372036840000000 910692730084", unix_seconds},
        {910'692'730'085, none, unix_seconds},
        {0, none, unix_seconds},
        {~std::uint64_t{0}, none, unix_seconds}};
    for (const auto& [raw, fields, kind] : cases) {
        EXPECT_EQ(fields_of(time_value_from(raw, kind)), fields);
    }
}

TEST(time, formats)
{
    const struct {
        std::string_view date, time, expected;
        bool compiles = true, is_compiled = true;
    } cases[] = {
        {"yyyy-mm-dd", "hh:mm:ss.xxx", "2021-03-04|05:06:07.891"},
        {"dd-mmm-yyyy", "hh:mm:ss.xxxx", "04-Mar-2021|05:06:07.8912"},
        {"mmm dd, yyyy", "hh:mm:ss.xx", "Mar 04 2021|05:06:07"},
        {"yyyymmdd", "hh:mm:ss.xxxxxxx", "20210304|05:06:07.8912345"},
        {"yy/mm/dd", "hh:mm:ss.xxxxxxxx", "03/04|05:06:07.89123450"},
        {"mm/dd/yy", "hh:mm:ss.xxxxxxxxx", "03/04/2021|05:06:07.891234500"},
        {"dd/mm-yy", "hh:mm:ss.xxxxxxxxxxx", "04/03/2021|05:06:07.891234500"},
        {"mm dd mmm yyyy", "", "04 Mar 2021|05:06:07"}, // the name is the month
        {"yy dd mm yyyy", "", "04 03 2021|05:06:07"},   // the four digits are the year
        {"yyyy-dd-mm", "hh:mm:ss.xxx", "|05:06:07", false},
        {"yyyy-mm", "hh:mm:ss.xxx", "|05:06:07", false},
        {"abcdefgh", "hh:mm:ss", "2021-03-04|05:06:07.891", false, false},
        {"abc/efgh", "hh:mm:ss", "|05:06:07", false},
        {"", "hh:mm:ss.xxx", "|05:06:07.891"},
        {"", "", "2021-03-04|05:06:07.891", true, false},
    };
    for (const auto& c : cases) {
        uni::date_style style;
        EXPECT_EQ(uni::compile_date_style(style, c.date, c.time, false), c.compiles) << c.date;
        EXPECT_EQ(text_of(sample, style, c.is_compiled), c.expected) << c.date;
        EXPECT_EQ(text_of({}, style, false), "|");
        std::string date = "old", time = "old";
        uni::format_date_time(date, time, sample, c.date, c.time);
        EXPECT_EQ(date + '|' + time, c.is_compiled ? c.expected : "|05:06:07") << c.date;
        uni::format_date_time(date, time, {}, c.date, c.time);
        EXPECT_EQ(date + '|' + time, "|");
    }
    uni::date_style paired;
    EXPECT_TRUE(uni::compile_date_style(paired, "", "", true));
    EXPECT_EQ(text_of(sample, paired, true), "|05:06:07");
}

// Reads a date and, behind the first blank, a time.
std::string read(const std::string& text, std::string_view order = "YMD")
{
    const std::size_t blank = std::min(text.find(' '), text.size());
    const std::string time = blank == text.size() ? "" : text.substr(blank + 1);
    const char separator = text.find('/') == std::string::npos ? '-' : '/';
    uni::system_time fields{1, 1, 1, 1, 1, 1, 1};
    if (!uni::parse_date_time(text.substr(0, blank), time, order, separator, fields)) {
        EXPECT_EQ(fields.year + fields.hour, 0);
        return "unread";
    }
    const auto ticks = uni::filetime_from(fields);
    return ticks ? text_of(time_value_from(*ticks, time_kind::filetime), {}, false) : "no moment";
}

TEST(time, parses_what_users_type)
{
    const std::pair<const char*, const char*> moments[] = {
        {"2021-03-04", "2021-03-04|00:00:00.000"},
        {"2021-March-04 05:06:07.891", "2021-03-04|05:06:07.891"},
        {"2024-02-29 5pm", "2024-02-29|17:00:00.000"},
        {"2021-03-04 5:06:07 am", "2021-03-04|05:06:07.000"},
        {"2021-12-31 23:59:59.9996", "2022-01-01|00:00:00.000"}, // rounds up
        {"30827-12-31 23:59", "|"}, // a moment, but none that is printed
    };
    for (const auto& [text, moment] : moments) {
        EXPECT_EQ(read(text), moment) << text;
    }
    for (const auto* const text :
         {"30828-01-01", "1600-12-31", "2021-02-29", "2100-02-29", "2021-13-01", "2021-00-01",
          "2021-257-01", "2021-01-257", "2021-01-00", "2021-03-04 12:00 pm", "2021-03-04 24:00",
          "2021-03-04 23:60", "2021-03-04 23:59:60"}) {
        EXPECT_EQ(read(text), "no moment") << text;
    }
    for (const auto* const text :
         {" 05:06", "2021-03", "2021--04", "2021-abc-04", "2021-03-65536", "2021-03-04 noon",
          "2021-03-04 05:06:ss", "2021-03-04 05:06:-1", "2021-03-04 05:06:nan",
          "2021-03-04 65535 pm", "2021-03-04 05:06:07.00000000000000000000000000001"}) {
        EXPECT_EQ(read(text), "unread") << text;
    }
    EXPECT_EQ(read("4/dec/2021  5:30 PM ", "DMY"), "2021-12-04|17:30:00.000");
    EXPECT_EQ(read("2021-03-04", "YM") + read("2021-03-04", "YMQ"), "unreadunread");
}

TEST(time, the_clock_runs_in_filetime)
{
    const std::uint64_t now = uni::now_filetime();
    EXPECT_TRUE(now > sample.filetime && now < start_of_3001);
    EXPECT_DOUBLE_EQ(uni::seconds_between(now, now + 12'500'000), 1.25);
    EXPECT_DOUBLE_EQ(uni::seconds_between(now + 5'000'000, now), -0.5);
}

} // namespace
