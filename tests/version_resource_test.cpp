#include "pe/version_resource.h"

#include <gtest/gtest.h>

#include "support/pe_builder.h"

namespace {

using test_support::bytes;
using test_support::fixed_version;
using test_support::version_block;
using test_support::version_text;

pe::version_map decode(const bytes& resource)
{
    pe::version_map map;
    const bool any = pe::decode_version_resource(map, uni::byte_view(resource));
    EXPECT_EQ(any, !map.empty());
    return map;
}

std::string text_of(const pe::version_map& map, const std::string& key)
{
    const auto found = map.find(key);
    return found == map.end() ? "(none)" : found->second.text;
}

bytes root(const bytes& value, const std::vector<bytes>& children)
{
    return version_block(u"VS_VERSION_INFO", value, children);
}

bytes table(std::u16string_view key, const std::vector<bytes>& strings)
{
    return version_block(key, {}, strings);
}

TEST(version_resource, fixed_block)
{
    const auto map = decode(root(fixed_version(1, 0x40004, 3, 12), {}));
    ASSERT_EQ(map.size(), 8u);
    struct row {
        const char* key;
        const char* name;
        std::uint64_t number;
        std::uint64_t size;
        const char* text;
    };
    for (const row& row : {
             row{"version", "Version", 0x10002, 4, "1.2"},
             {"fileversion", "FileVersion", 0x0001'0002'0003'ffff, 8, "1.2.3.65535"},
             {"productversion", "ProductVersion", 0x0004'0005'0006'0007, 8, "4.5.6.7"},
             {"fileflags", "FileFlags", 1, 4, "1 [debug]"},
             {"fileos", "FileOS", 0x40004, 4, "nt, win32"},
             {"filetype", "FileType", 3, 4, "driver"},
             {"filesubtype", "FileSubtype", 12, 4, "versioned printer"},
             {"filedate", "FileDate", 0x1d00000'00002345, 8, "0x1d0000000002345"},
         }) {
        const pe::pe_segment& entry = map.at(row.key);
        EXPECT_EQ(entry.name, row.name);
        EXPECT_EQ(entry.number, row.number) << row.key;
        EXPECT_EQ(entry.size, row.size) << row.key;
        EXPECT_EQ(entry.offset, 40u);
        EXPECT_EQ(entry.text, row.text);
    }
}

TEST(version_resource, words_of_the_fixed_block)
{
    const auto words = [](const char* key, std::uint32_t flags, std::uint32_t os,
                          std::uint32_t type, std::uint32_t subtype) {
        return text_of(decode(root(fixed_version(flags, os, type, subtype), {})), key);
    };
    for (const auto& [flags, text] :
         {std::pair<std::uint32_t, const char*>{0, "0 [none]"},
          {2, "2 [pre_releasenone]"},
          {3, "3 [debug, pre_release]"},
          {0x3e, "62 [pre_releasepatchedprivate_buildinfo_inferredspecial_buildnone]"},
          {0x3f, "63 [debug, pre_release, patched, private_build, info_inferred, special_build]"},
          {0x40, "64 [none]"}}) {
        EXPECT_EQ(words("fileflags", flags, 0, 0, 0), text);
    }
    for (const auto& [os, text] : {std::pair<std::uint32_t, const char*>{0, "unk"},
                                   {1, "win16"},
                                   {0x10004, "dos, win32"},
                                   {0x20000, "os2/16"},
                                   {0x30003, "os2/32, pm32"},
                                   {0x40000, "nt"},
                                   {0x40003, "unk"}}) {
        EXPECT_EQ(words("fileos", 0, os, 0, 0), text);
    }
    for (const auto& [type, subtype, type_text, text] :
         {std::tuple<std::uint32_t, std::uint32_t, const char*, const char*>{1, 1, "app", ""},
          {0, 0, "unk", ""},
          {6, 0, "unk", ""},
          {7, 0, "statc_lib", ""},
          {3, 10, "driver", "comm"},
          {3, 11, "driver", "none"},
          {3, 0, "driver", "none"},
          {4, 3, "font", "font_truetype"},
          {4, 4, "font", "none"}}) {
        EXPECT_EQ(words("filetype", 0, 0, type, subtype), type_text);
        EXPECT_EQ(words("filesubtype", 0, 0, type, subtype), text);
    }
}

TEST(version_resource, strings_of_all_tables)
{
    const bytes info = version_block(
        u"StringFileInfo", {},
        {table(u"040904B0",
               {version_text(u"CompanyName", u"Caf\u00e9"), version_text(u"Odd", u"\xd800x"),
                version_text(u"Empty", u""), version_text(u"companyname", u"not this one")}),
         table(u"zzzz04e4", {version_text(u"CompanyName", u"Any key")}),
         table(u"040704e4", {version_text(u"CompanyName", u"Akme")})});
    const bytes vars =
        version_block(u"VarFileInfo", {}, {version_block(u"Translation", {9, 4, 0xb0, 4}, {})});
    for (const bool vars_first : {false, true}) {
        const auto map =
            decode(root(fixed_version(0, 0, 0, 0),
                        vars_first ? std::vector{vars, info} : std::vector{info, vars}));
        EXPECT_EQ(text_of(map, "stringfileinfo_040904b0_companyname"), "Caf\u00e9");
        EXPECT_EQ(text_of(map, "stringfileinfo_040904b0_odd"), "\ufffdx");
        EXPECT_EQ(text_of(map, "stringfileinfo_040904b0_empty"), "");
        EXPECT_EQ(text_of(map, "stringfileinfo_zzzz04e4_companyname"), "Any key");
        EXPECT_EQ(text_of(map, "stringfileinfo_040704e4_companyname"), "Akme");
        EXPECT_EQ(map.at("stringfileinfo_040704e4_companyname").language, 0x407u);
        EXPECT_EQ(map.at("stringfileinfo_040904b0_companyname").name,
                  "stringfileinfo_040904b0_CompanyName");
        EXPECT_TRUE(map.contains("stringfileinfo") && map.contains("stringfileinfo_040904b0"));
        EXPECT_EQ(text_of(map, "varfileinfo_translation"), "0x4b00409");
        const pe::pe_segment& company = map.at("stringfileinfo_040904b0_companyname");
        EXPECT_EQ(company.size, 10u);
        EXPECT_EQ(company.offset % 4, 0u);
    }
}

TEST(version_resource, roots)
{
    const std::vector<bytes> strings = {version_block(
        u"StringFileInfo", {}, {table(u"040904b0", {version_text(u"CompanyName", u"Acme")})})};
    const auto company = [&](const bytes& resource) {
        return text_of(decode(resource), "stringfileinfo_040904b0_companyname");
    };
    for (const std::size_t size : {4u, 48u, 51u, 52u, 56u}) {
        const auto map = decode(root(bytes(size, 1), strings));
        EXPECT_EQ(map.contains("fileversion"), size == 52) << size;
        // 51 bytes end at an odd place, which the rule of alignment leads past the children.
        EXPECT_EQ(text_of(map, "stringfileinfo_040904b0_companyname"),
                  size == 51 ? "(none)" : "Acme")
            << size;
    }
    EXPECT_EQ(company(version_block(u"vs_Version_Info", bytes(52), strings)), "Acme");
    EXPECT_EQ(company(version_block(u"VS_VERSION_INF0", bytes(52), strings)), "(none)");
    EXPECT_EQ(company(root({}, strings)), "(none)") << "no value";
    EXPECT_TRUE(decode({}).empty());
    // The walk goes by the bytes handed in, not by the root's length.
    bytes short_root = root(bytes(52), strings);
    for (const int length : {0, 7, 8}) {
        short_root[0] = static_cast<std::uint8_t>(length);
        short_root[1] = 0;
        EXPECT_EQ(company(short_root), length == 8 ? "Acme" : "(none)") << length;
    }
}

TEST(version_resource, values_that_do_not_fit_are_left_out)
{
    const bytes eight{1, 2, 3, 4, 5, 6, 7, 8};
    bytes twelve = eight;
    twelve.insert(twelve.end(), 4, 9); // an odd length would lead the walk astray
    bytes cut = version_text(u"Key", u"text");
    cut[2] = 9; // characters
    const auto map = decode(
        root(bytes(52), {version_block(u"Eight", eight, {}), version_block(u"Twelve", twelve, {}),
                         cut, version_text(u"Last", u"read")}));
    EXPECT_EQ(text_of(map, "eight"), "0x807060504030201");
    EXPECT_EQ(text_of(map, "twelve"), "");
    EXPECT_EQ(text_of(map, "key"), "");
    EXPECT_EQ(text_of(map, "last"), "read");
}

TEST(version_resource, damaged_lengths_keep_what_came_before)
{
    const bytes info = version_block(
        u"StringFileInfo", {},
        {table(u"040904b0", {version_text(u"CompanyName", u"Acme"), version_text(u"Two", u"2")})});
    const bytes good = root(fixed_version(0, 0, 0, 0), {info});
    constexpr std::size_t info_at = 92;
    constexpr std::size_t table_at = info_at + 36;
    constexpr std::size_t string_at = table_at + 24;
    struct row {
        std::size_t at;
        std::uint16_t length;
        bool has_info;
        bool has_table;
        bool has_company;
    };
    for (const row& row : {row{info_at, 0, false, false, false},
                           {info_at, 0xffff, false, false, false},
                           {table_at, 0, true, false, false},
                           {table_at, 0xffff, true, false, false},
                           {string_at, 0, true, true, false},
                           {string_at, 1, true, true, false},
                           {string_at, 0xffff, true, true, true}}) {
        bytes damaged = good;
        damaged[row.at] = static_cast<std::uint8_t>(row.length);
        damaged[row.at + 1] = static_cast<std::uint8_t>(row.length >> 8);
        const auto map = decode(damaged);
        EXPECT_TRUE(map.contains("fileversion"));
        EXPECT_EQ(map.contains("stringfileinfo"), row.has_info) << row.at << " " << row.length;
        EXPECT_EQ(map.contains("stringfileinfo_040904b0"), row.has_table) << row.at;
        EXPECT_EQ(map.contains("stringfileinfo_040904b0_companyname"), row.has_company) << row.at;
    }
    // Cut at every length: never more than the whole, and always to an end.
    for (std::size_t size = 0; size < good.size(); ++size) {
        const bytes cut(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size));
        for (const auto& [key, entry] : decode(cut)) {
            EXPECT_TRUE(decode(good).contains(key)) << key;
        }
    }
    // A key without an end takes the rest of its block.
    bytes endless = root(bytes(52), {version_block(u"k", {}, {})});
    endless.insert(endless.end(), 200, 'x');
    endless[info_at] = 60;
    endless[info_at + 8] = 'x';
    EXPECT_EQ(decode(endless).size(), 8u + 1);
}

} // namespace
