#include "uni/paths.h"

#include <gtest/gtest.h>

#include <map>

namespace {

TEST(paths, split_at_the_last_separator)
{
    const struct {
        std::string_view path, directory, name;
    } cases[] = {{R"(c:\a\b.sdb)", R"(c:\a)", "b.sdb"},
                 {R"(/mnt/v\Windows/x)", R"(/mnt/v\Windows)", "x"},
                 {R"(/mnt/v.d\x)", "/mnt/v.d", "x"},
                 {"/a/", "/a", ""},
                 {"/a", "", "a"},
                 {"b.sdb", ".", "b.sdb"},
                 {"..", "..", "."},
                 {R"(a\..)", R"(a\..)", "."},
                 {"a/..", "a//..", "."},
                 {"", "", ""}};
    for (const auto& c : cases) {
        std::string directory = "old", name = "old";
        EXPECT_EQ(uni::split_path(c.path, directory, name), !c.path.empty());
        EXPECT_EQ(directory, c.directory) << c.path;
        EXPECT_EQ(name, c.name) << c.path;
    }
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
    EXPECT_EQ(uni::snapshot_prefix(true), R"(\\?\globalroot\device\harddiskvolumeshadowcopy)");
    const std::string longest = "%ROOT%" + std::string(506, 'x');
    const std::string bounded = std::string(64, '<') + "%SELF%" + std::string(64, '>');
    const std::pair<std::string, std::string> cases[] = {
        {R"(%ROOT%\a\%ROOT%)", R"(c:\windows\a\c:\windows)"},
        {"%DEEP%y", R"(c:\windows\xy)"},
        {"a%EMPTY%b", "ab"},
        {"%NONE%ROOT%", "%NONE%ROOT%"}, // a closing % opens nothing
        {"%%%ROOT%", R"(%%c:\windows)"},
        {"100%", "100%"},
        {"%SELF%", bounded},
        {longest, R"(c:\windows)" + std::string(506, 'x')},
        {longest + "x", longest + "x"},
        {R"(%VsS%2\x.sdb)", device + R"(2\x.sdb)"}};
    for (const auto& [text, expected] : cases) {
        EXPECT_EQ(uni::expand_path(text, true, environment), expected);
    }
    EXPECT_EQ(uni::expand_path("%vss%%EMPTY%", false, environment), "%vss%");
    const auto named_vss = [](const std::string&) { return std::optional<std::string>("v"); };
    EXPECT_EQ(uni::expand_path("%vss%", true, named_vss), "v") << "wins over the snapshot";
}

} // namespace
