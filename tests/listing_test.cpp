#include <algorithm>
#include <regex>

#include <gtest/gtest.h>

#include "form/forms.h"
#include "report/record_listing.h"
#include "sdb/tags.h"
#include "support/database_text.h"
#include "support/reports.h"

namespace {

namespace tag = sdb::tag;
using test_support::bytes;
using test_support::listing_options;
using test_support::made_report;
using test_support::node;
using test_support::sdb_builder;

struct listing : testing::Test, sdb_builder {
    bytes many_records();
};

// The one record of a database that holds it alone, without the document around it.
std::string xml_record(sdb_builder& b, std::uint16_t tag, const std::vector<node>& children)
{
    b.add(b.list(tag, children));
    const std::string text =
        test_support::database_report(b.build(), test_support::tag_options(tag)).text;
    constexpr std::string_view opening = "<shimdb>\n";
    constexpr std::string_view closing = "\n</shimdb>\n";
    EXPECT_TRUE(text.starts_with(opening) && text.ends_with(closing)) << text;
    return text.substr(opening.size(), text.size() - opening.size() - closing.size());
}

TEST_F(listing, nothing_to_list)
{
    add({list(tag::exe, {text(tag::name, "bare")}), list(tag::library, {})});
    const std::pair<std::vector<std::string_view>, std::string> cases[] = {
        {{"exes", "shims"}, "\n\n"}, // a line end for each tag, and no words
        {{"apps", "fixes", "exes", "shims"}, "No Apps found\nNo fixes found\n\n\n"},
        {{}, "Check the options you passed in [either erroneous or a mismatch]...\n"},
    };
    for (const auto& [listings, expected] : cases) {
        request::sdb_opts options = listing_options({}, "plain");
        options.listings = listings;
        const made_report made = test_support::database_report(build(), options);
        EXPECT_EQ(made.asked, !listings.empty());
        EXPECT_EQ(made.asked ? made.text : made.text + made.notices, expected);
    }
}

TEST_F(listing, plain_lines)
{
    add(list(tag::library,
             {list(tag::patch, {text(tag::name, "P \"1\""),
                                patch_bits({test_support::match_op("m", 1, {1, 2}),
                                            test_support::replace_op("m", 2, {})}),
                                binary(tag::patch_bits, {1}),
                                list(tag::data, {dword(tag::data_dword, 0x12), null(tag::general),
                                                 qword(0x5abc, 1), binary(tag::file_bits, {1})}),
                                string_ref(tag::description, 0x999)})}));
    std::string expected = R"(-------------------- [c:\a&sdb]
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
    EXPECT_EQ(test_support::database_report(build(), listing_options({"patches"}, "plain")).text,
              expected);
}

TEST_F(listing, depths_are_hexadecimal_and_wide_fields_stand_whole)
{
    node inner = list(tag::exe, {null(tag::upgrade_action_proceed_to_mediasetup)});
    for (int depth = 0; depth < 15; ++depth) {
        inner = list(tag::data, {inner});
    }
    // Offsets beyond 24 bits and sizes beyond 20 take the digits that they need.
    const node far = list(tag::flag, {dword(tag::flags, 1)});
    add(list(tag::app, {inner, binary(tag::file_bits, bytes(0xfffffe)), far}));
    request::sdb_opts options = listing_options({"apps"}, "plain");
    options.csv_separator = "|";
    const std::string text = test_support::database_report(build(), options).text;
    for (const std::string_view line :
         {"1|000012|7006|1000072|app  ", "2|000018|700f|0005c|data  ", "9|000042|700f|00032|data ",
          "a|000048|700f|0002c|data  ", "10|00006c|700f|00008|data  ",
          "12|000078|1012|     |upgrade_action_proceed_to_mediasetup|null      |set\n",
          "2|100007e|7013|00006|flag  ", "3|1000084|4017|     |flags  "}) {
        EXPECT_NE(text.find("\n" + std::string(line)), std::string::npos) << line;
    }
    EXPECT_EQ(offset_of(far), 0x100007eu);
}

TEST_F(listing, nested_elements)
{
    const node fix =
        list(tag::shim, {text(tag::name, "Fix"),
                         list(tag::inexclude, {text(tag::module, "a&b"), null(tag::general)}),
                         list(tag::inexclude, {list(tag::data, {text(tag::name, "d")})}),
                         list(tag::inexclude, {null(tag::include), list(tag::data, {})})});
    add(list(tag::library, {fix}));
    EXPECT_EQ(xml_record(*this, tag::exe,
                         {text(tag::name, "svc.exe"), text(tag::app_name, "\"Svc\""),
                          dword(tag::os_platform, 2), text(tag::description, "D & E"),
                          list(tag::shim_ref, {reference(tag::shim_tagid, fix)})}),
              R"( <exe name="svc.exe" os_platform="win64" description="CDATA">
  <app app_name="'Svc'" />
  <description>
   <![CDATA[D & E]]>
  </description>
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

TEST_F(listing, an_application_element_without_children_ends_doubled)
{
    const std::uint16_t heads[] = {0x7007, 0x7017, 0x702d, 0x702e, 0x702f,
                                   0x7034, 0x7035, 0x7036, 0x703a, 0x7012};
    for (const std::uint16_t head : heads) {
        sdb_builder b;
        EXPECT_EQ(xml_record(b, head,
                             {b.text(tag::app_name, "A"), b.dword(tag::os_platform, 1),
                              b.text(tag::vendor, "V"), b.text(tag::name, "n")}),
                  " <" + sdb::tag_name(head) + " os_platform=\"win32\" name=\"n\">\n" +
                      "  <app app_name=\"A\" vendor=\"V\" / />\n");
    }
}

TEST_F(listing, attributes_told_in_words)
{
    const std::string help = "htmlhelpid = 0;langid = 0x409;apphelp_title = 0x00000000;"
                             "problemseverity = ";
    const struct {
        std::uint16_t tag;
        std::string held;
        const char* attributes;
        bool base16 = true;
    } cases[] = {
        {tag::exe, "os_platform = 1;general", R"(os_platform="win32" general="set")"},
        {tag::exe, "os_platform = 0x20;general", R"(os_platform="win64" general="set")"},
        // The digit 2 is looked for in the number as it is shown.
        {tag::exe, "os_platform = 18;general", R"(os_platform="win64" general="set")"},
        {tag::exe, "os_platform = 18;general", R"(os_platform="win32" general="set")", false},
        {tag::exe, "os_platform = 2;general", R"(os_platform="win64" general="set")", false},
        {tag::kdriver, "vendor = V;os_platform = 1", R"(vendor="V" os_platform="0x00000001")"},
        {tag::apphelp, help + "0;flags = 1", R"(problemseverity="0x00000000" flags="0x00000001")"},
        {tag::apphelp, help + "1;flags = 1", R"(problemseverity="softblock" flags="0x00000001")"},
        {tag::apphelp, help + "3;general",
         R"(problemseverity="softblock hardblock" general="set")"},
        {tag::apphelp, help + "4;general", R"(problemseverity="0x00000004" general="set")"},
        {tag::apphelp, "flags = 0;problemseverity = 2", R"(flags="0" problemseverity="hardblock")",
         false},
    };
    for (const auto& [tag, held, attributes, base16] : cases) {
        const std::string name = sdb::tag_name(tag);
        const std::string text = std::regex_replace(held, std::regex(";"), "\n  ");
        request::sdb_opts options = test_support::tag_options(tag);
        options.base16 = base16;
        EXPECT_EQ(
            test_support::database_report(
                test_support::database_from_text("database\n " + name + "\n  " + text), options)
                .text,
            "<shimdb>\n <" + name + ' ' + attributes + " />\n\n</shimdb>\n");
    }
}

TEST_F(listing, matching_files_are_escaped)
{
    const std::tuple<std::string, std::string, std::string> cases[] = {
        {"\xc3\x84 \"&\t", "*", "name=\"%c3%84 '&amp;%09\" module=\"*\""},
        {"e", "\x7f", "name=\"%7f\" module=\"*\""},
        {"e", "12345\x7f", "name=\"12345%7f\" module=\"*\""},
        {"", "*", "name=\"*\" module=\"*\""},
        {"", "\xc3\xa9", "name=\"\xc3\xa9\" module=\"*\""}, // escaped only beside a record's name
    };
    for (const auto& [record_name, name, expected] : cases) {
        sdb_builder b;
        std::vector<node> tags = {
            b.list(tag::matching_file, {b.text(tag::name, name), b.text(tag::module, "*"),
                                        b.string(0x8801, "\"<>\"")})};
        if (!record_name.empty()) {
            tags.insert(tags.begin(), b.text(tag::name, record_name));
        }
        const std::string text = xml_record(b, tag::exe, tags);
        const std::string inline_text = record_name.empty() ? "\"<>\"" : "\"&lt;&gt;\"";
        EXPECT_NE(text.find("  <matching_file " + expected + " stringtable_item=\"" + inline_text +
                            "\" />\n"),
                  std::string::npos)
            << text;
    }
}

TEST_F(listing, long_text_is_told_by_its_bytes)
{
    const std::string long_text = "\xc3\xa9\xc3\xa9" + std::string(75, '"') + "&"; // 80 of them
    EXPECT_EQ(xml_record(*this, tag::app, {text(tag::vendor, long_text), null(tag::general)}),
              " <app vendor=\"CDATA\" general=\"set\">\n  <vendor>\n   <![CDATA[\n    " +
                  long_text + "\n   ]]>\n  </vendor>\n </app>\n");
}

TEST_F(listing, binaries_that_are_child_elements)
{
    EXPECT_EQ(xml_record(*this, tag::patch,
                         {binary(tag::text, {1, 2}),
                          patch_bits({test_support::match_op("m<", 0x10, {1, 0xab}),
                                      test_support::replace_op("r", 0xdeadbeef, {})}),
                          text(tag::name, "a>b"), binary(tag::patch_bits, {}), binary(0x9012, {1}),
                          binary(tag::file_bits, {})}),
              R"( <patch name="CDATA" reg_value_data_binary="">
  <name>
   <![CDATA[a>b]]>
  </name>
  <text binary="" />
  <patch_bits>
   <op module="m<" type="match" address="0x00000010">01 ab</op>
   <op module="r" type="replace" address="0xdeadbeef"></op>
  </patch_bits>
  <patch_bits>
  </patch_bits>
  <file_bits binary="" />
 </patch>
)");
}

// The records of executables, printed one after the other.
made_report made_one_by_one(const sdb::sdb_database& database, std::string_view form)
{
    const request::sdb_opts options;
    uni::text_buffer text;
    const auto writer = form::form_of(form).make(text, options, {});
    writer->begin({&database, test_support::about().path});
    model::search everything(database, {});
    report::record_listing listing(database, everything, *writer);
    for (const sdb::tag_ordinal ordinal : database.ordinals_by_tag(tag::exe)) {
        listing.print_record(database.offset_at(ordinal));
    }
    writer->end_section();
    writer->end();
    made_report made;
    made.text = text.view();
    made.state = writer->state();
    return made;
}

// Thousands of records that share what they refer to.
bytes listing::many_records()
{
    std::vector<node> fixes;
    for (int i = 0; i < 20; ++i) {
        fixes.push_back(list(i % 2 == 0 ? tag::shim : tag::patch,
                             {text(tag::name, "fix" + std::to_string(i)),
                              list(tag::inexclude, {null(tag::include)})}));
    }
    for (std::size_t i = 0; i < 4000; ++i) {
        const std::string name = "program " + std::to_string(i);
        std::vector<node> tags = {text(tag::name, name), qword(tag::modtime, i << 48),
                                  list(tag::matching_file, {text(tag::name, name + " & <co>"),
                                                            dword(tag::size, 1u << i % 32)})};
        for (std::size_t fix = 0; fix < i % 4; ++fix) {
            tags.push_back(
                list(tag::shim_ref, {reference(tag::shim_tagid, fixes[(i + 7 * fix) % 20])}));
        }
        add(list(tag::exe, tags));
    }
    return add(list(tag::library, fixes)).build();
}

TEST_F(listing, long_listings_read_as_if_made_one_record_after_the_other)
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
    const std::pair<bytes, std::string_view> cases[] = {
        {many_records(), "xml"}, {many_records(), "plain"}, {late.build(), "xml"},
        {late.build(), "plain"}, {swollen.build(), "xml"},
    };
    std::string listed;
    for (const auto& [image, form] : cases) {
        const test_support::loaded_database in(image);
        const made_report one_by_one = made_one_by_one(in.database, form);
        const made_report made =
            test_support::database_report(in.database, listing_options({"exes"}, form));
        EXPECT_GT(made.text.size(), 10'000u);
        EXPECT_TRUE(made.text == one_by_one.text) << form << ' ' << image.size();
        EXPECT_EQ(made.state, one_by_one.state);
        listed = made.text;
    }
    // The last records follow nothing any more.
    EXPECT_LT(listed.size() - listed.rfind("n699"), 200u);
}

} // namespace
