#include "uni/timeline.h"

#include <array>
#include <initializer_list>
#include <utility>

#include <gtest/gtest.h>

#include "front/cmd_params.h"

namespace {

constexpr std::uint64_t year_3001 = 32'535'216'000; // Unix seconds: too late to be printed

struct extra {
    std::uint64_t time;
    std::string desc = {}, type = {}, note = {};
};

// A record in Unix seconds.
struct item {
    std::uint64_t m, a, c, b;
    std::vector<extra> extras = {};
    std::array<std::string, 4> descs = {}; // of M, A, C, B
    std::string general = {};
};

uni::timeline_record record_of(const item& from)
{
    const auto& [m, a, c, b] = from.descs;
    uni::timeline_record record{
        0, from.m, from.a, from.c, from.b, m, a, c, b, from.general, uni::time_kind::unix_seconds,
        0, {},     {},     {},     {},     {}};
    for (const extra& e : from.extras) {
        record.extra_times.push_back(e.time);
        record.extra_descs.push_back(e.desc);
        record.extra_types.push_back(e.type);
        record.extra_notes.push_back(e.note);
    }
    return record;
}

// The rows, as "moment MACB description/type/note", the slashes only as far as needed.
std::string rows_of(uni::timeline_record& record)
{
    uni::timeline_rows rows(1); // must not stay
    uni::macb_expand(rows, record, record.time_kind, 7);
    std::string text;
    for (const uni::timeline_row& row : rows) {
        EXPECT_EQ(row.row_flag, 7u);
        text += (text.empty() ? "" : ", ") + std::to_string(row.moment.unix_seconds) + ' ' +
                row.macb + (row.description.empty() ? "" : " " + row.description) +
                (row.type.empty() ? "" : "/" + row.type) + (row.note.empty() ? "" : "/" + row.note);
    }
    return text;
}

struct macb_case {
    item from;
    std::string expected;
};

void check(std::initializer_list<macb_case> cases)
{
    for (const macb_case& c : cases) {
        uni::timeline_record record = record_of(c.from);
        EXPECT_EQ(rows_of(record), c.expected);
        EXPECT_EQ(rows_of(record), c.expected) << "when expanded again";
    }
}

TEST(timeline, a_row_stands_for_each_distinct_moment)
{
    check({
        {{5, 5, 5, 5}, "5 MACB"},
        {{3, 1, 3, 2}, "1 .A.., 2 ...B, 3 M.C."},
        {{4, 3, 2, 1}, "1 ...B, 2 ..C., 3 .A.., 4 M..."},
        {{1, 1, 2, 2}, "1 MA.., 2 ..CB"},
        {{1, 2, 2, 1}, "1 M..B, 2 .AC."},
        {{1, 2, 1, 2}, "1 M.C., 2 .A.B"},
        {{1, 2, 2, 2}, "1 M..., 2 .ACB"},
        {{0, 0, 0, 0}, ""},
        {{0, 2, 0, 1}, "1 ...B, 2 .A.."},
        {{year_3001, year_3001, 0, 1}, "1 ...B"}, // times that are not valid never meet
    });
}

TEST(timeline, an_extra_is_taken_in_as_a_change_by_the_first_row_of_its_moment)
{
    const std::vector<extra> two = {{5, "x", "T1", "N1"}, {5, "y", "T2", "N2"}};
    check({
        {{5, 1, 2, 3, two}, "1 .A.., 2 ..C., 3 ...B, 5 M.C. x; y/T1; T2/N1; N2"},
        {{5, 5, 5, 5, two, {"m", "a", "c", "b"}}, "5 MACB m; a; c; x; y; b/T1; T2/N1; N2"},
        {{1, 5, 2, 3, two, {"", "a"}}, "1 M..., 2 ..C., 3 ...B, 5 .AC. a; x; y/T1; T2/N1; N2"},
        {{1, 2, 5, 3, two, {"", "", "c"}}, "1 M..., 2 .A.., 3 ...B, 5 ..C. c; x; y/T1; T2/N1; N2"},
        {{1, 2, 5, 5, two, {"", "", "c", "b"}}, "1 M..., 2 .A.., 5 ..CB c; x; y; b/T1; T2/N1; N2"},
        {{1, 2, 3, 5, two, {"", "", "", "b"}},
         "1 M..., 2 .A.., 3 ..C., 5 ..CB b; x; y/T1; T2/N1; N2"},
        {{0, 0, 0, 5, {{5, "", "T"}, {6}}}, "5 ..CB/T, 6 ..C."},
    });
}

TEST(timeline, extras_of_no_other_moment_have_rows_of_their_own)
{
    check({
        {{0, 0, 0, 0, {{9, "late", "T", "N"}, {8}, {9, "later"}}, {}, "general"},
         "8 ..C., 9 ..C. late/T/N, 9 ..C. later"},
        {{3, 0, 0, 0, {{3, "in"}, {4, "out"}}}, "3 M.C. in, 4 ..C. out"},
    });
    uni::timeline_record record = record_of({3, 0, 0, 0, {{4}, {3}, {5}}});
    record.extra_descs = {"only one"};
    record.extra_types.clear();
    record.extra_notes.clear();
    EXPECT_EQ(rows_of(record), "3 M.C., 4 ..C. only one, 5 ..C.");
    EXPECT_EQ(record.extra_used, (std::vector<std::uint8_t>{0, 1, 0}));
}

TEST(timeline, descriptions_are_joined_or_repeat_the_letters_in_brackets)
{
    check({
        {{1, 1, 1, 1, {}, {"m", "a", "c", "b"}, "general"}, "1 MACB m; a; c; b"},
        {{1, 1, 2, 1, {}, {"m", "", "c", "b"}, "general"}, "1 MA.B m; b, 2 ..C. c"},
        {{1, 1, 2, 2, {}, {"", "a", "", "b"}}, "1 MA.. a, 2 ..CB b"},
        {{1, 1, 1, 1, {}, {}, "general"}, "1 MACB general [MACB]"},
        {{1, 2, 3, 4, {}, {}, "g"},
         "1 M... g [M...], 2 .A.. g [.A..], 3 ..C. g [..C.], 4 ...B g [...B]"},
        {{1, 2, 2, 1, {}, {}, "g"}, "1 M..B g [M..B], 2 .AC. g [.AC.]"},
        {{0, 0, 2, 2, {{2}}, {}, "g"}, "2 ..CB g [..CB]"},
        {{1, 0, 0, 2, {{1}, {1}, {2}}, {}, "g"}, "1 M.C. g [M.C.], 2 ..CB g [..CB]"},
        {{0, 0, 0, 2, {{2, "x"}, {2, "y"}}, {}, "g"}, "2 ..CB g [..CB]; x; y"},
        {{1, 1, 2, 1, {}, {"", "a", "c", "b"}, "g"}, "1 MA.B g [Ma.; b], 2 ..C. c"},
    });
}

// 2021-03-04 05:06:07.891 and whole seconds behind it
constexpr std::uint64_t moment = 132'593'079'678'910'000;
constexpr std::uint64_t moment_seconds = 1'614'834'367;

std::string write(uni::timeline_writer& writer, bool first = false)
{
    uni::text_buffer out;
    uni::write_rows(first, out, writer);
    EXPECT_FALSE(first);
    return std::string(out.view());
}

struct full_writer : uni::timeline_writer {
    full_writer()
    {
        m_time = moment;
        m_desc = "DB Modified";
        source = "SHIM";
        sourcetype = "Shim Database";
        user_text = "user";
        host_text = "host";
        short_text = "short";
        desc_text = "desc";
        filename = "file";
        inode_text = "inode";
        notes_text = "notes";
        extra_text = "extra";
    }
};

TEST(timeline, every_column_has_its_place)
{
    full_writer writer;
    EXPECT_EQ(
        write(writer, true),
        "date,time,timezone,MACB,source,sourcetype,type,user,host,short,desc,version,filename,"
        "inode,notes,format,extra\n"
        "2021-03-04,05:06:07.891,UTC,M...,SHIM,Shim Database,DB Modified,user,host,short,desc,"
        "2,file,inode,notes,-csvl2t,extra\n");
    writer.m_time = 0;
    writer.extra_times = {moment};
    writer.extra_descs = {"described"};
    writer.extra_types = {"typed"};
    writer.extra_notes = {"noted"};
    writer.lower_macb = true;
    EXPECT_EQ(write(writer), "2021-03-04,05:06:07.891,UTC,..c.,SHIM,Shim Database,typed,noted,host,"
                             "short,desc,2,file,inode,notes,-csvl2t,extra\n");
    writer.type_text = "fixed";
    EXPECT_NE(write(writer).find(",Shim Database,fixed,noted,"), std::string::npos);
}

TEST(timeline, the_run_settles_the_form)
{
    front::cmd_params params;
    params.username = "me";
    params.hostname = "here";
    params.program_name = "quilt";
    params.pair_datetime = true;
    params.dateformat = "dd-mmm-yyyy";
    uni::compile_date_style(params.date_style, params.dateformat, "hh:mm:ss", true);
    full_writer writer;
    configure(writer, params);
    writer.options = &params;
    writer.short_text = "a|b,c";
    EXPECT_EQ(
        write(writer, true),
        "date/time | timezone | MACB | source | sourcetype | type | user | host | short | "
        "desc | version | filename | inode | notes | format | extra\n"
        " 04-Mar-2021 05:06:07 | UTC | M... | SHIM | Shim Database | DB Modified | me | here | "
        "a;b,c | desc | 2 | file | inode | notes | quilt (morvane) | extra\n");
    EXPECT_FALSE(params.print_header);
    EXPECT_TRUE(writer.hex_numbers);
    EXPECT_EQ(writer.dateformat, params.dateformat);

    params.no_whitespace = true;
    params.record_newline = false;
    front::set_csv_separator(params, "\t");
    configure(writer, params);
    const std::string bare = write(writer);
    EXPECT_TRUE(bare.starts_with("04-Mar-2021 05:06:07\tUTC\t")) << bare;
    EXPECT_TRUE(bare.ends_with("\tquilt (morvane)\textra")) << bare;

    params.no_whitespace = params.pair_datetime = false;
    front::set_csv_separator(params, ",");
    configure(writer, params);
    EXPECT_TRUE(write(writer).starts_with("04-Mar-2021, 05:06:07,UTC,")); // padded
    writer.no_whitespace = true;
    EXPECT_TRUE(write(writer).starts_with("04-Mar-2021,05:06:07,UTC,"));
}

TEST(timeline, fields_are_kept_on_one_line_and_free_of_the_separator)
{
    full_writer writer;
    writer.short_text = writer.desc_text = writer.filename = "1,2\r\n3\r";
    writer.notes_text = writer.extra_text = "a,b\nc";
    writer.inode_text = writer.m_desc = "4,5"; // not among the fields that are changed
    const std::string untouched = writer.desc_text;
    EXPECT_TRUE(write(writer).ends_with(",4,5,user,host,1 2[CRLF]3[CR],1 2[CRLF]3[CR],2,"
                                        "1 2[CRLF]3[CR],4,5,"
                                        "a b[LF]c,-csvl2t,a b[LF]c\n"));
    EXPECT_EQ(writer.desc_text, untouched);
    for (char* const off : {&writer.field_char_from, &writer.field_char_to}) {
        const char kept = std::exchange(*off, '\0');
        EXPECT_TRUE(write(writer).ends_with(",a,b[LF]c,-csvl2t,a,b[LF]c\n"));
        *off = kept;
    }
}

TEST(timeline, extended_columns_follow_in_hexadecimal_or_decimal)
{
    full_writer writer;
    writer.extended = true;
    writer.m_time = 0;
    EXPECT_TRUE(write(writer, true)
                    .ends_with(",format,extra,ref count,extension,size data,inode seqnum,parent "
                               "inode,parent seqnum,"
                               "clusters,header info\n")); // a header comes without any row, too
    writer.m_time = moment;
    EXPECT_TRUE(write(writer).ends_with(",extra,0,,0,0,0,0,,\n"));
    writer.ref_count = 26;
    writer.extension = "sdb";
    writer.size_data = 0x123456789;
    writer.inode_seqnum = 3;
    writer.parent_inode = 0xabc;
    writer.parent_seqnum = 0x12345;
    writer.header_info = "sdbf";
    writer.cluster_bytes = {0x0a, 0xff};
    EXPECT_TRUE(write(writer).ends_with(",extra,26,sdb,4886718345,3,2748,74565,sdbf,0a ff \n"));
    writer.hex_numbers = true;
    EXPECT_TRUE(write(writer).ends_with(
        ",extra,0x001a,sdb,0x123456789,0x0003,0x00000abc,0x12345,sdbf,0a ff \n"));
}

// The seconds of the rows that are written, for a record with one before 1970 and one not valid.
std::string seconds_written(std::uint64_t start, std::uint64_t stop)
{
    uni::timeline_writer writer;
    writer.m_time = moment + 2 * uni::ticks_per_second;
    writer.a_time = moment;
    writer.c_time = moment + uni::ticks_per_second;
    writer.b_time = 100'000'000'000'000'000; // 1917
    writer.extra_times = {0, ~std::uint64_t{0}};
    writer.window_start = start;
    writer.window_stop = stop;
    std::string seconds;
    const std::string text = write(writer);
    for (std::string_view rest = text; !rest.empty();) {
        seconds += rest.substr(17, 2);
        rest.remove_prefix(rest.find('\n') + 1);
    }
    return seconds;
}

TEST(timeline, rows_outside_the_window_are_dropped)
{
    EXPECT_EQ(seconds_written(0, 0), "40070809");
    EXPECT_EQ(seconds_written(0, 1), "40070809");
    EXPECT_EQ(seconds_written(1, ~std::uint64_t{0}), "070809");
    EXPECT_EQ(seconds_written(moment_seconds, moment_seconds + 1), "0708");
    EXPECT_EQ(seconds_written(moment_seconds + 1, moment_seconds + 1), "08");
    EXPECT_EQ(seconds_written(moment_seconds + 3, ~std::uint64_t{0}), "");
    EXPECT_EQ(seconds_written(moment_seconds, 0), "");
}

} // namespace
