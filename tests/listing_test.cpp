#include <algorithm>
#include <functional>
#include <random>

#include <gtest/gtest.h>

#include "sdb/tags.h"
#include "support/reports.h"

namespace {

namespace tag = sdb::tag;
using test_support::bytes;
using test_support::listing_options;
using test_support::made_report;
using test_support::node;
using test_support::sdb_builder;

constexpr std::string_view opening = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<shimdb>\n";

// The one record of a database that holds it alone, without the document around it.
std::string xml_record(sdb_builder& b, std::uint16_t tag, const std::vector<node>& children,
                       bool base16 = true)
{
    b.add(b.list(tag, children));
    request::sdb_opts options = test_support::tag_options(tag);
    options.base16 = base16;
    const std::string text = test_support::database_report(b.build(), options).text;
    constexpr std::string_view closing = "\n</shimdb>\n";
    EXPECT_TRUE(text.starts_with(opening) && text.ends_with(closing)) << text;
    return text.substr(opening.size(), text.size() - opening.size() - closing.size());
}

TEST(listing, nothing_to_list)
{
    sdb_builder b;
    b.add({b.list(tag::exe, {b.text(tag::name, "bare")}), b.list(tag::library, {})});
    const bytes image = b.build();
    const std::pair<std::vector<std::string_view>, std::string> cases[] = {
        {{"apps", "fixes"}, "No Apps found\nNo fixes found\n"},
        {{"exes", "shims"}, "\n\n"}, // a line end for each tag, and no words
        {{"apps", "fixes", "exes", "shims"}, "No Apps found\nNo fixes found\n\n\n"},
        {{}, ""},
    };
    for (const auto& [listings, expected] : cases) {
        for (const std::string_view form : {"plain", "xml"}) {
            request::sdb_opts options = listing_options({}, form);
            options.listings = listings;
            const made_report made = test_support::database_report(image, options);
            EXPECT_EQ(made.text,
                      form == "xml" ? std::string(opening) + expected + "</shimdb>\n" : expected);
            EXPECT_EQ(made.asked, !listings.empty());
            EXPECT_EQ(
                made.notices,
                made.asked
                    ? ""
                    : "Check the options you passed in [either erroneous or a mismatch]...\n");
        }
    }
}

TEST(listing, plain_lines)
{
    sdb_builder b;
    b.add(b.list(tag::library,
                 {b.list(tag::patch,
                         {b.text(tag::name, "P \"1\""),
                          b.patch_bits({test_support::match_op("m", 1, {1, 2}),
                                        test_support::replace_op("m", 2, {})}),
                          b.binary(tag::patch_bits, {1}),
                          b.list(tag::data, {b.dword(tag::data_dword, 0x12), b.null(tag::general),
                                             b.qword(0x5abc, 1), b.binary(tag::file_bits, {1})}),
                          b.string_ref(tag::description, 0x999)})}));
    std::string expected = R"(-------------------- [c:\a&b.sdb]
1 | 000018 | 7005 | 000e4 | patch                          | list      $
2 | 00001e | 6001 |       | name                           | stringref  | P "1"
2 | 000024 | 9002 |       | patch_bits                     | binary    $
$
$
2 | 0000d4 | 9002 |       | patch_bits                     | binary    $
$
2 | 0000fc | 6002 |       | description                    | stringref  | $

2 | 0000dc | 700f | 0001a | data                           | list      $
3 | 0000e2 | 4019 |       | data_dword                     | dword      | 0x00000012
3 | 0000e8 | 1002 |       | general                        | null       | set
3 | 0000ea | 5abc |       | tag_23228                      | qword      | 0x0000000000000001
3 | 0000f4 | 9003 |       | file_bits                      | binary     | $



)";
    std::erase(expected, '$'); // shows where a line ends
    const bytes image = b.build();
    for (const std::string_view form : {"plain", "csv"}) { // delimited forms write no record
        const auto made = test_support::database_report(image, listing_options({"patches"}, form));
        EXPECT_EQ(made.text, form == "plain" ? expected : "\n");
    }
}

TEST(listing, depths_are_hexadecimal_and_wide_fields_stand_whole)
{
    sdb_builder b;
    node inner = b.list(tag::exe, {b.null(tag::upgrade_action_proceed_to_mediasetup)});
    for (int depth = 0; depth < 15; ++depth) {
        inner = b.list(tag::data, {inner});
    }
    // Offsets beyond 24 bits and sizes beyond 20 take the digits that they need.
    const node far = b.list(tag::flag, {b.dword(tag::flags, 1)});
    b.add(b.list(tag::app, {inner, b.binary(tag::file_bits, bytes(0xfffffe)), far}));
    request::sdb_opts options = listing_options({"apps"}, "plain");
    options.csv_separator = "|";
    const std::string text = test_support::database_report(b.build(), options).text;
    for (const std::string_view line :
         {"1|000012|7006|1000072|app  ", "2|000018|700f|0005c|data  ", "9|000042|700f|00032|data ",
          "a|000048|700f|0002c|data  ", "10|00006c|700f|00008|data  ",
          "12|000078|1012|     |upgrade_action_proceed_to_mediasetup|null      |set\n",
          "2|100007e|7013|00006|flag  ", "3|1000084|4017|     |flags  "}) {
        EXPECT_NE(text.find("\n" + std::string(line)), std::string::npos) << line;
    }
    EXPECT_EQ(b.offset_of(far), 0x100007eu);
}

TEST(listing, nested_elements)
{
    sdb_builder b;
    const node fix = b.list(
        tag::shim, {b.text(tag::name, "Fix"),
                    b.list(tag::inexclude, {b.text(tag::module, "a&b"), b.null(tag::general)}),
                    b.list(tag::inexclude, {b.list(tag::data, {b.text(tag::name, "d")})}),
                    b.list(tag::inexclude, {b.null(tag::include), b.list(tag::data, {})})});
    b.add(b.list(tag::library, {fix}));
    EXPECT_EQ(xml_record(b, tag::exe,
                         {b.text(tag::name, "svc.exe"), b.text(tag::vendor, "V <i>"),
                          b.text(tag::app_name, "\"Svc\""), b.dword(tag::os_platform, 2),
                          b.list(tag::matching_file,
                                 {b.text(tag::name, "*"), b.text(tag::company_name, "A & B")}),
                          b.list(tag::shim_ref, {b.reference(tag::shim_tagid, fix)})}),
              R"( <exe name="svc.exe" os_platform="win64">
  <app vendor="CDATA" app_name="'Svc'" />
  <vendor>
   <![CDATA[V <i>]]>
  </vendor>
  <matching_file name="svc.exe" company_name="CDATA">
   <company_name>
    <![CDATA[A & B]]>
   </company_name>
  </matching_file>
  <shim_ref shim_tagid="18">
   <shim name="Fix">
    <exclude module="CDATA" general="set">
     <module>
      <![CDATA[a&b]]>
     </module>
    </exclude>
    <inexclude>
     <data name="d" />
    </inexclude>
    <include>
     <data />
    </include>
   </shim>
  </shim_ref>
 </exe>
)");
}

TEST(listing, an_application_element_is_closed_once_and_its_parent_too)
{
    const std::uint16_t heads[] = {0x7007, 0x7017, 0x702d, 0x702e, 0x702f,
                                   0x7034, 0x7035, 0x7036, 0x703a, 0x7012};
    for (const std::uint16_t head : heads) {
        sdb_builder b;
        EXPECT_EQ(xml_record(b, head,
                             {b.text(tag::app_name, "A"), b.dword(tag::os_platform, 1),
                              b.text(tag::vendor, "V"), b.text(tag::name, "n")}),
                  " <" + sdb::tag_name(head) + " os_platform=\"win32\" name=\"n\">\n" +
                      "  <app app_name=\"A\" vendor=\"V\" />\n </" + sdb::tag_name(head) + ">\n");
    }
    sdb_builder b; // other lists keep all of it on their element
    EXPECT_EQ(xml_record(b, tag::kdriver, {b.text(tag::vendor, "V"), b.dword(tag::os_platform, 1)}),
              " <kdriver vendor=\"V\" os_platform=\"0x00000001\" />\n");
}

TEST(listing, attributes_told_in_words)
{
    const auto platform = [](std::uint32_t value) {
        return [value](sdb_builder& b) { return b.dword(tag::os_platform, value); };
    };
    const auto severity = [](std::uint32_t value) {
        return [value](sdb_builder& b) { return b.dword(tag::problemseverity, value); };
    };
    const struct {
        std::uint16_t tag;
        std::function<node(sdb_builder&)> told;
        const char* attribute;
        bool base16 = true;
    } cases[] = {
        {tag::exe, platform(1), "os_platform=\"win32\""},
        {tag::exe, platform(0x20), "os_platform=\"win64\""},
        // The digit 2 is looked for in the number as it is shown.
        {tag::exe, platform(18), "os_platform=\"win64\""},
        {tag::exe, platform(18), "os_platform=\"win32\"", false},
        {tag::exe, platform(2), "os_platform=\"win64\"", false},
        {tag::apphelp, severity(0), "problemseverity=\"0x00000000\""},
        {tag::apphelp, severity(1), "problemseverity=\"softblock\""},
        {tag::apphelp, severity(3), "problemseverity=\"softblock hardblock\""},
        {tag::apphelp, severity(4), "problemseverity=\"0x00000004\""},
        {tag::apphelp, severity(2), "problemseverity=\"hardblock\"", false},
    };
    for (const auto& [tag, told, attribute, base16] : cases) {
        sdb_builder b;
        std::vector<node> held = {told(b), b.null(tag::general)};
        if (tag == tag::apphelp) { // what is nothing is left out
            held.insert(held.begin(), {b.dword(tag::htmlhelpid, 0), b.dword(tag::langid, 0x409),
                                       b.text(tag::apphelp_title, "0x00000000")});
        }
        if (!base16) {
            held.erase(held.begin(), held.end() - 2);
        }
        EXPECT_EQ(xml_record(b, tag, held, base16),
                  " <" + sdb::tag_name(tag) + ' ' + attribute + " general=\"set\" />\n");
    }
}

TEST(listing, matching_files_are_escaped)
{
    const std::tuple<std::string, std::string, std::string> cases[] = {
        {"\xc3\x84 \"&\t", "*", "name=\"%c3%84 '&amp;%09\" module=\"*\""},
        {"e", "\x7f", "name=\"[x7f]\" module=\"*\""},
        {"e", "12345\t", "name=\"12345%09\" module=\"*\""},
        {"e", "\xc3\xa9*", "name=\"%c3%a9*\" module=\"*\""},
        {"", "*", "name=\"*\" module=\"*\""},
        {"", "\xc3\xa9", "name=\"\xc3\xa9\" module=\"*\""}, // to ASCII only beside a record's name
        {"e", "\x1b\xe2\x80\xae", "name=\"[x1b][U+202E]\" module=\"*\""},
    };
    for (const auto& [record_name, name, expected] : cases) {
        sdb_builder b;
        const node match =
            b.list(tag::matching_file,
                   {b.text(tag::name, name), b.text(tag::module, "*"), b.string(0x8801, "\"<>\"")});
        const std::string text =
            record_name.empty() ? xml_record(b, tag::exe, {match})
                                : xml_record(b, tag::exe, {b.text(tag::name, record_name), match});
        EXPECT_NE(text.find("  <matching_file " + expected +
                            " stringtable_item=\"&quot;&lt;&gt;&quot;\" />\n"),
                  std::string::npos)
            << text;
    }
}

TEST(listing, long_text_stands_on_a_line_of_its_own_in_its_cdata)
{
    const std::string accents = "\xc3\xa9\xc3\xa9"; // two bytes each, and bytes are what counts
    for (const std::size_t length : {79u, 80u}) {
        const std::string text = accents + std::string(length - 5, '"') + "&";
        sdb_builder b;
        EXPECT_EQ(xml_record(b, tag::app, {b.text(tag::vendor, text), b.null(tag::general)}),
                  " <app vendor=\"CDATA\" general=\"set\">\n  <vendor>\n   <![CDATA[" +
                      (length < 80 ? text : "\n    " + text + "\n   ") +
                      "]]>\n  </vendor>\n </app>\n");
    }
}

TEST(listing, binaries_that_are_child_elements)
{
    sdb_builder b;
    EXPECT_EQ(xml_record(b, tag::patch,
                         {b.binary(tag::text, {1, 2}),
                          b.patch_bits({test_support::match_op("m<", 0x10, {1, 0xab}),
                                        test_support::replace_op("r", 0xdeadbeef, {})}),
                          b.text(tag::name, "a>b"), b.binary(tag::patch_bits, {}),
                          b.binary(0x9012, {1}), b.binary(tag::file_bits, {})}),
              R"( <patch name="CDATA" reg_value_data_binary="">
  <name>
   <![CDATA[a>b]]>
  </name>
  <text binary="" />
  <patch_bits>
   <op module="m&lt;" type="match" address="0x00000010">01 ab</op>
   <op module="r" type="replace" address="0xdeadbeef"></op>
  </patch_bits>
  <patch_bits>
  </patch_bits>
  <file_bits binary="" />
 </patch>
)");
}

TEST(listing, what_comes_again_or_cannot_be_an_attribute_is_a_child)
{
    sdb_builder b;
    EXPECT_EQ(
        xml_record(b, tag::app,
                   {b.text(tag::name, "first"), b.text(tag::name, "\"second\""),
                    b.text(tag::name, "a]]>b"), b.byte(0x2001, 1), b.byte(0x2002, 2),
                    b.string(0x8801, "&\"\x1b"), b.string(0x8801, "<\n"), b.dword(0x4fff, 1),
                    b.dword(0x4fff, 2)}),
        R"( <app name="first" byte="0x01" stringtable_item="&amp;&quot;[x1b]" tag_20479="0x00000001">
  <name stringref="'second'" />
  <name>
   <![CDATA[a]]]]><![CDATA[>b]]>
  </name>
  <byte byte="0x02" />
  <stringtable_item string="&lt;[LF]" />
  <tag_20479 dword="0x00000002" />
 </app>
)");
    sdb_builder deep;
    node inner = deep.list(tag::data, {deep.null(tag::general)});
    for (int depth = 0; depth < 80; ++depth) {
        inner = deep.list(tag::data, {inner});
    }
    const std::string text = xml_record(deep, tag::app, {inner});
    EXPECT_NE(text.find('\n' + std::string(64, ' ') + "<data general"), std::string::npos);
    EXPECT_EQ(text.find(std::string(65, ' ')), std::string::npos);
}

TEST(listing, no_text_forges_a_line)
{
    sdb_builder b;
    b.add(b.list(tag::app, {b.text(tag::name, "a\n-------------------- [x]\t\x1b"),
                            b.null(tag::general), b.string(0x8801, "\xe2\x80\xae")}));
    for (const auto& [separator, tab] : {std::pair(" | ", "\t"), {"\t", "[x09]"}}) {
        request::sdb_opts options = listing_options({"apps"}, "plain");
        options.csv_separator = separator;
        const std::string text =
            test_support::database_report(b.build(), options, {.path = "p\r\n\x7f"}).text;
        EXPECT_TRUE(text.starts_with("-------------------- [p[CRLF][x7f]]\n1")) << text;
        EXPECT_NE(text.find("a[LF]-------------------- [x]" + std::string(tab) + "[x1b]\n"),
                  std::string::npos);
        EXPECT_NE(text.find("[U+202E]\n"), std::string::npos);
    }
}

// Thousands of records that share what they refer to.
bytes many_records()
{
    sdb_builder b;
    std::vector<node> fixes;
    for (int i = 0; i < 20; ++i) {
        fixes.push_back(b.list(i % 2 == 0 ? tag::shim : tag::patch,
                               {b.text(tag::name, "fix" + std::to_string(i)),
                                b.list(tag::inexclude, {b.null(tag::include)})}));
    }
    for (std::size_t i = 0; i < 4000; ++i) {
        const std::string name = "program " + std::to_string(i);
        std::vector<node> tags = {b.text(tag::name, name), b.qword(tag::modtime, i << 48),
                                  b.list(tag::matching_file, {b.text(tag::name, name + " & <co>"),
                                                              b.dword(tag::size, 1u << i % 32)})};
        for (std::size_t fix = 0; fix < i % 4; ++fix) {
            tags.push_back(
                b.list(tag::shim_ref, {b.reference(tag::shim_tagid, fixes[(i + 7 * fix) % 20])}));
        }
        b.add(b.list(tag::exe, tags));
    }
    return b.add(b.list(tag::library, fixes)).build();
}

TEST(listing, long_listings_read_as_if_made_one_record_after_the_other)
{
    // A listing whose first records are passed over, so that no line has set the base of depths.
    sdb_builder late;
    // One whose records come to more items than a listing may have, and to long stretches of text.
    sdb_builder swollen;
    std::vector<node> items(4000);
    std::ranges::generate(items, [&] { return swollen.null(tag::general); });
    const node shim = swollen.list(tag::shim, items);
    for (int i = 0; i < 700; ++i) {
        const std::string name = "n" + std::to_string(i);
        late.add(i < 300 ? late.list(tag::exe, {late.text(tag::name, name)})
                         : late.list(tag::exe, {late.text(tag::name, name), late.null(tag::general),
                                                late.null(tag::include)}));
        swollen.add(swollen.list(
            tag::exe, {swollen.text(tag::name, name), swollen.null(tag::general),
                       swollen.list(tag::shim_ref, {swollen.reference(tag::shim_tagid, shim)})}));
    }
    swollen.add(swollen.list(tag::library, {shim}));
    request::sdb_opts plainly = listing_options({"exes"});
    plainly.bounds.threads = 1;
    plainly.bounds.folded_bytes = 0;
    std::string listed;
    for (const bytes& image : {many_records(), late.build(), swollen.build()}) {
        const test_support::loaded_database in(image);
        for (const char* const form : {"plain", "xml"}) {
            plainly.form = form;
            const made_report one_by_one = test_support::database_report(in.database, plainly);
            const made_report made =
                test_support::database_report(in.database, listing_options({"exes"}, form));
            EXPECT_GT(made.text.size(), 10'000u);
            EXPECT_TRUE(made.text == one_by_one.text) << form << ' ' << image.size();
            EXPECT_EQ(made.state, one_by_one.state);
            EXPECT_EQ(made.notices, one_by_one.notices);
            listed = made.text;
        }
    }
    // The last records follow nothing any more.
    EXPECT_LT(listed.size() - listed.rfind("n699"), 200u);
}

// Records that refer to fixes through layers, to each other and, some of them, in a circle, at several
// depths.
sdb_builder entangled_records()
{
    sdb_builder b;
    const auto reference = [&](std::string_view to) {
        return b.list(tag::shim_ref, {b.text(tag::name, to), b.reference(tag::shim_tagid, to)});
    };
    const auto fix = [&](std::string_view called, std::vector<node> more) {
        more.insert(more.begin(), {b.text(tag::name, called), b.dword(tag::flags, 1)});
        return b.label(called, b.list(tag::shim, more));
    };
    b.add(b.list(tag::library,
                 {fix("a", {}), fix("b", {b.list(tag::inexclude, {b.text(tag::module, "<m>")})}),
                  fix("c", {reference("a"), reference("b")}),
                  fix("d", {reference("e"), b.dword(tag::size, 2)}),
                  fix("e", {reference("d"), reference("c")}),
                  fix("f", {reference("exe 3"), reference("a")}), fix("h", {reference("e")}),
                  fix("g", {b.list(tag::matching_file,
                                   {b.text(tag::name, "*"), b.text(tag::module, "x")})})}));
    for (int i = 0; i < 24; ++i) {
        const std::string name = "exe " + std::to_string(i);
        std::vector<node> tags = {b.text(tag::name, name), b.dword(tag::flags, 7)};
        for (const char* const to : {"a", "b", "c", "d", "e", "f", "g", "h"}) {
            if ((i * 5 + to[0]) % 3 != 0) {
                tags.push_back(reference(to));
            }
        }
        tags.push_back(b.list(tag::matching_file, {b.text(tag::name, "*"), reference("c")}));
        b.add(b.label(name, b.list(tag::exe, tags)));
    }
    return b;
}

TEST(listing, what_is_followed_again_reads_as_if_made_anew)
{
    const bytes sound = entangled_records().build();
    std::minstd_rand dice(1);
    for (int damages = 0; damages < 150; ++damages) {
        bytes image = sound;
        for (int i = 0; i < damages % 5; ++i) {
            image[12 + dice() % (image.size() - 12)] = static_cast<std::uint8_t>(dice());
        }
        sdb::sdb_database database;
        if (database.load_image(io::byte_vector(image.begin(), image.end())) !=
            sdb::load_result::loaded) {
            continue;
        }
        request::sdb_opts options =
            listing_options({"apps", "shims"}, damages % 2 == 0 ? "xml" : "plain");
        options.bounds.threads = 1;
        options.bounds.text_times_image = damages < 50 ? 64 : 0;
        options.bounds.text_bytes = dice() % 60'000;
        options.bounds.last_record_text = dice() % 2'000;
        options.bounds.followed_records = damages % 3 == 0 ? 3 : 32;
        options.bounds.record_items = damages % 7 == 0 ? 60 : 100'000;
        const made_report kept = test_support::database_report(database, options);
        options.bounds.folded_bytes = 0;
        const made_report made = test_support::database_report(database, options);
        EXPECT_EQ(kept.text, made.text) << damages;
        EXPECT_EQ(kept.notices, made.notices) << damages;
    }
}

} // namespace
