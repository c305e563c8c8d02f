// The facts of a database, and the statistics that are made of them.

#include "model/database_facts.h"

#include <algorithm>

#include <gtest/gtest.h>

#include "report/record_listing.h"
#include "sdb/tags.h"
#include "support/record_checks.h"
#include "support/reports.h"
#include "support/sample_database.h"

namespace {

namespace tag = sdb::tag;
using namespace test_support;
using namespace std::string_literals;

std::uint64_t records_listed(const sdb::sdb_database& database, std::uint16_t tag)
{
    request::sdb_opts options = listing_options({"tag"}, "multiline");
    options.tag_filter = tag;
    const std::string text = database_report(database, options).text;
    std::uint64_t count = 0;
    for (std::size_t at = 0; (at = text.find("----- [", at)) != std::string::npos; ++at) {
        ++count;
    }
    return count;
}

void expect_agreement(const sdb::sdb_database& database, std::uint32_t looked_for)
{
    EXPECT_EQ(difference_of_short_ways(database, {{looked_for}}), "");
    model::database_facts facts;
    model::gather_facts(facts, database);
    for (const std::uint16_t tag : report::application_tags(database)) {
        // A string table is listed, but never counted; a tag that stands in the library too has a
        // count for that as well.
        const std::uint64_t listed = records_listed(database, tag);
        const bool is_counted = std::ranges::any_of(facts.counts, [&](const auto& counted) {
            return counted.tag == tag && counted.count == listed;
        });
        EXPECT_TRUE(tag == tag::stringtable || is_counted) << sdb::tag_name(tag);
    }
}

// A reference list too small to keep what stands in it gives that to the group before it.
bytes small_reference_list_at_the_end()
{
    sdb_builder b;
    b.without_string_table();
    b.add(b.list(tag::exe, {b.text(tag::name, "x"),
                            b.list_with_size(tag::shim_ref, 4, {b.dword(tag::shim_tagid, 1)})}));
    return b.build();
}

// Lists whose sizes claim a byte more than they hold, so that a followed record takes in what
// stands outside of the lists around it, two levels up.
bytes followed_record_that_reaches_out()
{
    sdb_builder b;
    const auto slack = [&b] { return b.list_with_size(tag::data, 3, {b.null(tag::general)}); };
    const node followed =
        b.list_with_size(tag::shim, 54, {slack(), slack(), slack(), slack(), slack(), slack()});
    b.add(b.list(tag::exe, {b.text(tag::name, "x"), b.null(tag::general),
                            b.list(tag::shim_ref, {b.reference(tag::shim_tagid, followed)})}));
    b.add(b.list_with_size(tag::data, 66, {b.list_with_size(tag::data, 60, {followed})}));
    b.add(b.list(tag::app, {b.dword(tag::tagid, 1)}));
    return b.build();
}

TEST(statistics, counts_agree_with_listings_where_a_record_takes_in_what_is_not_its_own)
{
    for (const bytes& image :
         {small_reference_list_at_the_end(), followed_record_that_reaches_out()}) {
        const loaded_database in(image);
        for (const std::uint32_t offset : in.database.children().offsets()) {
            expect_agreement(in.database, offset);
        }
        EXPECT_EQ(records_listed(in.database, tag::exe), 0u); // a mere reference
    }
}

TEST(statistics, counts_agree_with_listings_whatever_size_a_list_claims)
{
    const bytes image = sample_database();
    const loaded_database whole(image);
    std::uint32_t any = 0;
    for (const sdb::tag_table::list_row& list : whole.database.children().lists()) {
        const std::uint32_t place = whole.database.offset_at(list.ordinal);
        const std::uint32_t claimed = whole.database.word_behind(place);
        for (const std::uint32_t size : {claimed, 0u, claimed - 1, claimed + 1, 4u, 0xffffffffu}) {
            bytes damaged = image;
            put(damaged, place + 2, size, 4);
            const loaded_database in(damaged);
            any = (any + 97) % in.database.tag_count();
            SCOPED_TRACE(std::to_string(place) + ' ' + std::to_string(size));
            expect_agreement(in.database, in.database.offset_at(sdb::tag_ordinal(any)));
        }
    }
}

// A database with something to say in nearly every column.
bytes told_database()
{
    sdb_builder b;
    b.version(3, 0x10);
    b.add({b.text(tag::compiler_version, "v1.v2v"), b.qword(tag::time, filetime(2024, 2, 29)),
           b.dword(tag::runtime_platform, 4), b.text(tag::name, "A, \"B\""),
           b.guid(tag::database_id, "01234567-89ab-cdef-0123-456789abcdef"),
           b.text(tag::description, "not shown, but as wide as this")});
    b.add(
        b.list(tag::library, {b.list(tag::shim, {}), b.list(tag::shim, {}), b.null(tag::general)}));
    const auto exe = [&b](std::string_view app, std::string_view id) {
        return b.list(tag::exe, {b.text(tag::app_name, app), b.guid(tag::app_id, id)});
    };
    b.add({exe("a1", "00000000-0000-0000-0000-000000000001"),
           b.list(tag::app, {b.text(tag::name, "bare")}),
           exe("a1", "00000000-0000-0000-0000-000000000002"),
           b.list(0x7abc, {b.list(tag::data, {b.text(tag::app_name, "not of the first group")})})});
    return b.build();
}

TEST(statistics, a_path_of_the_registry_is_shown_where_it_is_another_and_forges_no_line)
{
    for (const auto& [path, shown] :
         {std::pair("d:\\Y\\a.sdb", ""), // the same one
          {"c:\\a.sdb", "\nReg DB Path/File      ,c:\\a.sdb\n"},
          {"e:\r\nReg DB Path\n\\a.sdb",
           "\nReg DB Path/File      ,e:[CRLF]Reg DB Path[LF]\\a.sdb\n"}}) {
        model::installed_database installed;
        installed.database_path = path;
        const std::string text =
            statistics_report(told_database(), row_options("multiline"),
                              {.path = "D:\\y\\A.SDB", .installed = &installed})
                .text;
        const std::size_t at = std::min(text.find("\nReg DB Path"), text.size());
        const std::string line = text.substr(at, text.find('\n', at + 1) + 1 - at);
        EXPECT_EQ(at == text.size() ? "" : line, shown);
        EXPECT_EQ(text.find("0xe0"), std::string::npos) << "no count, so not among the tags";
    }
}

TEST(statistics, delimited_form_pads_and_leads_as_the_options_say)
{
    const std::string bare = "MD5,SHA1,Compiler,DB ver,DB name,platform,DB ID,DB stats,Extra info,"
                             "Source DB path\n";
    // Only the first two times have their lead in the header; the column of the name is as wide as
    // the widest value of the database.
    const struct {
        bool no_whitespace;
        bool pad_separator;
        const char* timeformat;
        std::string header; // begins so behind the first column, as does the data
        std::string data;
    } cases[] = {
        {false, true, "hh:mm:ss.xxx",
         "file mdate  , time-UTC    ,file adate  , time-UTC    ,file cdate  ,ctime-UTC   ,"
         "DB date     ,time-UTC    ,",
         "2001-02-03  , 00:00:00.000,            ,            ,2001-02-03  , 00:00:00.000,"
         "2024-02-29  , 00:00:00.000,"},
        {false, false, "hh:mm:ss",
         "file mdate  ,time-UTC,file adate  ,time-UTC,file cdate  ,ctime-UTC,DB date     ,"
         "time-UTC,",
         "2001-02-03  ,00:00:00,            ,        ,2001-02-03  ,00:00:00,2024-02-29  "
         ",00:00:00,"},
        {true, true, "hh:mm:ss.xxx",
         "file mdate, time-UTC,file adate, time-UTC,file cdate,ctime-UTC,DB date,time-UTC," + bare,
         "2001-02-03, 00:00:00.000, , ,2001-02-03, 00:00:00.000,2024-02-29, 00:00:00.000,"},
        {true, false, "hh:mm:ss",
         "file mdate,time-UTC,file adate,time-UTC,file cdate,ctime-UTC,DB date,time-UTC," + bare,
         "2001-02-03,00:00:00, , ,2001-02-03,00:00:00,2024-02-29,00:00:00,"},
    };
    for (const auto& one : cases) {
        request::sdb_opts options = row_options("csv", one.timeformat);
        options.no_whitespace = one.no_whitespace;
        options.pad_separator = one.pad_separator;
        about subject{.path = "dir,1\\a,b.sdb",
                      .times = {filetime(2001, 2, 3), 0, filetime(2001, 2, 3)}};
        const made_report made = statistics_report(told_database(), options, subject);
        const std::string row = made.text.substr(made.text.find('\n') + 1);
        const auto padded = [&](std::string field, std::size_t width) {
            field.resize(one.no_whitespace ? field.size() : std::max(width, field.size()), ' ');
            return field;
        };
        const auto filled = [&](const std::string& field, std::size_t width) {
            return padded(field, width) + ',';
        };
        EXPECT_TRUE(made.text.starts_with(filled("source file", 42) + one.header)) << made.text;
        EXPECT_TRUE(row.starts_with(filled("a b.sdb", 42) + one.data)) << row;
        const std::string end =
            filled("1.2", 8) + filled("3.16", 8) + '"' +
            padded("A  \"B\"", 36).replace(3, 3, "\"\"B\"\"") + "\"," +
            "0x00000004,01234567-89ab-cdef-0123-456789abcdef,general: 1; appname: 1; shim: 2; app: "
            "0; exe: 2; tag_31420: 1; strings: 6; appid: 2," +
            filled("RegDB Path: ", 20) + filled("dir 1", 36);
        EXPECT_TRUE(row.ends_with(',' + end.substr(0, end.size() - 1) + '\n')) << row;
        subject.state = made.state;
        EXPECT_EQ(statistics_report(told_database(), options, subject).text, row) << "one head";
    }
}

TEST(statistics, what_is_not_there_is_not_told)
{
    for (const bytes& image :
         {sdb_builder().build(), sdb_builder().without_database().without_string_table().build()}) {
        for (const char* const form : {"multiline", "csv", "csvl2t"}) {
            const made_report made = statistics_report(image, row_options(form));
            EXPECT_EQ(made.text, "");
            EXPECT_FALSE(made.asked || made.state.head_stands);
        }
    }
}

TEST(statistics, odd_facts)
{
    struct {
        const char* what;
        void (*make)(sdb_builder&);
        const char* facts; // platform, name and counts
    } const cases[] = {
        {"the operating system's platform goes before the run time's; of several the last counts",
         [](sdb_builder& b) {
             b.add({b.dword(tag::os_platform, 3), b.dword(tag::os_platform, 1),
                    b.dword(tag::runtime_platform, 2), b.text(tag::name, "1"),
                    b.text(tag::name, "2")});
         },
         "1|2 strings=2"},
        {"the first tag that makes a record a reference ends the look at it; of several the last "
         "counts; one so near to the image's end does not",
         [](sdb_builder& b) {
             const auto id = [&b](char last) {
                 return b.guid(tag::app_id, "00000000-0000-0000-0000-00000000000"s + last);
             };
             b.without_string_table();
             b.add(b.list(tag::exe, {id('1'), b.dword(tag::tagid, 1), id('2')}));
             b.add(b.list(tag::app, {id('3'), id('4'), b.text(tag::app_name, "no table")}));
             b.add(b.list(tag::app, {id('5')}));
         },
         "0| app=1 exe=0 appid=2"},
        {"what the library holds counts wherever it stands",
         [](sdb_builder& b) {
             const auto shim = [&b] { return b.list(tag::shim, {}); };
             const auto data = [&b](node held) { return b.list(tag::data, {held}); };
             b.without_string_table();
             b.add({b.list(tag::library, {shim(), shim()}), data(data(shim())),
                    b.list(tag::exe, {data(shim())})});
         },
         "0| shim=4 exe=1 data=3"},
    };
    for (const auto& one : cases) {
        sdb_builder b;
        one.make(b);
        model::database_facts facts;
        const bytes image = b.build();
        const loaded_database loaded(image);
        EXPECT_TRUE(model::gather_facts(facts, loaded.database));
        std::string text = std::to_string(facts.platform.value_or(0)) + '|' +
                           model::internal_name(loaded.database, facts);
        for (const model::record_count& counted : facts.counts) {
            text += ' ' + counted.name + '=' + std::to_string(counted.count);
        }
        EXPECT_EQ(text, one.facts) << one.what;
    }
}

TEST(statistics, digests_are_those_of_the_whole_image_inflated)
{
    const bytes start = {1,   0,   0,    0,    2, 0, 0, 0, 's', 'd',
                         'b', 'f', 0x01, 0x70, 2, 0, 0, 0, 2,   0x10};
    // Filled with zeros; from 1 MiB on they are made on threads. As md5sum and sha1sum have them.
    const std::tuple<std::size_t, const char*, const char*> cases[] = {
        {0xfffff, "2262eb0977ff04d7af78c354b5d36ad7", "784102f2a40cd4a3c54bfcb79e617e9f411ca1da"},
        {0x100000, "4b14868bd64a3d980b6df42697c0dc14", "4257923d2cd3c80443e002cbb9bb49ebcb3aebf0"},
        {0x300001, "a33c6d4c0edabf9cb7fa55c8d428bc91", "81ce238c1000efc6113b31f8b904e07a8998bd79"},
    };
    for (const auto& [size, md5, sha1] : cases) {
        bytes image = start;
        image.resize(size);
        for (const bytes& stored : {image, compress(image, 0)}) {
            model::database_facts facts;
            ASSERT_TRUE(model::gather_facts(facts, loaded_database(stored).database));
            EXPECT_EQ(facts.digest_md5, md5) << size;
            EXPECT_EQ(facts.digest_sha1, sha1) << size;
        }
    }
}

} // namespace
