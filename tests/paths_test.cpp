#include "uni/paths.h"

#include <gtest/gtest.h>

#include <map>

namespace {

TEST(paths, split_at_the_last_separator)
{
    const struct {
        std::string_view path, directory, name, stem, extension;
    } cases[] = {
        {R"(c:\a\b.sdb)", R"(c:\a)", "b.sdb", "b", "sdb"},
        {"/mnt/v/b.x.sdb", "/mnt/v", "b.x.sdb", "b.x", "sdb"},
        {R"(/mnt/v\Windows/x)", R"(/mnt/v\Windows)", "x", "x", ""},
        {R"(/mnt/v.d\x)", "/mnt/v.d", "x", "x", ""},
        {"/a/", "/a", "", "", ""},
        {"/a", "", "a", "a", ""},
        {"b.sdb", ".", "b.sdb", "b", "sdb"},
        {"b.", ".", "b.", "b", ""},
        {"..", "..", ".", "", ""},
        {R"(a\..)", R"(a\..)", ".", "", ""},
        {"a/..", "a//..", ".", "", ""},
    };
    for (const auto& c : cases) {
        std::string directory, name, stem, extension;
        EXPECT_TRUE(uni::split_path(c.path, directory, name));
        EXPECT_EQ(directory, c.directory) << c.path;
        EXPECT_EQ(name, c.name) << c.path;
        EXPECT_TRUE(uni::split_path_ext(c.path, directory, stem, extension));
        EXPECT_EQ(directory, c.directory) << c.path;
        EXPECT_EQ(stem, c.stem) << c.path;
        EXPECT_EQ(extension, c.extension) << c.path;
    }
    std::string directory = "old", stem = "old", extension = "old";
    EXPECT_FALSE(uni::split_path_ext("", directory, stem, extension));
    EXPECT_EQ(directory + stem + extension, "");
}

std::optional<std::string> environment(const std::string& name)
{
    static const std::map<std::string, std::string> values = {
        {"ROOT", R"(c:\windows)"}, {"DEEP", R"(%ROOT%\x)"}, {"SELF", "<%SELF%>"}, {"EMPTY", ""}};
    const auto found = values.find(name);
    return found == values.end() ? std::nullopt : std::optional(found->second);
}

TEST(paths, expands_variables)
{
    const std::string device = R"(\\?\GLOBALROOT\Device\HarddiskVolumeShadowCopy)";
    const struct {
        std::string text, plain, with_snapshot;
    } cases[] = {
        {R"(%ROOT%\a\%ROOT%)", R"(c:\windows\a\c:\windows)", R"(c:\windows\a\c:\windows)"},
        {"%DEEP%y", R"(c:\windows\xy)", R"(c:\windows\xy)"},
        {"a%EMPTY%b", "ab", "ab"},
        {"%NONE%ROOT%", "%NONE%ROOT%", "%NONE%ROOT%"}, // a closing % opens nothing
        {"%%%ROOT%", R"(%%c:\windows)", R"(%%c:\windows)"},
        {"100%", "100%", "100%"},
        {R"(%VsS%2\x.sdb)", R"(%VsS%2\x.sdb)", device + R"(2\x.sdb)"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(uni::expand_path(c.text, false, environment), c.plain);
        EXPECT_EQ(uni::expand_path(c.text, true, environment), c.with_snapshot);
    }
    EXPECT_EQ(uni::snapshot_prefix(false), device);
    EXPECT_EQ(uni::snapshot_prefix(true), R"(\\?\globalroot\device\harddiskvolumeshadowcopy)");
    EXPECT_TRUE(uni::is_on_snapshot(device + "3"));
    EXPECT_TRUE(uni::is_on_snapshot(std::string(37, '/') + "GlobalRoot"));
    EXPECT_FALSE(uni::is_on_snapshot(device)) << "one character short";
    EXPECT_FALSE(uni::is_on_snapshot(std::string(100, '/')));
}

TEST(paths, expansion_is_bounded)
{
    EXPECT_EQ(uni::expand_path("%SELF%", false, environment).size(), 64 * 2 + 6u);
    const std::string longest = "%ROOT%" + std::string(506, 'x');
    EXPECT_NE(uni::expand_path(longest, false, environment), longest);
    EXPECT_EQ(uni::expand_path(longest + "x", false, environment), longest + "x");
}

TEST(paths, a_variable_named_vss_wins_over_the_snapshot)
{
    const auto variable = [](const std::string&) { return std::optional<std::string>("v"); };
    EXPECT_EQ(uni::expand_path("%vss%", true, variable), "v");
}

} // namespace
