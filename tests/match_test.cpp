#include "report/match.h"

#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "io/notice.h"
#include "report/listings.h"
#include "sdb/tags.h"
#include "support/pe_builder.h"
#include "support/text_sink.h"
#include "uni/text.h"

namespace {

namespace fs = std::filesystem;
namespace tag = sdb::tag;
using test_support::bytes;
using test_support::node;
using test_support::sdb_builder;

// A folder with the sample program in it, which is called Tool.exe.
class match : public testing::Test {
protected:
    match() : folder_(fs::path(testing::TempDir()) / "quilt_match")
    {
        fs::remove_all(folder_);
        fs::create_directories(folder_);
        put("Tool.exe", test_support::sample_program(true));
    }
    ~match() override { fs::remove_all(folder_); }

    void put(const std::string& name, const bytes& contents)
    {
        std::ofstream(folder_ / name, std::ios::binary)
            .write(reinterpret_cast<const char*>(contents.data()),
                   static_cast<std::streamsize>(contents.size()));
        options_.pe_path = (folder_ / name).string();
    }
    report::match_results find(sdb_builder& b)
    {
        const bytes image = b.build();
        sdb::sdb_database database;
        EXPECT_TRUE(database.load_image(io::byte_vector(image.begin(), image.end()), options_));
        report::match_results results;
        const bool any = report::match_pe_file(results, database, options_);
        EXPECT_EQ(any, !results.empty());
        return results;
    }
    // Whether a record is caught that holds one list of these properties behind its name.
    template <typename maker>
    bool catches(maker&& make)
    {
        sdb_builder b;
        std::vector<node> properties = {b.text(tag::name, "tool.exe")};
        make(b, properties);
        b.add(b.list(tag::exe,
                     {b.text(tag::name, "Record"), b.list(tag::matching_file, properties)}));
        return !find(b).empty();
    }

    fs::path folder_;
    front::sdb_opts options_;
};

TEST_F(match, each_property_is_compared_by_its_rule)
{
    constexpr std::uint64_t version = 0x0001'0002'0003'ffff;
    constexpr std::uint64_t product = 0x0004'0005'0006'0007;
    enum class rule { exact, upper, lower };
    struct row {
        std::uint16_t tag;
        std::uint64_t value;
        rule compared;
    };
    for (const row& row : {
             row{tag::size, test_support::sample_program(true).size(), rule::exact},
             {tag::checksum, 0x12345, rule::exact},
             {tag::pe_checksum, 0x12345, rule::exact},
             {tag::module_type, 3, rule::exact},
             {tag::verfileos, 0x40004, rule::exact},
             {tag::verfiletype, 1, rule::exact},
             {tag::prevosmajorver, 6, rule::exact},
             {tag::prevosminorver, 3, rule::exact},
             {tag::linker_version, 0x20005, rule::exact},
             {tag::link_date, 0x5f5e1000, rule::exact},
             {tag::upto_link_date, 0x5f5e1000, rule::upper},
             {tag::from_link_date, 0x5f5e1000, rule::lower},
             {tag::bin_file_version, version, rule::exact},
             {tag::upto_bin_file_version, version, rule::upper},
             {tag::from_bin_file_version, version, rule::lower},
             {tag::bin_product_version, product, rule::exact},
             {tag::upto_bin_product_version, product, rule::upper},
             {tag::from_bin_product_version, product, rule::lower},
             {tag::from_osmaxversiontested, 6, rule::lower},
             {tag::upto_osmaxversiontested, 3, rule::upper},
         }) {
        const auto with = [&](std::uint64_t value) {
            return catches([&](sdb_builder& b, std::vector<node>& properties) {
                properties.push_back(sdb::tag_type(row.tag) == sdb::type::qword
                                         ? b.qword(row.tag, value)
                                         : b.dword(row.tag, static_cast<std::uint32_t>(value)));
            });
        };
        EXPECT_TRUE(with(row.value)) << row.tag;
        EXPECT_EQ(with(row.value - 1), row.compared == rule::lower) << row.tag;
        EXPECT_EQ(with(row.value + 1), row.compared == rule::upper) << row.tag;
    }
    for (const auto& [text_tag, text] :
         {std::pair<std::uint16_t, const char*>{tag::company_name, "Akme GmbH"},
          {tag::product_name, "Werkzeug"},
          {tag::product_version, "4.5.6.7"},
          {tag::file_description, "Caf\u00e9 \u8a08"},
          {tag::file_version, "1.2.3.65535"},
          {tag::original_filename, "Tool.exe"},
          {tag::internal_name, "tool"},
          {tag::legal_copyright, "\u00a9 Acme\r\nAll of it"}}) {
        const auto with = [&, id = text_tag](const std::string& value) {
            return catches([&](sdb_builder& b, std::vector<node>& properties) {
                properties.push_back(b.text(id, value));
            });
        };
        EXPECT_TRUE(with(text)) << text;
        EXPECT_FALSE(with(std::string(text) + "x")) << text;
    }
}

TEST_F(match, comparison_ends_at_the_first_tag_that_the_file_does_not_have)
{
    const auto with = [this](std::uint16_t unknown) {
        return catches([unknown](sdb_builder& b, std::vector<node>& properties) {
            properties.push_back(b.dword(tag::pe_checksum, 1)); // speaks against it
            properties.push_back(b.dword(unknown, 1));
        });
    };
    EXPECT_TRUE(with(tag::offset)) << "0x4002 comes before the checksum";
    EXPECT_FALSE(with(tag::size_of_image)) << "0x4043 comes behind it";
}

TEST_F(match, zeros_are_equal)
{
    put("tool.exe", test_support::pe_plan{.checksum = 0}.build());
    for (const bool base16 : {true, false}) {
        options_.base16 = base16;
        const auto with = [this](std::uint32_t checksum) {
            return catches([checksum](sdb_builder& b, std::vector<node>& properties) {
                properties.push_back(b.dword(tag::pe_checksum, checksum));
            });
        };
        EXPECT_TRUE(with(0));
        EXPECT_FALSE(with(1));
    }
}

TEST_F(match, names_that_lead_to_a_list)
{
    struct row {
        const char* record;
        const char* list;
        bool caught;
    };
    for (const row& row : {
             row{"x", "tool.exe", true},
             {"x", "TOOL.EXE", false}, // found, but the text has capital letters
             {"tool.exe", "*", true},  // the record's name
             {"Tool.exe", "*", false}, // the same, for its capital letter
             {"tool.exe", "", true},   // a list without a name
             {"tool.exe", "other", false},
             {"x", "%windir%\\tool.exe", false},
         }) {
        sdb_builder b;
        const std::vector<node> members =
            *row.list != '\0'
                ? std::vector{b.text(tag::name, row.list), b.dword(tag::module_type, 3)}
                : std::vector{b.dword(tag::module_type, 3)};
        b.add(
            b.list(tag::exe, {b.text(tag::name, row.record), b.list(tag::matching_file, members)}));
        EXPECT_EQ(!find(b).empty(), row.caught) << row.record << " " << row.list;
    }
}

TEST_F(match, a_whole_path_counts_where_no_list_has_the_name)
{
    put("c:\\Windows\\System32\\foo.exe", test_support::sample_program(true));
    if (!fs::exists(options_.pe_path)) {
        GTEST_SKIP() << "no such file names here";
    }
    std::string key = uni::lowered(options_.pe_path);
    uni::replace_char(key, '/', '\\');
    key.replace(key.find("c:\\windows"), 10, "%windir%");
    for (const bool name_too : {false, true}) {
        sdb_builder b;
        // 0x4002 is unknown and comes before the name, whose text would not be the file's.
        b.add(b.list(tag::exe, {b.text(tag::name, key),
                                b.list(tag::matching_file, {b.dword(tag::offset, 0)})}));
        if (name_too) {
            b.add(b.list(tag::exe, {b.list(tag::matching_file, {b.text(tag::name, "foo.exe"),
                                                                b.dword(tag::size, 1)})}));
        }
        EXPECT_EQ(find(b).size(), name_too ? 0u : 1u);
    }
}

TEST_F(match, members_without_a_text_keep_the_one_before)
{
    const auto with = [this](bool first) {
        sdb_builder b;
        const node unresolved = b.string_ref(tag::name, 0x7fffff);
        const node product = b.text(tag::product_name, "tool.exe");
        const std::vector<node> members =
            first ? std::vector{unresolved, product} : std::vector{product, unresolved};
        b.add(b.list(tag::exe, {b.text(tag::name, "x"), b.list(tag::matching_file, members)}));
        return find(b).size();
    };
    EXPECT_EQ(with(true), 0u) << "its file name is that of the record";
    EXPECT_EQ(with(false), 0u) << "found by name, refused by the product's";
    sdb_builder b;
    b.add(b.list(tag::exe, {b.text(tag::name, "tool.exe"),
                            b.list(tag::matching_file, {b.string_ref(tag::name, 0x7fffff)})}));
    EXPECT_EQ(find(b).size(), 0u) << "an empty text is not the file's name";
}

TEST_F(match, records_are_printed_once_behind_a_line_for_each_list)
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
    const bytes image = b.build();
    sdb::sdb_database database;
    options_.match_mode = true;
    options_.list_apps = true; // makes no difference
    ASSERT_TRUE(database.load_image(io::byte_vector(image.begin(), image.end()), options_));
    test_support::text_sink out;
    test_support::text_sink console;
    EXPECT_TRUE(report::run_database_report(out, console, database, options_));
    out.flush();
    console.flush();
    char lines[64];
    std::snprintf(lines, sizeof lines, "match tagid %08x\nmatch tagid %08x\n\n", b.offset_of("a"),
                  b.offset_of("b"));
    EXPECT_EQ(console.gathered, lines);
    EXPECT_NE(out.gathered.find("name=\"one\""), std::string::npos) << out.gathered;
    EXPECT_EQ(out.gathered.find("\"two\""), std::string::npos);
    EXPECT_EQ(out.gathered.find("</shimdb>"), std::string::npos) << "the document stays open";
}

TEST_F(match, messages)
{
    const auto said = [this](sdb_builder& b) {
        const bytes image = b.build();
        sdb::sdb_database database;
        options_.match_mode = true;
        options_.xml = false;
        options_.current_path = "a.sdb";
        EXPECT_TRUE(database.load_image(io::byte_vector(image.begin(), image.end()), options_));
        test_support::text_sink out;
        testing::internal::CaptureStderr();
        EXPECT_TRUE(report::run_database_report(out, database, options_));
        std::string words = testing::internal::GetCapturedStderr();
        out.flush();
        EXPECT_EQ(out.gathered, "");
        return uni::replace_all(words, io::progress_wipe, "");
    };
    sdb_builder b;
    EXPECT_EQ(said(b), "no matches found: a.sdb\n");
    put("no.exe", bytes(100));
    EXPECT_EQ(said(b), "Problem pulling PE stats from file " + options_.pe_path +
                           "\nno matches found: a.sdb\n");
}

// A record must not hide behind records that stand in one another.
TEST_F(match, nested_records_hide_no_other)
{
    sdb_builder b;
    const std::uint32_t one_byte = b.table_bytes(bytes{0x01, 0x88, 1, 0, 0, 0, 'x'});
    std::vector<node> nested;
    for (int i = 0; i < 20'000; ++i) {
        nested.push_back(b.list(tag::matching_file, {b.text(tag::name, "tool.exe")}));
        nested = {b.list(tag::exe, nested)};
    }
    const node list = b.list(tag::matching_file, {b.text(tag::name, "*")});
    const node hidden = b.list(tag::exe, {b.string_ref(tag::name, one_byte), // reads as no name
                                          b.text(tag::name, "tool.exe"), list});
    b.add(nested.front());
    b.add(hidden);
    EXPECT_TRUE(find(b).contains(b.offset_of(hidden)));
}

} // namespace
