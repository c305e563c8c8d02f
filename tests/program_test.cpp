// The properties of a program, and what is told of them.

#include "model/pe_properties.h"

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
    const model::pe_outcome outcome =
        model::read_pe_stats(list, test_support::source_of(image), "");
    EXPECT_EQ(outcome, list.empty() ? model::pe_outcome::no_program : model::pe_outcome::gathered);
    return list;
}

// A program of which a read fails, or which changes while it is read.
struct unsteady_source : io::memory_source {
    using memory_source::memory_source;
    std::size_t read(std::span<std::uint8_t> out, std::uint64_t offset) override
    {
        return reads_left-- > 0 ? memory_source::read(out, offset) : 0;
    }
    bool has_failed() const noexcept override { return reads_left < 0; }
    bool has_changed() const override { return changes; }

    int reads_left = 1000;
    bool changes = false;
};

TEST(program, a_failed_read_gives_nothing_and_a_change_is_told)
{
    const bytes image = test_support::sample_program(true);
    const auto outcome_of = [&](int reads, bool changes) {
        auto source =
            std::make_unique<unsteady_source>(io::byte_vector(image.begin(), image.end()));
        source->reads_left = reads;
        source->changes = changes;
        model::pe_list list;
        const model::pe_outcome outcome = model::read_pe_stats(list, std::move(source), "");
        EXPECT_EQ(list.empty(), outcome == model::pe_outcome::unreadable);
        return outcome;
    };
    int reads = 0;
    for (; reads < 1000 && outcome_of(reads, false) == model::pe_outcome::unreadable; ++reads) {
    }
    EXPECT_GT(reads, 2);
    EXPECT_EQ(outcome_of(reads, false), model::pe_outcome::gathered);
    EXPECT_EQ(outcome_of(reads, true), model::pe_outcome::changed);
}

TEST(program, every_fact_is_filed_under_its_tags)
{
    const model::pe_list list = properties(test_support::sample_program(true));
    struct row {
        std::uint16_t tag;
        const char* name;
        const char* text;
        std::uint64_t number;
        std::uint16_t language = 0;
    };
    constexpr std::uint64_t file_version = 0x0001'0002'0003'ffff; // as the file has it
    constexpr std::uint64_t product_version = 0x0004'0005'0006'0007;
    const char* const german = "stringfileinfo_040704e4_companyname";
    const row rows[] = {
        {0x4001, "FileSize", "", test_support::sample_program(true).size()},
        {0x4003, "PECheckSum", "", 0x12345},
        {0x4006, "ModuleType", "Win32", 3},
        {0x4009, "fileos", "nt, win32", 0x40004},
        {0x400a, "filetype", "app", 1},
        {0x400b, "PECheckSum", "", 0x12345},
        {0x400c, "OSMajorVersion", "", 6},
        {0x400d, "OSMinorVersion", "", 3},
        {0x401c, "LinkerVersion", "", 0x20005},
        {0x401d, "CompileTimestamp", "", 0x5f5e1000},
        {0x401e, "CompileTimestamp", "", 0x5f5e1000},
        {0x4033, "CompileTimestamp", "", 0x5f5e1000},
        {0x5002, "fileversion", "1.2.3.65535", file_version},
        {0x5003, "productversion", "4.5.6.7", product_version},
        {0x5006, "productversion", "4.5.6.7", product_version},
        {0x500d, "fileversion", "1.2.3.65535", file_version},
        {0x5012, "productversion", "4.5.6.7", product_version},
        {0x5013, "fileversion", "1.2.3.65535", file_version},
        {0x5018, "OSMajorVersion", "", 6},
        {0x5019, "OSMinorVersion", "", 3},
        {0x6009, german, "Akme GmbH", 0, 0x407},
        {0x6009, "stringfileinfo_040904b0_companyname", "Acme, Inc.", 0, 0x409},
        {0x6010, "stringfileinfo_040704e4_productname", "Werkzeug", 0, 0x407},
        {0x6010, "stringfileinfo_040904b0_productname", "Tools", 0, 0x409},
        {0x6011, "productversion", "4.5.6.7", product_version},
        {0x6012, "stringfileinfo_040904b0_filedescription", "Caf\u00e9 \u8a08", 0, 0x409},
        {0x6013, "fileversion", "1.2.3.65535", file_version},
        {0x6014, "stringfileinfo_040904b0_originalfilename", "Tool.exe", 0, 0x409},
        {0x6015, "stringfileinfo_040904b0_internalname", "tool", 0, 0x409},
        {0x6016, "stringfileinfo_040904b0_legalcopyright", "\u00a9 Acme\r\nAll of it", 0, 0x409},
    };
    ASSERT_EQ(list.size(), std::size(rows));
    for (std::size_t i = 0; i < list.size(); ++i) {
        EXPECT_EQ(list[i].tag, rows[i].tag);
        EXPECT_EQ(list[i].name, rows[i].name);
        EXPECT_EQ(list[i].text, rows[i].text) << rows[i].tag;
        EXPECT_EQ(list[i].number, rows[i].number) << rows[i].tag;
        EXPECT_EQ(list[i].sub_tag, rows[i].language) << rows[i].tag;
    }
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
    EXPECT_EQ(language->text, "0x0407");
    EXPECT_EQ(language->number, 0x407u);
    EXPECT_EQ(language->sub_tag, 0x407u);
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
    model::pe_list list = properties(test_support::pe_plan{.image_version = {0, 0}}.build());
    EXPECT_EQ(program_report(list, options, {.path = "T.exe"}).text,
              "Source file      | T.exe     \n"
              "CompileTimestamp | 0x5f5e1000 [2020-09-13 12:26:40.000 UTC]\n"
              "FileSize         | 0x00001000\n"
              "LinkerVersion    | 0x00000000\n"
              "ModuleType       | Win32     \n"
              "OSMajorVersion   | 0x00000006\n"
              "OSMinorVersion   | 0x00000003\n"
              "PECheckSum       | 0x00012345\n");
    list = {{"CompileTimestamp", "", 0xf0000000, 0x401d},
            {"FileSize", "", 0x123456789a, 0x4001},
            {"FileSize", "", 1, 0x4002},
            {"text", "two\nlines", 0, 0x6001},
            {"t\x1b", "\xe2\x80\xae", 0, 0x6001}};
    options.csv_separator = ";";
    EXPECT_EQ(program_report(list, options, {.path = "T.exe"}).text,
              "Source file     ;T.exe       \n"
              "CompileTimestamp;0xf0000000 [2097-08-05 09:04:00.000 UTC]\n"
              "FileSize        ;0x123456789a\n"
              "t[x1b]          ;[U+202E]    \n"
              "text            ;two[LF]lines\n");
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
        "Tool.exe                                  ,2020-09-13  , 12:26:40.000,1600000000        ,"
        "Akme GmbH      ,Caf\u00e9 \u8a08,nt  win32         ,1824              ,app   ,"
        "1.2.3.65535    ,tool    ,\u00a9 Acme[CRLF]All of it                  ,"
        "131077            ,6                 ,3                 ,Tool.exe    ,"
        "74565             ,Werkzeug            ,4.5.6.7        ,C:\\Tools\n");
    request::sdb_opts options = row_options("csv");
    options.no_whitespace = true;
    EXPECT_EQ(
        program_report(properties(test_support::pe_plan{.time_stamp = 0, .checksum = 0}.build()),
                       options, {.path = "a,\"b\"", .state = {.head_stands = true}})
            .text,
        "\"a \"\"b\"\"\",, ,0, , , ,4096, , , , ,131077,6,3, ,0, , ,.\n");
    options.pad_separator = false;
    EXPECT_EQ(program_report({}, options, {.path = "a,b"}).text,
              "source file,compile date,time-UTC,compile rawdate,company name,description,file os,"
              "file size,file type,file version,internal name,copyright,linker ver,os major ver,"
              "os minor ver,orig filename,PE checksum,product name,product ver,path of file\n"
              "a b, , , , , , , , , , , , , , , , , , ,.\n");
}

} // namespace
