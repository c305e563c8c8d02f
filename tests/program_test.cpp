// The properties of a program, and what is told of them.

#include "model/pe_properties.h"

#include <algorithm>
#include <set>

#include <gtest/gtest.h>

#include "sdb/tags.h"
#include "support/pe_builder.h"
#include "support/reports.h"

namespace {

namespace tag = sdb::tag;
using test_support::bytes;
using test_support::program_report;
using test_support::row_options;

model::pe_list properties(const bytes& image)
{
    model::pe_list list;
    const bool is_program = model::read_pe_stats(list, test_support::source_of(image), "");
    EXPECT_EQ(is_program, !list.empty());
    return list;
}

TEST(program, every_fact_is_filed_under_its_tags)
{
    const model::pe_list list = properties(test_support::sample_program(true));
    struct row {
        std::vector<std::uint16_t> tags;
        const char* name;
        const char* text;
        std::uint64_t number;
        std::uint16_t language = 0;
    };
    const char* const german = "stringfileinfo_040704e4_companyname";
    const row rows[] = {
        {{0x4001}, "FileSize", "", test_support::sample_program(true).size()},
        {{0x4003, 0x400b}, "PECheckSum", "", 0x12345},
        {{0x4006}, "ModuleType", "Win32", 3},
        {{0x4009}, "fileos", "nt, win32", 0x40004},
        {{0x400a}, "filetype", "app", 1},
        {{0x400c, 0x5018}, "OSMajorVersion", "", 6},
        {{0x400d, 0x5019}, "OSMinorVersion", "", 3},
        {{0x401c}, "LinkerVersion", "", 0x20005},
        {{0x401d, 0x401e, 0x4033}, "CompileTimestamp", "", 0x5f5e1000},
        {{0x5002, 0x500d, 0x5013, 0x6013}, "fileversion", "1.2.3.65535", 0x0001'0002'0003'ffff},
        {{0x5003, 0x5006, 0x5012, 0x6011}, "productversion", "4.5.6.7", 0x0004'0005'0006'0007},
        {{0x6009}, german, "Akme GmbH", 0, 0x407},
        {{0x6009}, "stringfileinfo_040904b0_companyname", "Acme, Inc.", 0, 0x409},
        {{0x6010}, "stringfileinfo_040704e4_productname", "Werkzeug", 0, 0x407},
        {{0x6010}, "stringfileinfo_040904b0_productname", "Tools", 0, 0x409},
        {{0x6012}, "stringfileinfo_040904b0_filedescription", "Caf\u00e9 \u8a08", 0, 0x409},
        {{0x6014}, "stringfileinfo_040904b0_originalfilename", "Tool.exe", 0, 0x409},
        {{0x6015}, "stringfileinfo_040904b0_internalname", "tool", 0, 0x409},
        {{0x6016}, "stringfileinfo_040904b0_legalcopyright", "\u00a9 Acme\r\nAll of it", 0, 0x409},
    };
    std::set<std::tuple<std::uint16_t, std::string, std::string, std::uint64_t, std::uint16_t>>
        found, expected;
    for (const model::pe_property& it : list) {
        found.emplace(it.tag, it.name, it.text, it.number, it.sub_tag);
    }
    for (const row& one : rows) {
        for (const std::uint16_t tag : one.tags) {
            expected.emplace(tag, one.name, one.text, one.number, one.language);
        }
    }
    EXPECT_EQ(found, expected);
    EXPECT_EQ(list.size(), expected.size());
    EXPECT_TRUE(std::ranges::is_sorted(list, {}, &model::pe_property::tag));
    EXPECT_EQ(model::find_property(list, tag::company_name)->name, german);
    EXPECT_EQ(model::find_property(list, 0x4011), nullptr);
}

TEST(program, which_entries_become_properties)
{
    using test_support::version_block;
    using test_support::version_text;
    const bytes resource =
        version_block(u"VS_VERSION_INFO", bytes(52),
                      {version_block(u"Translation", {7, 4, 0xe4, 4}, {}),
                       version_text(u"CompanyDescription", u"company comes first"),
                       version_text(u"Description of StringFile_Info", u"left out"),
                       version_text(u"LegalTrademarks", u"left out too")});
    test_support::resource_node root = test_support::lone_resource(16, resource);
    const auto list = properties(test_support::pe_with_resources(root).build());
    const model::pe_property* language = model::find_property(list, 0x4011);
    ASSERT_NE(language, nullptr);
    EXPECT_EQ(std::tuple(language->text, language->number, language->sub_tag),
              std::tuple("0x0407", 0x407u, 0x407u));
    EXPECT_NE(model::find_property(list, 0x4012), nullptr);
    EXPECT_EQ(model::find_property(list, tag::company_name)->name, "companydescription");
    EXPECT_EQ(model::find_property(list, tag::file_description), nullptr);
    EXPECT_EQ(model::find_property(list, tag::verfileos)->text, "unk");
    root.entries.insert(root.entries.begin(),
                        {.name = u"PACKTHEM_VERSION", .entries = {{.id = 1, .data = bytes(8)}}});
    EXPECT_EQ(properties(test_support::pe_with_resources(root).build()).size(), list.size())
        << "another resource with the word in its name";
    EXPECT_EQ(properties(test_support::pe_plan().build()).size(), 12u) << "no resources";
    EXPECT_TRUE(properties(bytes(4096)).empty());
}

TEST(program, lines)
{
    request::sdb_opts options = row_options("multiline");
    options.csv_separator = " | ";
    const model::pe_list list = {{"CompileTimestamp", "", 0x5f5e1000, 0x401d},
                                 {"FileSize", "", 0x123456789a, 0x4001},
                                 {"FileSize", "", 1, 0x4002},
                                 {"text", "two\nlines", 0, 0x6001}};
    EXPECT_EQ(program_report(list, options, {.path = "T.exe"}).text,
              "Source file      | T.exe       \n"
              "CompileTimestamp | 0x5f5e1000 [2020-09-13 12:26:40.000 UTC]\n"
              "FileSize         | 0x123456789a\n"
              "text             | two[LF]lines\n");
    options.csv_separator = ";";
    EXPECT_EQ(program_report({{"CompileTimestamp", "", 0xf0000000, 0x401d}}, options).text,
              "Source file     ;c:\\a&b.sdb  \nCompileTimestamp;0xf0000000 [  UTC]\n"); // too late
    EXPECT_EQ(program_report(list, row_options("csvl2t")).text, "");
}

TEST(program, rows)
{
    const auto whole = properties(test_support::sample_program(false));
    EXPECT_EQ(
        program_report(whole, row_options("csv"), {.path = "C:\\Tools\\Tool.exe"}).text,
        "source file                               ,compile date, time-UTC    ,compile rawdate   ,"
        "company name   ,description,file os           ,file size         ,file type,"
        "file version   ,internal name,copyright                               ,"
        "linker ver        ,os major ver      ,os minor ver      ,orig filename,"
        "PE checksum       ,product name        ,product ver    ,path of file\n"
        "Tool.exe                                  ,1970-01-01  , 20:42:45.000,74565             ,"
        "Akme GmbH      ,Caf\u00e9 \u8a08,nt  win32         ,                  ,app   ,"
        "1.2.3.65535    ,tool    ,\u00a9 Acme[CRLF]All of it                  ,"
        "                  ,                  ,                  ,Tool.exe    ,"
        "                  ,Werkzeug            ,4.5.6.7        ,C:\\Tools\n");
    request::sdb_opts options = row_options("csv");
    options.no_whitespace = true;
    EXPECT_EQ(program_report(properties(test_support::pe_plan{.checksum = 0}.build()), options,
                             {.path = "a,b", .state = {.head_stands = true}})
                  .text,
              "a b,, ,0, , , ,, , , , ,,,, ,, , ,.\n");
    options.pad_separator = false;
    EXPECT_EQ(program_report({}, options, {.path = "a,b"}).text,
              "source file,compile date,time-UTC,compile rawdate,company name,description,file os,"
              "file size,file type,file version,internal name,copyright,linker ver,os major ver,"
              "os minor ver,orig filename,PE checksum,product name,product ver,path of file\n"
              "a b, , , , , , , , , , , , , , , , , , ,.\n");
}

} // namespace
