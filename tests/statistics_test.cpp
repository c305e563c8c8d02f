#include "report/statistics.h"

#include <algorithm>
#include <map>
#include <random>
#include <span>

#include <gtest/gtest.h>

#include "report/listings.h"
#include "report/record.h"
#include "sdb/tags.h"
#include "support/sample_database.h"
#include "support/text_sink.h"

namespace {

namespace tag = sdb::tag;
using test_support::bytes;
using test_support::node;
using test_support::sdb_builder;
using test_support::target;
using test_support::text_sink;

struct loaded_database {
    explicit loaded_database(const bytes& image)
    {
        front::sdb_opts options;
        EXPECT_TRUE(database.load_image(io::byte_vector(image.begin(), image.end()), options));
    }
    sdb::sdb_database database;
};

// Random databases. Ordinary ones hold what their sizes claim; the others are damaged afterwards.
class image_maker {
public:
    explicit image_maker(unsigned seed) : random_(seed) {}

    bytes ordinary()
    {
        sdb_builder b;
        lists_.clear();
        std::vector<node> fixes;
        for (int i = 0; i < 6; ++i) {
            fixes.push_back(list(b, one_of(fix_tags), 3));
        }
        b.add(b.list(tag::library, fixes));
        for (int i = 0; i < 12; ++i) {
            b.add(below(4) == 0 ? scalar(b) : list(b, one_of(list_tags), 4));
        }
        if (below(3) == 0) {
            b.without_string_table();
        }
        return b.build();
    }

    bytes damaged()
    {
        bytes image = ordinary();
        const loaded_database before(image);
        const sdb::sdb_database& database = before.database;
        for (unsigned changes = 1 + below(6); changes != 0; --changes) {
            const std::uint32_t ordinal = below(database.tag_count());
            const std::uint32_t offset = database.offset_at(ordinal);
            const unsigned type = database.tag_at(ordinal) >> 12;
            if (type == 4 || type >= 7) {
                put(image, offset + 2,
                    type == 4 ? some_offset(database) : forged_size(database, offset));
            }
        }
        if (below(3) == 0) {
            image.resize(std::max<std::size_t>(image.size() - below(60), 40));
        }
        return image;
    }

    unsigned below(unsigned limit) { return static_cast<unsigned>(random_() % limit); }

private:
    static constexpr std::uint16_t fix_tags[] = {tag::shim, tag::patch, tag::flag, tag::inexclude};
    static constexpr std::uint16_t list_tags[] = {tag::exe,          tag::app,  tag::layer,
                                                  tag::shim_ref,     tag::data, tag::matching_file,
                                                  tag::matching_reg, tag::shim, tag::inexclude};

    template <std::size_t count>
    std::uint16_t one_of(const std::uint16_t (&tags)[count])
    {
        return tags[below(count)];
    }

    node scalar(sdb_builder& b)
    {
        switch (below(10)) {
        case 0:
            return b.null(tag::general);
        case 1:
            return b.byte(0x2001, 1);
        case 2:
            return b.word(tag::match_mode, 7);
        case 3:
            return b.qword(tag::flag_mask_kernel, 1);
        case 4:
            return b.guid(tag::app_id,
                          "00000000-0000-0000-0000-00000000000" + std::to_string(below(4)));
        case 5:
            return b.binary(tag::file_bits, bytes(below(4)));
        case 6:
            return lists_.empty() ? b.null(tag::include)
                                  : b.reference(tag::shim_tagid, lists_[below(size())]);
        case 7:
            return b.text(tag::app_name, "app " + std::to_string(below(4)));
        default:
            return b.text(tag::name, "name " + std::to_string(below(9)));
        }
    }

    node list(sdb_builder& b, std::uint16_t head, int levels)
    {
        std::vector<node> children;
        for (unsigned count = below(6); count != 0; --count) {
            children.push_back(levels > 0 && below(3) == 0 ? list(b, one_of(list_tags), levels - 1)
                                                           : scalar(b));
        }
        const node made = b.list(head, children);
        lists_.push_back(made);
        return made;
    }

    unsigned size() const { return static_cast<unsigned>(lists_.size()); }

    std::uint32_t some_offset(const sdb::sdb_database& database)
    {
        return database.offset_at(below(database.tag_count()));
    }

    std::uint32_t forged_size(const sdb::sdb_database& database, std::uint32_t offset)
    {
        const std::uint32_t size = database.word_behind(offset);
        const std::uint32_t sizes[] = {below(12), size + 1 + below(30), size - 1 - below(8),
                                       0x7fffffff, 0xffffffff};
        return sizes[below(5)];
    }

    static void put(bytes& image, std::size_t position, std::uint32_t word)
    {
        for (std::size_t i = 0; i < 4 && position + i < image.size(); ++i, word >>= 8) {
            image[position + i] = static_cast<std::uint8_t>(word);
        }
    }

    std::mt19937 random_;
    std::vector<node> lists_;
};

std::vector<std::uint32_t> lists_of(const sdb::sdb_database& database)
{
    std::vector<std::uint32_t> lists;
    for (std::uint32_t ordinal = 0; ordinal < database.tag_count(); ++ordinal) {
        if (database.tag_at(ordinal) >> 12 == 7) {
            lists.push_back(database.offset_at(ordinal));
        }
    }
    return lists;
}

std::string shown(std::span<const report::record_item> items)
{
    std::string text;
    for (const report::record_item& item : items) {
        text += std::to_string(item.offset) + ' ';
    }
    return text;
}

std::uint64_t records_printed(const sdb::sdb_database& database, std::uint16_t tag)
{
    front::sdb_opts options;
    options.xml = false;
    text_sink out;
    report::record_printer(out, database, options).list_records_by_tag(tag);
    out.flush();
    std::uint64_t count = 0;
    for (std::size_t at = out.gathered.find("----- ["); at != std::string::npos;
         at = out.gathered.find("----- [", at + 1)) {
        ++count;
    }
    return count;
}

void expect_counts_of_listings(const sdb::sdb_database& database)
{
    report::database_facts facts;
    if (!report::gather_facts(facts, database, front::sdb_opts())) {
        return;
    }
    for (const std::uint16_t tag : report::application_tags(database)) {
        if (tag == tag::stringtable) {
            continue; // listed, but never counted
        }
        std::vector<std::uint64_t> counts;
        for (const report::stat_row& row : facts.rows) {
            if (row.key == tag) {
                EXPECT_EQ(row.value_text, std::to_string(row.count));
                counts.push_back(row.count);
            }
        }
        // A tag that stands in the library too has a row for that as well.
        EXPECT_NE(std::ranges::count(counts, records_printed(database, tag)), 0)
            << "tag " << tag << ", " << counts.size() << " rows, " << counts.front() << " counted, "
            << records_printed(database, tag) << " listed";
    }
}

// The short way to a record's first group and the quick test of a search, held against what full
// expansion gives.
void expect_short_ways_agree(const sdb::sdb_database& database, image_maker& random)
{
    report::record_collector whole(database);
    report::record_collector quick(database);
    std::vector<std::uint32_t> found;
    for (unsigned i = 1 + random.below(3); i != 0; --i) {
        found.push_back(database.offset_at(random.below(database.tag_count())));
    }
    std::ranges::sort(found);
    const report::search_sieve sieve(database, found);
    for (const std::uint32_t list : lists_of(database)) {
        front::sdb_opts none;
        const bool collected = whole.collect(none, list);
        ASSERT_EQ(quick.collect_first_group(none, list), collected) << list;
        if (!collected) {
            continue;
        }
        const report::record_groups& groups = whole.groups();
        EXPECT_EQ(shown(quick.first_group()), shown(groups[0])) << list;
        EXPECT_EQ(quick.has_one_group(), groups.size() == 1) << list;
        bool holds_hit = false;
        for (std::size_t group = 0; group < groups.size(); ++group) {
            for (const report::record_item& item : groups[group]) {
                holds_hit = holds_hit || std::ranges::binary_search(found, item.offset);
            }
        }
        EXPECT_TRUE(!holds_hit || sieve.may_hold_hit(*database.ordinal_of(list))) << list;
    }
}

TEST(statistics, counts_and_searches_agree_with_listings_whatever_the_database)
{
    constexpr unsigned images = 400;
    for (unsigned seed = 0; seed < images && !testing::Test::HasFailure(); ++seed) {
        image_maker maker(seed);
        const loaded_database in(seed % 4 == 0 ? maker.ordinary() : maker.damaged());
        if (in.database.tag_count() != 0) {
            SCOPED_TRACE("seed " + std::to_string(seed));
            expect_counts_of_listings(in.database);
            expect_short_ways_agree(in.database, maker);
        }
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
    std::vector<node> slack;
    for (int i = 0; i < 6; ++i) {
        slack.push_back(b.list_with_size(tag::data, 3, {b.null(tag::general)}));
    }
    const auto claimed = static_cast<std::uint32_t>(slack.size()) * 9;
    const node followed = b.list_with_size(
        tag::shim, claimed, {slack[0], slack[1], slack[2], slack[3], slack[4], slack[5]});
    const node around = b.list_with_size(tag::data, claimed + 6, {followed});
    b.add(b.list(tag::exe, {b.text(tag::name, "x"), b.null(tag::general),
                            b.list(tag::shim_ref, {b.reference(tag::shim_tagid, followed)})}));
    b.add(b.list_with_size(tag::data, claimed + 12, {around}));
    b.add(b.list(tag::app, {b.dword(tag::tagid, 1)}));
    return b.build();
}

TEST(statistics, counts_agree_with_listings_where_a_record_takes_in_what_is_not_its_own)
{
    for (const bytes& image :
         {small_reference_list_at_the_end(), followed_record_that_reaches_out()}) {
        const loaded_database in(image);
        image_maker random(1);
        expect_counts_of_listings(in.database);
        expect_short_ways_agree(in.database, random);
        EXPECT_EQ(records_printed(in.database, tag::exe), 0u); // a mere reference
    }
}

std::string statistics(const bytes& image, front::sdb_opts& options)
{
    const loaded_database in(image);
    uni::compile_date_style(options.date_style, options.dateformat, options.timeformat,
                            options.pair_datetime);
    text_sink out;
    report::run_database_stats(in.database, out, options);
    out.flush();
    return out.gathered;
}

std::string blanks(std::string_view text, std::size_t width)
{
    std::string filled(text);
    filled.resize(std::max(width, text.size()), ' ');
    return filled;
}

// A database with something to say in nearly every column.
sdb_builder told_database()
{
    sdb_builder b;
    b.version(3, 0x10);
    b.add({b.text(tag::compiler_version, "v1.v2v"),
           b.qword(tag::time, test_support::filetime(2024, 2, 29)),
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
    return b;
}

TEST(statistics, facts_from_the_registry_are_found_by_file_name_alone)
{
    front::sdb_opts options;
    options.current_path = "D:\\y\\A.SDB";
    front::installed_database& installed = options.installed_databases["a.sdb"];
    installed.install_time = test_support::filetime(2010, 1, 2);
    installed.key_modtime = test_support::filetime(2011, 1, 2);
    installed.database_type = 0x10000;
    installed.description = "about it";
    installed.database_path = "c:\\x\\a.sdb";
    const bytes image = told_database().build();
    const std::string text = statistics(image, options);
    for (const std::string_view line : {"Reg DB Path/File       | c:\\x\\a.sdb",
                                        "Reg DB InstallTime     | 2010-01-02 00:00:00.000 [UTC]",
                                        "Registry ModTime       | 2011-01-02 00:00:00.000 [UTC]"}) {
        EXPECT_NE(text.find("\n" + std::string(line) + "\n"), std::string::npos) << line;
    }
    EXPECT_EQ(text.find("0xe0"), std::string::npos); // rows without a count are not among the tags
    installed.database_path = "d:\\Y\\a.sdb";
    EXPECT_EQ(statistics(image, options).find("Reg DB Path"), std::string::npos);
    installed.database_path = "e:\r\nFile ModTime\n\\a.sdb"; // no forged lines
    EXPECT_NE(statistics(image, options).find("| e:[CRLF]File ModTime[LF]\\a.sdb\n"),
              std::string::npos);
    options.current_path = "D:\\y\\"; // a database without a path is not this file
    options.installed_databases[""] = installed;
    EXPECT_EQ(statistics(image, options).find("Reg DB"), std::string::npos);
    options.current_path = "D:\\y\\A.SDB";
    installed.database_path = "d:\\Y\\a.sdb";

    options.csv = true;
    options.csv_separator = ",";
    const std::string rows = statistics(image, options);
    EXPECT_NE(
        rows.find("; appid: 2; Install Timestamp: ; Reg LastMod Timestamp: ; Database "
                  "Description: about it; Database Types: ; Database Path: d:\\Y\\a.sdb,"
                  "RegDB Path: d:\\Y\\a.sdb; Install time: 2010-01-02 00:00:00.000; Reg modtime: "
                  "2011-01-02 00:00:00.000,"),
        std::string::npos)
        << rows;
}

TEST(statistics, delimited_form_pads_and_leads_as_the_options_say)
{
    struct form {
        bool no_whitespace;
        bool pad_separator;
        std::string timeformat;
        std::string header;
        std::string data;
    };
    const std::string fixed = "MD5,SHA1,Compiler,DB ver,DB name,platform,DB ID,DB stats,Extra info";
    // Only the first two times have their lead in the header; the column of the name is as wide as
    // the widest value of the database.
    const form forms[] = {
        {false, true, "hh:mm:ss.xxx",
         blanks("source file", 42) + ",file mdate  , time-UTC    ,file adate  , time-UTC    ,"
                                     "file cdate  ,ctime-UTC   ,DB date     ,time-UTC    ,",
         blanks("a b.sdb", 42) + ",2001-02-03  , 00:00:00.000,            ,            ,"
                                 "2001-02-03  , 00:00:00.000,2024-02-29  , 00:00:00.000,"},
        {false, false, "hh:mm:ss",
         blanks("source file", 42) + ",file mdate  , time-UTC,file adate  , time-UTC,"
                                     "file cdate  ,ctime-UTC,DB date     ,time-UTC,",
         blanks("a b.sdb", 42) + ",2001-02-03  , 00:00:00,            ,        ,"
                                 "2001-02-03  , 00:00:00,2024-02-29  , 00:00:00,"},
        {true, true, "hh:mm:ss.xxx",
         "source file,file mdate, time-UTC,file adate, time-UTC,file cdate,ctime-UTC,DB date,"
         "time-UTC," +
             fixed + ",Source DB path",
         "a b.sdb,2001-02-03, 00:00:00.000, , ,2001-02-03, 00:00:00.000,2024-02-29, 00:00:00.000,"},
        {true, false, "hh:mm:ss",
         "source file,file mdate,time-UTC,file adate,time-UTC,file cdate,ctime-UTC,DB date,"
         "time-UTC," +
             fixed + ",Source DB path",
         "a b.sdb,2001-02-03,00:00:00, , ,2001-02-03,00:00:00,2024-02-29,00:00:00,"},
    };
    for (const form& wanted : forms) {
        front::sdb_opts options;
        front::set_csv_separator(options, ",");
        options.csv = true;
        options.no_whitespace = wanted.no_whitespace;
        options.pad_separator = wanted.pad_separator;
        options.timeformat = wanted.timeformat;
        options.current_path = "dir,1\\a,b.sdb";
        options.file_write_time = options.file_creation_time = test_support::filetime(2001, 2, 3);
        const std::string text = statistics(told_database().build(), options);
        const std::size_t end = text.find('\n');
        EXPECT_TRUE(text.starts_with(wanted.header)) << text;
        EXPECT_TRUE(text.substr(end + 1).starts_with(wanted.data)) << text;
        const auto filled = [&](std::string_view field, std::size_t width) {
            return wanted.no_whitespace ? std::string(field) : blanks(field, width);
        };
        EXPECT_TRUE(text.ends_with(
            "," + filled("1.2", 8) + "," + filled("3.16", 8) + "," + filled("A  \"B\"", 36) +
            ",0x00000004,01234567-89ab-cdef-0123-456789abcdef,general: 1; appname: 1; shim: 2; "
            "app: 0; exe: 2; tag_31420: 1; strings: 6; appid: 2," +
            filled("RegDB Path: ", 20) + "," + filled("dir 1", 36) + "\n"))
            << text;
        EXPECT_EQ(statistics(told_database().build(), options), text.substr(end + 1)); // no header
    }
}

TEST(statistics, what_is_not_there_is_not_told)
{
    sdb_builder empty;
    sdb_builder headless;
    headless.without_database().without_string_table();
    for (sdb_builder* b : {&empty, &headless}) {
        for (const bool csv : {false, true}) {
            front::sdb_opts options;
            options.csv = csv;
            EXPECT_EQ(statistics(b->build(), options), "");
            EXPECT_TRUE(options.print_header);
        }
    }
}

TEST(statistics, odd_facts)
{
    const auto gathered = [](sdb_builder& b) {
        const loaded_database in(b.build());
        report::database_facts facts;
        EXPECT_TRUE(report::gather_facts(facts, in.database, front::sdb_opts()));
        return facts;
    };
    const auto rows = [](const report::database_facts& facts) {
        std::string text;
        for (const report::stat_row& row : facts.rows) {
            text += row.name + '=' + row.value_text + ' ';
        }
        return text;
    };
    sdb_builder platforms; // the operating system's goes before the run time's
    platforms.add(
        {platforms.dword(tag::os_platform, 1), platforms.dword(tag::runtime_platform, 2)});
    EXPECT_EQ(gathered(platforms).platform, "0x00000001");

    sdb_builder twice; // of several facts of a kind the last counts
    twice.add({twice.text(tag::name, "one"), twice.text(tag::name, "two")});
    EXPECT_EQ(gathered(twice).internal_name, "two");

    sdb_builder b; // the first tag that makes a record a reference ends the look at it
    b.without_string_table();
    b.add(b.list(tag::exe, {b.guid(tag::app_id, "00000000-0000-0000-0000-000000000001"),
                            b.dword(tag::tagid, 1),
                            b.guid(tag::app_id, "00000000-0000-0000-0000-000000000002")}));
    // Of several the last counts; one so near to the image's end does not.
    b.add(b.list(tag::app, {b.guid(tag::app_id, "00000000-0000-0000-0000-000000000003"),
                            b.guid(tag::app_id, "00000000-0000-0000-0000-000000000004"),
                            b.text(tag::app_name, "no table")}));
    b.add(b.list(tag::app, {b.guid(tag::app_id, "00000000-0000-0000-0000-000000000005")}));
    EXPECT_EQ(rows(gathered(b)), "app=1 exe=0 appid=2 ");

    sdb_builder everywhere; // what the library holds counts wherever it stands
    const auto shim = [&](int levels) {
        node made = everywhere.list(tag::shim, {});
        for (; levels > 0; --levels) {
            made = everywhere.list(tag::data, {made});
        }
        return made;
    };
    everywhere.without_string_table();
    everywhere.add({everywhere.list(tag::library, {shim(0), shim(0)}), shim(2),
                    everywhere.list(tag::exe, {shim(1)})});
    EXPECT_EQ(rows(gathered(everywhere)), "shim=4 exe=1 data=3 ");
}

TEST(statistics, digests_are_those_of_the_whole_image_inflated)
{
    const bytes image = {1,   0,   0,    0,    2, 0, 0, 0, 's', 'd',
                         'b', 'f', 0x01, 0x70, 2, 0, 0, 0, 2,   0x10};
    for (const bytes& stored : {image, test_support::compress(image, 0)}) {
        const loaded_database in(stored);
        report::database_facts facts;
        ASSERT_TRUE(report::gather_facts(facts, in.database, front::sdb_opts()));
        EXPECT_EQ(facts.digest_md5, "6c581cbb1947a8470bbc9f393553bbad");
        EXPECT_EQ(facts.digest_sha1, "f32df4ce00b56673ed4af360a592a6a795c18c8f");
    }
}

} // namespace
