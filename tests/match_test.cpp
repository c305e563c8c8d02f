#include "model/match.h"
#include "model/match_index.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "form/forms.h"
#include "sdb/tags.h"
#include "support/pe_builder.h"
#include "support/reports.h"
#include "uni/text.h"

namespace {

namespace fs = std::filesystem;
namespace tag = sdb::tag;
using model::pe_list;
using test_support::bytes;
using test_support::node;
using test_support::sdb_builder;

// The records that catch a program.
model::match_results find(sdb_builder& b, const pe_list& file, const std::string& path = "Tool.exe",
                          bool base16 = true)
{
    const test_support::loaded_database in(b.build());
    request::sdb_opts options;
    options.base16 = base16;
    uni::text_buffer nowhere;
    const auto writer = form::form_of("xml").make(nowhere, options, {});
    writer->begin({&in.database, ""});
    const model::tag_texts texts = [&](std::uint32_t offset, std::size_t longest) {
        return writer->tag_text(offset, longest);
    };
    model::match_results results;
    model::looked_at_lists seen;
    EXPECT_TRUE(model::match_program(results, in.database, file, path, texts, {}, &seen));
    // What many programs are held against finds the same lists.
    const model::looked_at_lists indexed = model::match_index(in.database, texts).find(path).lists;
    EXPECT_EQ(indexed.lists, seen.lists);
    EXPECT_TRUE(indexed.by_path == seen.by_path || seen.lists.empty());
    return results;
}

// Records that hold one list each, and whether they catch a program.
struct match_case {
    bool caught;
    const char* name;
    std::vector<node> properties;
};

void check(sdb_builder& b, std::span<const match_case> cases, const pe_list& file,
           bool base16 = true)
{
    std::vector<node> records;
    for (const match_case& one : cases) {
        records.push_back(b.list(
            tag::exe, {b.text(tag::name, one.name), b.list(tag::matching_file, one.properties)}));
        b.add(records.back());
    }
    const model::match_results found = find(b, file, "Tool.exe", base16);
    for (std::size_t i = 0; i < cases.size(); ++i) {
        EXPECT_EQ(found.contains(b.offset_of(records[i])), cases[i].caught) << "case " << i;
    }
}

TEST(match, each_number_is_compared_by_its_rule)
{
    // The tags that are caught by 1000 alone, by more too, and by less too.
    const std::vector<std::uint16_t> rules[] = {
        {tag::size, tag::module_type, tag::pe_checksum, tag::linker_version, tag::link_date, 0x400c,
         0x400d, tag::bin_file_version, tag::bin_product_version},
        {tag::upto_link_date, tag::upto_bin_product_version, tag::upto_bin_file_version,
         tag::upto_packageid_version, tag::upto_osmaxversiontested, tag::quirk_enabled_version_lt},
        {tag::from_link_date, tag::from_bin_product_version, tag::from_bin_file_version,
         tag::from_packageid_version, tag::from_osmaxversiontested},
    };
    sdb_builder b;
    std::vector<match_case> cases;
    pe_list file = {{"", "tool.exe", 0, tag::name}};
    for (const auto& tags : rules) {
        for (const std::uint16_t number : tags) {
            for (const std::uint32_t value : {999u, 1000u, 1001u}) {
                const bool is_caught = value == 1000 || &tags == &rules[value > 1000 ? 1 : 2];
                const bool is_long = sdb::tag_type(number) == sdb::type::qword;
                cases.push_back({is_caught,
                                 "Record",
                                 {b.text(tag::name, "tool.exe"),
                                  is_long ? b.qword(number, value) : b.dword(number, value)}});
            }
            file.push_back({"", "", 1000, number});
        }
    }
    std::ranges::sort(file, {}, &model::pe_property::tag);
    check(b, cases, file);
}

TEST(match, properties_and_names)
{
    for (const bool base16 : {true, false}) {
        sdb_builder b;
        const auto name = [&b] { return b.text(tag::name, "tool.exe"); };
        const auto nothing = [&b] { return b.string_ref(tag::name, 0x7fffff); };
        const auto product = [&b] { return b.text(tag::product_name, "tool.exe"); };
        const auto type = [&b] { return b.dword(tag::module_type, 3); };
        const match_case cases[] = {
            {true, "x", {name(), b.text(tag::company_name, "Akm\u00e9 GmbH")}},
            {false, "x", {name(), b.text(tag::company_name, "Akm\u00e9 GmbHx")}},
            // Zeros are equal, though what the file has is no text.
            {true, "x", {name(), b.dword(tag::pe_checksum, 0)}},
            {false, "x", {name(), b.dword(tag::pe_checksum, 1)}},
            // The comparison ends at the first tag of which the file tells nothing: 0x4002 comes
            // before the checksum, 0x4043 behind it.
            {true, "x", {name(), b.dword(tag::pe_checksum, 1), b.dword(tag::offset, 1)}},
            {false, "x", {name(), b.dword(tag::pe_checksum, 1), b.dword(tag::size_of_image, 1)}},
            {false, "x", {b.text(tag::name, "TOOL.EXE")}}, // found, but has capital letters
            {true, "tool.exe", {b.text(tag::name, "*"), type()}},
            {false, "Tool.exe", {b.text(tag::name, "*"), type()}},
            {true, "tool.exe", {type()}}, // the record's name
            {false, "tool.exe", {b.text(tag::name, "other"), type()}},
            {false, "x", {b.text(tag::name, "%windir%\\tool.exe"), type()}},
            // What has no text takes that of the member before it.
            {false, "x", {nothing(), product()}},
            {false, "x", {product(), nothing()}},
            {false, "tool.exe", {nothing()}}, // no text, not the record's
        };
        check(b, cases,
              {{"", "", 3, tag::module_type},
               {"", "", 0, tag::pe_checksum},
               {"", "tool.exe", 0, tag::name},
               {"", "Akm\u00e9 GmbH", 0, tag::company_name},
               {"", "Werkzeug", 0, tag::product_name}},
              base16);
    }
}

TEST(match, a_whole_path_counts_where_no_list_has_the_name)
{
    for (const auto& [path, key] :
         {std::pair{"C:/Windows\\System32/Foo.exe", "%windir%\\system32\\foo.exe"},
          {"/mnt/c:\\windows\\foo.exe", "\\mnt\\%windir%\\foo.exe"}}) {
        const pe_list file = {{"", "", 4096, tag::size}, {"", "foo.exe", 0, tag::name}};
        for (const bool name_too : {false, true}) {
            sdb_builder b;
            // 0x4002 is unknown and comes before the name, whose text would not be the file's.
            b.add(b.list(tag::exe, {b.text(tag::name, key),
                                    b.list(tag::matching_file, {b.dword(tag::offset, 0)})}));
            if (name_too) {
                b.add(b.list(tag::exe, {b.list(tag::matching_file, {b.text(tag::name, "foo.exe"),
                                                                    b.dword(tag::size, 1)})}));
            }
            EXPECT_EQ(find(b, file, path).size(), name_too ? 0u : 1u) << path;
        }
    }
}

const std::string tool = (fs::path(testing::TempDir()) / "quilt_match" / "Tool.exe").string();

// What is told of a match with a program.
test_support::made_report report(const bytes& image, std::string_view form,
                                 const bytes& program = test_support::sample_program(true))
{
    fs::create_directories(fs::path(tool).parent_path());
    std::ofstream(tool, std::ios::binary) << std::string(program.begin(), program.end());
    auto options = test_support::listing_options({"apps"}, form); // makes no difference
    options.match_mode = true;
    options.pe_path = tool;
    auto made = test_support::database_report(image, options, {.path = "a.sdb"});
    fs::remove_all(fs::path(tool).parent_path());
    return made;
}

TEST(match_report, records_are_printed_once_behind_a_line_for_each_list)
{
    sdb_builder b;
    const auto matching = [&b](std::string_view label, std::uint32_t module_type) {
        // Texts are compared as they are stored, not as they are shown.
        return b.label(
            label, b.list(tag::matching_file,
                          {b.text(tag::name, "tool.exe"), b.dword(tag::module_type, module_type),
                           b.text(tag::legal_copyright, "\u00a9 Acme\r\nAll of it")}));
    };
    b.add(b.list(tag::exe, {b.text(tag::name, "one"), b.dword(tag::exe_type, 1), matching("a", 3),
                            matching("no", 4), matching("b", 3)}));
    b.add(b.list(tag::exe, {b.text(tag::name, "two"), matching("not", 4)}));
    const auto made = report(b.build(), "xml");
    EXPECT_TRUE(made.asked);
    char lines[64];
    std::snprintf(lines, sizeof lines, "match tagid %08x\nmatch tagid %08x\n\n", b.offset_of("a"),
                  b.offset_of("b"));
    EXPECT_EQ(made.console, lines);
    EXPECT_EQ(made.notices, "");
    EXPECT_NE(made.text.find("name=\"one\""), std::string::npos) << made.text;
    EXPECT_EQ(made.text.find("\"two\""), std::string::npos);
    EXPECT_TRUE(made.text.ends_with("</shimdb>\n")) << made.text;
}

TEST(match_report, names_a_program_that_is_none_and_a_database_without_a_match)
{
    const auto made = report(sdb_builder().build(), "plain", bytes(100));
    EXPECT_TRUE(made.asked);
    EXPECT_EQ(made.text, "");
    EXPECT_EQ(made.notices, "Problem pulling PE stats from file " + tool +
                                ": is no program\nno matches found: a.sdb\n");
}

// A record must not hide behind records that stand in one another, and who reads the report learns
// that not all of these were looked at.
TEST(match_report, nested_records_hide_no_other)
{
    sdb_builder b;
    const std::uint32_t one_byte = b.table_bytes(bytes{0x01, 0x88, 1, 0, 0, 0, 'x'});
    std::vector<node> nested;
    for (int i = 0; i < 2'000; ++i) {
        nested.push_back(b.list(tag::matching_file,
                                {b.text(tag::name, "tool.exe"), b.dword(tag::module_type, 4)}));
        nested = {b.list(tag::exe, nested)};
    }
    const node list = b.list(tag::matching_file, {b.text(tag::name, "*")});
    const node hidden = b.list(tag::exe, {b.string_ref(tag::name, one_byte), // reads as no name
                                          b.text(tag::name, "tool.exe"), list});
    b.add({nested.front(), hidden});
    const auto made = report(b.build(), "plain");
    char line[64];
    std::snprintf(line, sizeof line, "match tagid %08x\n\n", b.offset_of(list));
    EXPECT_EQ(made.console, line);
    EXPECT_EQ(made.notices, "Not all nested records could be matched: a.sdb\n");
}

// The verdict and the fix of each row of a report.
std::string verdicts_of(const std::string& rows)
{
    std::string found;
    for (const std::string& row : uni::split(rows, '\n', true)) {
        const std::vector<std::string> cells =
            uni::split(uni::replace_all(row, ",,", ",-,"), ',', false);
        if (cells.size() > 6 && cells[2] != "verdict") {
            found += cells[2] + " " + cells[6] + "; ";
        }
    }
    return found;
}

TEST(match, of_many_tells_what_is_caught_what_nearly_is_and_what_nobody_knows)
{
    sdb_builder b;
    const auto exe = [&](const char* fix, const std::vector<node>& facts) {
        b.add(b.list(tag::exe, {b.text(tag::name, "tool.exe"), b.list(tag::matching_file, facts),
                                b.list(tag::shim_ref, {b.text(tag::name, fix)})}));
    };
    exe("Both", {b.text(tag::company_name, "C"), b.dword(tag::size, 7)});
    exe("Near", {b.text(tag::company_name, "C"), b.dword(tag::size, 8)});
    exe("Far", {b.text(tag::company_name, "D"), b.dword(tag::size, 8)});
    exe("One", {b.dword(tag::size, 8)}); // of one fact nothing is near
    exe("Unknown", {b.dword(tag::size, 7), b.qword(tag::upto_bin_file_version, 9)});
    // All lists of a record must hold, and one may mean all but what it tells.
    const auto tested = [&](const char* fix, const std::vector<node>& lists) {
        std::vector<node> children = {b.text(tag::name, "tool.exe")};
        children.insert(children.end(), lists.begin(), lists.end());
        children.push_back(b.list(tag::shim_ref, {b.text(tag::name, fix)}));
        b.add(b.list(tag::exe, children));
    };
    const auto list = [&](const std::vector<node>& facts) {
        return b.list(tag::matching_file, facts);
    };
    const auto own = [&] { return b.text(tag::name, "tool.exe"); };
    tested("Second fails", {list({b.dword(tag::size, 7)}), list({own(), b.dword(tag::size, 9)})});
    tested("All but this", {list({b.null(tag::match_logic_not), b.dword(tag::size, 7)})});
    tested("Another", {list({b.null(tag::match_logic_not), b.dword(tag::size, 9)})});
    tested("Beside", {list({b.dword(tag::size, 7)}),
                      list({b.text(tag::name, "other.dll"), b.dword(tag::size, 1)})});
    const auto choice = [&](const std::vector<node>& lists) {
        return b.list(tag::pick_one, lists);
    };
    const auto of_size = [&](std::uint32_t size) {
        return list({own(), b.dword(tag::size, size)});
    };
    const auto other = [&] {
        return list({b.text(tag::name, "other.dll"), b.dword(tag::size, 1)});
    };
    tested("Choice holds", {of_size(7), choice({of_size(9), of_size(7), other()})});
    tested("Choice fails", {of_size(7), choice({of_size(9), of_size(8)})});
    tested("Choice unknown", {of_size(7), choice({of_size(9), other()})});
    tested("Choice alone",
           {choice({list({b.text(tag::name, "*"), b.dword(tag::size, 7)}), other()})});
    tested("System", {of_size(7), b.dword(tag::os_service_pack, 1)});
    tested("Plug-in", {of_size(7), b.list(tag::match_plugin, {b.text(tag::name, "p")})});
    // A record is found by its own name too, which may be a pattern, and a driver asks for facts itself.
    const auto named = [&](const char* fix, std::uint16_t kind, const std::vector<node>& asked) {
        std::vector<node> children = asked;
        children.push_back(b.list(tag::shim_ref, {b.text(tag::name, fix)}));
        b.add(b.list(kind, children));
    };
    named("No list", tag::exe, {own()});
    named("Pattern", tag::exe,
          {b.text(tag::name, "T?ol*.exe"), list({b.text(tag::name, "*"), b.dword(tag::size, 7)})});
    named("Pattern fails", tag::exe, {b.text(tag::name, "*"), list({b.dword(tag::size, 8)})});
    named("Capitals", tag::exe,
          {b.text(tag::name, "TOOL.EXE"), list({b.text(tag::name, "*"), b.dword(tag::size, 7)})});
    named("No pattern", tag::exe, {b.text(tag::name, "t??l.ex")});
    named("Wildcard", tag::exe,
          {b.text(tag::name, "setup"), b.text(tag::wildcard_name, "*.E*E"),
           list({b.text(tag::name, "*")}), list({b.text(tag::name, "other.dll")})});
    named("Driver", tag::kdriver, {own(), b.dword(tag::size, 7), b.text(tag::company_name, "C")});
    named("Driver nearly", tag::kdriver,
          {own(), b.dword(tag::size, 8), b.text(tag::company_name, "C")});
    named("Two lists", tag::exe,
          {own(), list({b.dword(tag::size, 7)}), list({b.dword(tag::checksum, 1)})});
    named("For another", tag::exe, {b.text(tag::name, "game.exe"), list({own()})});
    named("For another's choice", tag::exe,
          {b.text(tag::name, "game.exe"), choice({list({own()})})});
    const test_support::loaded_database in(b.build());
    request::sdb_opts options = test_support::row_options("csv");
    const pe_list file = {{"", "", 7, tag::size},
                          {"", "", 2, tag::checksum},
                          {"", "C", 0, tag::company_name},
                          {"", "tool.exe", 0, tag::name}};
    const auto told = [&](bool explains) {
        options.explain = explains;
        return test_support::caught_report(file, in.database, "x\\Tool.exe", options).text;
    };
    constexpr const char* head =
        "program,database,verdict,record,record_offset,list_offset,fixes,facts\n";
    const std::string caught =
        "x\\Tool.exe,c:\\a&b.sdb,caught,tool.exe,0x00000012,0x0000001e,Both,";
    const std::string near_by =
        "x\\Tool.exe,c:\\a&b.sdb,nearly caught,tool.exe,0x0000003c,0x00000048,Near,";
    const std::string unknown =
        "x\\Tool.exe,c:\\a&b.sdb,caught as far as is known,tool.exe,0x000000b4,0x000000c0,Unknown,";
    const std::string plain = told(false);
    EXPECT_TRUE(plain.starts_with(head + caught + "\n" + unknown + "\n")) << plain;
    EXPECT_EQ(verdicts_of(plain),
              "caught Both; caught as far as is known Unknown; caught Another; "
              "caught as far as is known Beside; "
              "caught Choice holds; caught as far as is known Choice unknown; "
              "caught Choice alone; caught as far as is known System; "
              "caught as far as is known Plug-in; caught No list; "
              "caught Pattern; caught Capitals; caught as far as is known Wildcard; "
              "caught Driver; looked for -; looked for -; ");
    const std::string facts = told(true);
    for (const char* fact :
         {",No list,\"name \"\"tool.exe\"\" = ok\"\n",
          ",Pattern,\"name \"\"T?ol*.exe\"\" = ok; size 0x00000007 = ok\"\n",
          ",Wildcard,\"wildcard_name \"\"*.E*E\"\" = ok; matching_file other.dll = unknown\"\n",
          ",Choice fails,size 0x00000007 = ok; one of: size 0x00000009 = 0x00000007 no; one of: "
          "size 0x00000008 = 0x00000007 no\n",
          ",System,size 0x00000007 = ok; os_service_pack 0x00000001 = unknown\n",
          ",Two lists,size 0x00000007 = ok; checksum 0x00000001 = 0x00000002 no\n",
          ",Another,unless size 0x00000009 = 0x00000007 no\n",
          ",Driver nearly,\"size 0x00000008 = 0x00000007 no; company_name \"\"C\"\" = ok\"\n"}) {
        EXPECT_NE(facts.find(fact), std::string::npos) << fact << facts;
    }
    EXPECT_TRUE(facts.starts_with(
        head + caught + "\"size 0x00000007 = ok; company_name \"\"C\"\" = ok\"\n" + near_by +
        "\"size 0x00000008 = 0x00000007 no; company_name \"\"C\"\" = ok\"\n" + unknown +
        "size 0x00000007 = ok; upto_bin_file_version 0.0.0.9 >= unknown\n"));
}

} // namespace
