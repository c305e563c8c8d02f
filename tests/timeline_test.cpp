#include "form/timeline.h"

#include <gtest/gtest.h>

#include "form/forms.h"
#include "support/reports.h"

namespace {

// 2021-03-04 05:06:07.891
constexpr std::uint64_t moment = 132'593'079'678'910'000;
constexpr std::uint64_t year_3001 =
    moment + std::uint64_t{1000 * 365} * 86'400 * uni::ticks_per_second;

TEST(timeline, a_row_stands_for_each_distinct_moment)
{
    constexpr std::uint64_t never = 0;
    struct {
        std::uint64_t m, a, c, b; // seconds behind the moment above
        const char* rows;
    } const cases[] = {
        {5, 5, 5, 5, "5 MACB m; a; c; b"},
        {3, 1, 3, 2, "1 .A.. a, 2 ...B b, 3 M.C. m; c"},
        {4, 3, 2, 1, "1 ...B b, 2 ..C. c, 3 .A.. a, 4 M... m"},
        {1, 1, 2, 2, "1 MA.. m; a, 2 ..CB c; b"},
        {1, 2, 2, 1, "1 M..B m; b, 2 .AC. a; c"},
        {1, 2, 1, 2, "1 M.C. m; c, 2 .A.B a; b"},
        {1, 2, 2, 2, "1 M... m, 2 .ACB a; c; b"},
        {never, never, never, never, ""},
        {never, 2, never, 1, "1 ...B b, 2 .A.. a"},
        {year_3001, year_3001, never, 1, "1 ...B b"}, // times that cannot be shown never meet
    };
    const auto time = [](std::uint64_t second) {
        return second < year_3001 && second != never ? moment + second * uni::ticks_per_second
                                                     : second;
    };
    for (const auto& one : cases) {
        std::string text;
        for (const form::timeline_row& row : form::expand_stamps({{{time(one.m), "m"},
                                                                   {time(one.a), "a"},
                                                                   {time(one.c), "c"},
                                                                   {time(one.b), "b"}}})) {
            text += (text.empty() ? "" : ", ") +
                    std::to_string((row.moment.filetime - moment) / uni::ticks_per_second) + ' ' +
                    row.macb + ' ' + row.meaning;
        }
        EXPECT_EQ(text, one.rows);
    }
}

// A line, and perhaps a timestamp.
struct fact : form::entry {
    bool has_events = true;
    std::optional<form::file_facts> known = {};

    form::labelled_lines lines() const override
    {
        return {.lines = {{.label = "label", .shown = "line"}}};
    }
    std::vector<form::column> columns() const override { return {}; }
    std::optional<form::timeline_item> events() const override
    {
        const form::timeline_item item{{{{moment, "DB, Modified"}, {}, {}, {}}},
                                       "SHIM",
                                       "Shim Database",
                                       "1,2\r\n3\r",
                                       "a|b,c",
                                       "fi,le",
                                       "no,tes\n",
                                       "ext,ra"};
        return has_events ? std::optional(item) : std::nullopt;
    }
    std::optional<form::file_facts> file() const override { return known; }
    std::string_view kind() const override { return "fact"; }
    void tell(form::fact_taker&) const override {}
};

TEST(timeline, columns_follow_the_options)
{
    struct {
        std::function<void(request::sdb_opts&)> change;
        const char* head;
        const char* row;
    } const cases[] = {
        {[](request::sdb_opts&) {},
         "date,time,timezone,MACB,source,sourcetype,type,user,host,short,desc,version,filename,"
         "inode,notes,format,extra\n",
         "2021-03-04, 05:06:07.891,UTC,M...,SHIM,Shim Database,DB  Modified,m e,here,"
         "1 2[CRLF]3[CR],a|b c,2,fi le,,no tes[LF],quilt (morvane),ext ra\n"},
        {[](request::sdb_opts& options) {
             options.no_whitespace = true;
             options.field_char_to = '\0';
         },
         "date,time,timezone,MACB,",
         "2021-03-04,05:06:07.891,UTC,M...,SHIM,Shim Database,\"DB, Modified\",\"m,e\",here,"
         "\"1,2[CRLF]3[CR]\",\"a|b,c\",2,\"fi,le\",,\"no,tes[LF]\",quilt (morvane),\"ext,ra\"\n"},
        {[](request::sdb_opts& options) { // no blank in front of a field
             options.quoted_csv_fields = true;
             options.csv_separator = "-0";
             options.field_char_from = '\0';
         },
         "date-0time-0timezone-0", "\"2021-03-04\"-005:06:07.891-0UTC-0M...-0"},
        {[](request::sdb_opts& options) {
             options.pair_datetime = true;
             options.csv_separator = " | ";
             options.field_char_from = '|';
             options.field_char_to = ';';
             uni::compile_date_style(options.date_style, "dd-mmm-yyyy", "hh:mm:ss", true);
         },
         "date/time | timezone | MACB | ",
         " 04-Mar-2021 05:06:07 | UTC | M... | SHIM | Shim Database | DB, Modified | m,e | here | "
         "1,2[CRLF]3[CR] | a;b,c | 2 | fi,le |  | no,tes[LF] | quilt (morvane) | ext,ra\n"},
        {[](request::sdb_opts& options) {
             options.pair_datetime = options.no_whitespace = true;
             options.csv_separator = "\t";
         },
         "date/time\ttimezone\t", "2021-03-04 05:06:07.891\tUTC\tM...\t"},
    };
    for (const auto& one : cases) {
        request::sdb_opts options = test_support::row_options("csvl2t");
        options.username = "m,e";
        options.hostname = "here";
        options.program_name = "quilt";
        one.change(options);
        uni::text_buffer out;
        const auto writer = form::form_of("csvl2t").make(out, options, {});
        EXPECT_TRUE(writer->subject(fact()) && writer->subject(fact()));
        const std::string text(out.view());
        const std::size_t behind_head = text.find('\n') + 1;
        const std::string row = text.substr(behind_head, (text.size() - behind_head) / 2);
        EXPECT_TRUE(text.starts_with(one.head)) << text;
        EXPECT_TRUE(row.starts_with(one.row)) << row;
        EXPECT_EQ(text, text.substr(0, behind_head) + row + row) << "one head for all";
    }
}

TEST(timeline, a_body_file_has_rows_of_eleven_fields)
{
    fact facts;
    facts.known = {.path = "a|\"b\t\x1b",
                   .digest_md5 = "d19",
                   .size = 77,
                   .access = year_3001,
                   .write = moment,
                   .events = {{moment, "database"}, {0, "installed"}}};
    constexpr const char* rows = "d19|a;\"b\t[x1b]|0|0|0|0|77|33150834367|1614834367|0|0\n"
                                 "0|a;\"b\t[x1b] (database)|0|0|0|0|0|0|1614834367|0|0\n";
    for (const bool quoted : {false, true}) {
        request::sdb_opts options = test_support::row_options("bodyfile");
        options.quoted_csv_fields = quoted;
        options.csv_separator = "\t";
        uni::text_buffer out;
        const auto writer = form::form_of("bodyfile").make(out, options, {});
        EXPECT_TRUE(writer->subject(facts) && writer->separate());
        EXPECT_EQ(out.view(), rows);
    }
}

TEST(timeline, what_has_no_events_is_lines_in_one_form_and_nothing_in_the_other)
{
    fact facts;
    facts.has_events = false;
    for (const auto& [form, expected] : {std::pair("csvl2t", ""), {"bodyfile", "label,line\n"}}) {
        const request::sdb_opts options = test_support::row_options(form);
        uni::text_buffer out;
        EXPECT_TRUE(form::form_of(form).make(out, options, {})->subject(facts));
        EXPECT_EQ(out.view(), expected);
    }
}

} // namespace
