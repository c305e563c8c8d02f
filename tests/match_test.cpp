#include "model/match.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "form/forms.h"
#include "sdb/tags.h"
#include "support/pe_builder.h"
#include "support/reports.h"

namespace {

namespace fs = std::filesystem;
namespace tag = sdb::tag;
using model::pe_list;
using test_support::bytes;
using test_support::node;
using test_support::sdb_builder;

// What the sample program says of itself under that path.
pe_list sample(const std::string& path = "c:\\tools\\Tool.exe")
{
    const bytes image = test_support::sample_program(true);
    pe_list list;
    model::read_pe_stats(
        list, std::make_unique<io::memory_source>(io::byte_vector(image.begin(), image.end())),
        path);
    EXPECT_FALSE(list.empty());
    return list;
}

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
    model::match_results results;
    EXPECT_TRUE(
        model::match_program(results, in.database, file, path,
                             [&](sdb::tag_ordinal ordinal) { return writer->tag_text(ordinal); }));
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
    enum class rule { exact, upper, lower };
    const std::pair<std::uint16_t, rule> rules[] = {
        {tag::size, rule::exact},
        {tag::module_type, rule::exact},
        {tag::link_date, rule::exact},
        {tag::upto_link_date, rule::upper},
        {tag::from_link_date, rule::lower},
        {tag::bin_file_version, rule::exact},
        {tag::bin_product_version, rule::exact},
        {tag::upto_bin_product_version, rule::upper},
        {tag::from_bin_product_version, rule::lower},
        {tag::upto_bin_file_version, rule::upper},
        {tag::from_bin_file_version, rule::lower},
        {tag::from_packageid_version, rule::lower},
        {tag::upto_packageid_version, rule::upper},
        {tag::from_osmaxversiontested, rule::lower},
        {tag::upto_osmaxversiontested, rule::upper},
        {tag::quirk_enabled_version_lt, rule::upper},
    };
    sdb_builder b;
    std::vector<match_case> cases;
    pe_list file = {{"", "tool.exe", 0, tag::name}};
    for (const auto& [number_tag, compared] : rules) {
        for (const std::uint32_t value : {999u, 1000u, 1001u}) {
            const bool is_caught = value == 1000 || (value < 1000 && compared == rule::lower) ||
                                   (value > 1000 && compared == rule::upper);
            const bool is_long = sdb::tag_type(number_tag) == sdb::type::qword;
            cases.push_back({is_caught,
                             "Record",
                             {b.text(tag::name, "tool.exe"),
                              is_long ? b.qword(number_tag, value) : b.dword(number_tag, value)}});
        }
        file.push_back({"", "", 1000, number_tag});
    }
    std::ranges::sort(file, {}, &model::pe_property::tag);
    check(b, cases, file);
}

TEST(match, properties_and_names)
{
    for (const bool base16 : {true, false}) {
        sdb_builder b;
        const node name[] = {b.text(tag::name, "tool.exe"), b.text(tag::name, "tool.exe"),
                             b.text(tag::name, "tool.exe"), b.text(tag::name, "tool.exe"),
                             b.text(tag::name, "tool.exe"), b.text(tag::name, "tool.exe")};
        const match_case cases[] = {
            {true, "x", {name[0], b.text(tag::company_name, "Akm\u00e9 GmbH")}},
            {false, "x", {name[1], b.text(tag::company_name, "Akm\u00e9 GmbHx")}},
            // Zeros are equal, though what the file has is no text.
            {true, "x", {name[2], b.dword(tag::pe_checksum, 0)}},
            {false, "x", {name[3], b.dword(tag::pe_checksum, 1)}},
            // The comparison ends at the first tag of which the file tells nothing: 0x4002 comes
            // before the checksum, 0x4043 behind it.
            {true, "x", {name[4], b.dword(tag::pe_checksum, 1), b.dword(tag::offset, 1)}},
            {false, "x", {name[5], b.dword(tag::pe_checksum, 1), b.dword(tag::size_of_image, 1)}},
            {false, "x", {b.text(tag::name, "TOOL.EXE")}}, // found, but has capital letters
            {true, "tool.exe", {b.text(tag::name, "*"), b.dword(tag::module_type, 3)}},
            {false, "Tool.exe", {b.text(tag::name, "*"), b.dword(tag::module_type, 3)}},
            {true, "tool.exe", {b.dword(tag::module_type, 3)}}, // the record's name
            {false, "tool.exe", {b.text(tag::name, "other"), b.dword(tag::module_type, 3)}},
            {false, "x", {b.text(tag::name, "%windir%\\tool.exe"), b.dword(tag::module_type, 3)}},
            // What has no text takes that of the member before it.
            {false,
             "x",
             {b.string_ref(tag::name, 0x7fffff), b.text(tag::product_name, "tool.exe")}},
            {false,
             "x",
             {b.text(tag::product_name, "tool.exe"), b.string_ref(tag::name, 0x7fffff)}},
            {false, "tool.exe", {b.string_ref(tag::name, 0x7fffff)}}, // no text, not the record's
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
        for (const bool name_too : {false, true}) {
            sdb_builder b;
            // 0x4002 is unknown and comes before the name, whose text would not be the file's.
            b.add(b.list(tag::exe, {b.text(tag::name, key),
                                    b.list(tag::matching_file, {b.dword(tag::offset, 0)})}));
            if (name_too) {
                b.add(b.list(tag::exe, {b.list(tag::matching_file, {b.text(tag::name, "foo.exe"),
                                                                    b.dword(tag::size, 1)})}));
            }
            EXPECT_EQ(find(b, sample(path), path).size(), name_too ? 0u : 1u) << path;
        }
    }
}

// A folder with the sample program in it, which is called Tool.exe, and a file that is none.
class match_report : public testing::Test {
protected:
    match_report() : folder_(fs::path(testing::TempDir()) / "quilt_match")
    {
        fs::remove_all(folder_);
        fs::create_directories(folder_);
        const bytes program = test_support::sample_program(true);
        std::ofstream(folder_ / "Tool.exe", std::ios::binary)
            .write(reinterpret_cast<const char*>(program.data()),
                   static_cast<std::streamsize>(program.size()));
        std::ofstream(folder_ / "no.exe") << std::string(100, 'x');
    }
    ~match_report() override { fs::remove_all(folder_); }

    test_support::made_report report(const bytes& image, std::string_view form,
                                     const char* program = "Tool.exe")
    {
        auto options = test_support::listing_options({"apps"}, form); // makes no difference
        options.match_mode = true;
        options.pe_path = path_of(program);
        return test_support::database_report(image, options, {.path = "a.sdb"});
    }
    std::string path_of(const char* name) const { return (folder_ / name).string(); }

private:
    fs::path folder_;
};

TEST_F(match_report, records_are_printed_once_behind_a_line_for_each_list)
{
    sdb_builder b;
    const auto matching = [&b](std::string_view label, std::uint32_t module_type) {
        return b.label(label, b.list(tag::matching_file, {b.text(tag::name, "tool.exe"),
                                                          b.dword(tag::module_type, module_type)}));
    };
    b.add(b.list(tag::exe, {b.text(tag::name, "one"), b.dword(tag::exe_type, 1), matching("a", 3),
                            matching("no", 4), matching("b", 3)}));
    b.add(b.list(tag::exe,
                 {b.text(tag::name, "two"), b.dword(tag::exe_type, 1), matching("not", 4)}));
    const auto made = report(b.build(), "xml");
    EXPECT_TRUE(made.asked);
    char lines[64];
    std::snprintf(lines, sizeof lines, "match tagid %08x\nmatch tagid %08x\n\n", b.offset_of("a"),
                  b.offset_of("b"));
    EXPECT_EQ(made.console, lines);
    EXPECT_EQ(made.notices, "");
    EXPECT_NE(made.text.find("name=\"one\""), std::string::npos) << made.text;
    EXPECT_EQ(made.text.find("\"two\""), std::string::npos);
    EXPECT_EQ(made.text.find("</shimdb>"), std::string::npos) << "the document stays open";
}

TEST_F(match_report, notices)
{
    const bytes empty = sdb_builder().build();
    for (const auto& [program, notice] :
         {std::pair{"Tool.exe", std::string()},
          {"no.exe",
           "Problem pulling PE stats from file " + path_of("no.exe") + ": is no program\n"}}) {
        const auto made = report(empty, "plain", program);
        EXPECT_TRUE(made.asked);
        EXPECT_EQ(made.text, "");
        EXPECT_EQ(made.notices, notice + "no matches found: a.sdb\n");
    }
}

// A record must not hide behind records that stand in one another, and who reads the report learns
// that not all of these were looked at.
TEST_F(match_report, nested_records_hide_no_other)
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

} // namespace
