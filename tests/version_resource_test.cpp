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

// The block of strings, with tables by their keys.
bytes strings(const std::vector<std::pair<std::u16string_view, std::vector<bytes>>>& tables)
{
    std::vector<bytes> blocks;
    for (const auto& [key, texts] : tables) {
        blocks.push_back(version_block(key, {}, texts));
    }
    return version_block(u"StringFileInfo", {}, blocks);
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
        const pe::version_value& entry = map.at(row.key);
        EXPECT_EQ(entry.name, row.name);
        EXPECT_EQ(entry.number, row.number) << row.key;
        EXPECT_EQ(entry.size, row.size) << row.key;
        EXPECT_EQ(entry.offset, 40u);
        EXPECT_EQ(entry.text, row.text);
    }
}

TEST(version_resource, words_of_the_fixed_block)
{
    struct {
        std::uint32_t flags, os, type, subtype;
        std::vector<const char*> words; // of flags, system, type and subtype
    } const cases[] = {
        {0, 0, 0, 0, {"0 [none]", "unk", "unk", ""}},
        {2, 1, 1, 1, {"2 [pre_releasenone]", "win16", "app", ""}},
        {3, 0x10004, 3, 10, {"3 [debug, pre_release]", "dos, win32", "driver", "comm"}},
        {0x3e,
         0x20000,
         3,
         11,
         {"62 [pre_releasepatchedprivate_buildinfo_inferredspecial_buildnone]", "os2/16", "driver",
          "none"}},
        {0x3f,
         0x30003,
         3,
         0,
         {"63 [debug, pre_release, patched, private_build, info_inferred, special_build]",
          "os2/32, pm32", "driver", "none"}},
        {0x40, 0x40000, 4, 3, {"64 [none]", "nt", "font", "font_truetype"}},
        {1, 0x40003, 4, 4, {"1 [debug]", "unk", "font", "none"}},
        {0, 0, 6, 0, {"0 [none]", "unk", "unk", ""}},
        {0, 0, 7, 0, {"0 [none]", "unk", "statc_lib", ""}},
    };
    for (const auto& each : cases) {
        const auto map =
            decode(root(fixed_version(each.flags, each.os, each.type, each.subtype), {}));
        std::size_t word = 0;
        for (const char* const key : {"fileflags", "fileos", "filetype", "filesubtype"}) {
            EXPECT_EQ(text_of(map, key), each.words[word++]) << key;
        }
    }
}

TEST(version_resource, strings_of_all_tables)
{
    const bytes info =
        strings({{u"040904B0",
                  {version_text(u"CompanyName", u"Caf\u00e9"), version_text(u"Odd", u"\xd800x"),
                   version_text(u"Empty", u""), version_text(u"companyname", u"not this one")}},
                 {u"zzzz04e4", {version_text(u"CompanyName", u"Any key")}},
                 {u"040704e4", {version_text(u"CompanyName", u"Akme")}}});
    const bytes vars =
        version_block(u"VarFileInfo", {}, {version_block(u"Translation", {9, 4, 0xb0, 4}, {})});
    for (const bool vars_first : {false, true}) {
        const auto map =
            decode(root(fixed_version(0, 0, 0, 0),
                        vars_first ? std::vector{vars, info} : std::vector{info, vars}));
        for (const auto& [key, text] : {std::pair{"040904b0_companyname", "Caf\u00e9"},
                                        {"040904b0_odd", "\ufffdx"},
                                        {"040904b0_empty", ""},
                                        {"zzzz04e4_companyname", "Any key"},
                                        {"040704e4_companyname", "Akme"}}) {
            EXPECT_EQ(text_of(map, std::string("stringfileinfo_") + key), text);
        }
        EXPECT_EQ(map.at("stringfileinfo_040704e4_companyname").language, 0x407u);
        EXPECT_EQ(map.at("stringfileinfo_040904b0_companyname").name,
                  "stringfileinfo_040904b0_CompanyName");
        EXPECT_TRUE(map.contains("stringfileinfo") && map.contains("stringfileinfo_040904b0"));
        EXPECT_EQ(text_of(map, "varfileinfo_translation"), "0x4b00409");
        const pe::version_value& company = map.at("stringfileinfo_040904b0_companyname");
        EXPECT_EQ(company.size, 10u);
        EXPECT_EQ(company.offset % 4, 0u);
    }
}

TEST(version_resource, roots)
{
    const std::vector<bytes> texts = {
        strings({{u"040904b0", {version_text(u"CompanyName", u"Acme")}}})};
    const auto company = [&](const bytes& resource) {
        return text_of(decode(resource), "stringfileinfo_040904b0_companyname");
    };
    for (const std::size_t size : {4u, 48u, 51u, 52u, 56u}) {
        const auto map = decode(root(bytes(size, 1), texts));
        EXPECT_EQ(map.contains("fileversion"), size == 52) << size;
        // 51 bytes end at an odd place, which the rule of alignment leads past the children.
        EXPECT_EQ(text_of(map, "stringfileinfo_040904b0_companyname"),
                  size == 51 ? "(none)" : "Acme")
            << size;
    }
    EXPECT_EQ(company(version_block(u"vs_Version_Info", bytes(52), texts)), "Acme");
    EXPECT_EQ(company(version_block(u"VS_VERSION_INF0", bytes(52), texts)), "(none)");
    EXPECT_EQ(company(root({}, texts)), "(none)") << "no value";
    EXPECT_TRUE(decode({}).empty());
    // The walk goes by the bytes handed in, not by the root's length.
    bytes short_root = root(bytes(52), texts);
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
    const bytes info = strings(
        {{u"040904b0", {version_text(u"CompanyName", u"Acme"), version_text(u"Two", u"2")}}});
    const bytes good = root(fixed_version(0, 0, 0, 0), {info});
    constexpr std::size_t info_at = 92;
    constexpr std::size_t table_at = info_at + 36;
    constexpr std::size_t string_at = table_at + 24;
    struct {
        std::size_t at;
        std::uint16_t length;
        std::size_t blocks; // read of the three
    } const cases[] = {
        {info_at, 0, 0},   {info_at, 0xffff, 0}, {table_at, 0, 1},       {table_at, 0xffff, 1},
        {string_at, 0, 2}, {string_at, 1, 2},    {string_at, 0xffff, 3},
    };
    for (const auto& each : cases) {
        bytes damaged = good;
        test_support::put(damaged, each.at, each.length, 2);
        const auto map = decode(damaged);
        EXPECT_TRUE(map.contains("fileversion"));
        std::string key;
        std::size_t blocks = 0;
        for (const char* const part : {"stringfileinfo", "_040904b0", "_companyname"}) {
            blocks += map.contains(key += part) ? 1 : 0;
        }
        EXPECT_EQ(blocks, each.blocks) << each.at << " " << each.length;
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
