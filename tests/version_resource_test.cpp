#include "pe/version_resource.h"

#include <gtest/gtest.h>

#include <sstream>

#include "support/pe_builder.h"

namespace {

using namespace test_support;

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

// The block of strings, with one table.
bytes string_block(std::u16string_view key, const std::vector<bytes>& texts)
{
    return version_block(u"StringFileInfo", {}, {version_block(key, {}, texts)});
}

TEST(version_resource, fixed_block)
{
    std::ostringstream found;
    for (const auto& [key, entry] : decode(root(fixed_version(1, 0x40004, 3, 12), {}))) {
        found << key << " " << entry.name << " " << std::hex << entry.number << std::dec << "+"
              << entry.size << "@" << entry.offset << " " << entry.text << "\n";
    }
    EXPECT_EQ(found.str(), "filedate FileDate 1d0000000002345+8@40 0x1d0000000002345\n"
                           "fileflags FileFlags 1+4@40 1 [debug]\n"
                           "fileos FileOS 40004+4@40 nt, win32\n"
                           "filesubtype FileSubtype c+4@40 versioned printer\n"
                           "filetype FileType 3+4@40 driver\n"
                           "fileversion FileVersion 100020003ffff+8@40 1.2.3.65535\n"
                           "productversion ProductVersion 4000500060007+8@40 4.5.6.7\n"
                           "version Version 10002+4@40 1.2\n");
}

TEST(version_resource, words_of_the_fixed_block)
{
    struct {
        std::uint32_t flags, os, type, subtype;
        const char* words;
    } const cases[] = {
        {0, 0, 0, 0, "0 [none]|unk|unk|"},
        {2, 1, 1, 1, "2 [pre_releasenone]|win16|app|"},
        {3, 0x10004, 3, 10, "3 [debug, pre_release]|dos, win32|driver|comm"},
        {0x3e, 0x20000, 3, 11,
         "62 [pre_releasepatchedprivate_buildinfo_inferredspecial_buildnone]|os2/16|driver|none"},
        {0x3f, 0x30003, 3, 0,
         "63 [debug, pre_release, patched, private_build, info_inferred, special_build]|"
         "os2/32, pm32|driver|none"},
        {0x40, 0x40000, 4, 3, "64 [none]|nt|font|font_truetype"},
        {1, 0x40003, 4, 4, "1 [debug]|unk|font|none"},
        {0, 0, 6, 0, "0 [none]|unk|unk|"},
        {0, 0, 7, 0, "0 [none]|unk|statc_lib|"},
    };
    for (const auto& each : cases) {
        const auto map =
            decode(root(fixed_version(each.flags, each.os, each.type, each.subtype), {}));
        EXPECT_EQ(text_of(map, "fileflags") + "|" + text_of(map, "fileos") + "|" +
                      text_of(map, "filetype") + "|" + text_of(map, "filesubtype"),
                  each.words);
    }
}

TEST(version_resource, strings_of_all_tables)
{
    const bytes info =
        version_block(u"StringFileInfo", {},
                      {version_block(u"040904B0", {},
                                     {version_text(u"CompanyName", u"Caf\u00e9"),
                                      version_text(u"Odd", u"\xd800x"), version_text(u"Empty", u""),
                                      version_text(u"companyname", u"not this one")}),
                       version_block(u"zzzz04e4", {}, {version_text(u"CompanyName", u"Any key")}),
                       version_block(u"040704e4", {}, {version_text(u"CompanyName", u"Akme")})});
    const bytes vars =
        version_block(u"VarFileInfo", {}, {version_block(u"Translation", {9, 4, 0xb0, 4}, {})});
    for (const auto& children : {std::vector{vars, info}, std::vector{info, vars}}) {
        std::string found;
        for (const auto& [key, entry] : decode(root(bytes(4), children))) {
            const bool in_table = key.starts_with("stringfileinfo_"); // which has a language
            found += key + "=" + entry.text + " " +
                     (in_table ? std::to_string(entry.language) : "") + "\n";
            if (entry.text == "Caf\u00e9") {
                EXPECT_EQ(entry.name, "stringfileinfo_040904b0_CompanyName");
                EXPECT_EQ(entry.size, 10u);
                EXPECT_EQ(entry.offset % 4, 0u);
            }
        }
        EXPECT_EQ(found, "stringfileinfo= \n"
                         "stringfileinfo_040704e4= 1031\n"
                         "stringfileinfo_040704e4_companyname=Akme 1031\n"
                         "stringfileinfo_040904b0= 1033\n"
                         "stringfileinfo_040904b0_companyname=Caf\u00e9 1033\n"
                         "stringfileinfo_040904b0_empty= 1033\n"
                         "stringfileinfo_040904b0_odd=\ufffdx 1033\n"
                         "stringfileinfo_zzzz04e4= 0\n"
                         "stringfileinfo_zzzz04e4_companyname=Any key 0\n"
                         "varfileinfo_translation=0x4b00409 \n");
    }
}

TEST(version_resource, roots)
{
    const std::vector<bytes> texts = {
        string_block(u"040904b0", {version_text(u"CompanyName", u"Acme")})};
    struct {
        bytes resource;
        const char* company;
        bool has_fixed_block = false;
        int length = -1; // that the root tells; -1: its own
    } const cases[] = {
        {root(bytes(4, 1), texts), "Acme"},
        {root(bytes(48, 1), texts), "Acme"},
        {root(bytes(51, 1), texts), "(none)"}, // an odd end, which leads past the children
        {root(bytes(52, 1), texts), "Acme", true},
        {root(bytes(56, 1), texts), "Acme"},
        {version_block(u"vs_Version_Info", bytes(52), texts), "Acme", true},
        {version_block(u"VS_VERSION_INF0", bytes(52), texts), "(none)"},
        {root({}, texts), "(none)"}, // no value
        {{}, "(none)"},
        // The walk goes by the bytes handed in, not by the root's length.
        {root(bytes(52), texts), "(none)", false, 0},
        {root(bytes(52), texts), "(none)", false, 7},
        {root(bytes(52), texts), "Acme", true, 8},
    };
    for (const auto& each : cases) {
        bytes resource = each.resource;
        if (each.length >= 0) {
            put(resource, 0, static_cast<std::uint64_t>(each.length), 2);
        }
        const auto map = decode(resource);
        EXPECT_EQ(text_of(map, "stringfileinfo_040904b0_companyname"), each.company);
        EXPECT_EQ(map.contains("fileversion"), each.has_fixed_block) << each.resource.size();
    }
}

TEST(version_resource, values_that_do_not_fit_are_left_out)
{
    const bytes eight{1, 2, 3, 4, 5, 6, 7, 8};
    bytes cut = version_text(u"Key", u"text");
    cut[2] = 9; // characters
    const auto map = decode(root(bytes(52), {version_block(u"Eight", eight, {}),
                                             version_block(u"Twelve", bytes(12, 9), {}), cut,
                                             version_text(u"Last", u"read")}));
    EXPECT_EQ(text_of(map, "eight"), "0x807060504030201");
    EXPECT_EQ(text_of(map, "twelve") + text_of(map, "key"), "");
    EXPECT_EQ(text_of(map, "last"), "read");
}

TEST(version_resource, damaged_lengths_keep_what_came_before)
{
    const bytes good = root(fixed_version(0, 0, 0, 0),
                            {string_block(u"040904b0", {version_text(u"CompanyName", u"Acme"),
                                                        version_text(u"Two", u"2")})});
    constexpr std::size_t info_at = 92, table_at = info_at + 36, string_at = table_at + 24;
    struct {
        std::size_t at, length;
        int blocks; // read of the block of strings, its table and the company
    } const cases[] = {
        {info_at, 0, 0},   {info_at, 0xffff, 0}, {table_at, 0, 1},       {table_at, 0xffff, 1},
        {string_at, 0, 2}, {string_at, 1, 2},    {string_at, 0xffff, 3},
    };
    for (const auto& each : cases) {
        bytes damaged = good;
        put(damaged, each.at, each.length, 2);
        const auto map = decode(damaged);
        EXPECT_TRUE(map.contains("fileversion"));
        EXPECT_EQ(map.contains("stringfileinfo") + map.contains("stringfileinfo_040904b0") +
                      map.contains("stringfileinfo_040904b0_companyname"),
                  each.blocks)
            << each.at << " " << each.length;
    }
    // Cut at every length: never more than the whole, and always to an end.
    for (std::size_t size = 0; size < good.size(); ++size) {
        for (const auto& [key, entry] :
             decode({good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size)})) {
            EXPECT_TRUE(decode(good).contains(key)) << key;
        }
    }
    // A key without an end takes the rest of its block.
    bytes endless = root(bytes(52), {version_block(u"k", {}, {})});
    append(endless, std::string(200, 'x'));
    put(endless, {{info_at, 60, 1}, {info_at + 8, 'x', 1}});
    EXPECT_EQ(decode(endless).size(), 8u + 1);
}

} // namespace
