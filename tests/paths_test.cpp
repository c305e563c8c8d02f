#include "uni/paths.h"

#include <gtest/gtest.h>

#include <map>

#include "uni/windows_paths.h"

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

TEST(paths, long_windows_form)
{
    const struct {
        std::string_view path, current, expected;
    } cases[] = {{R"(c:\a\.\b\..\x.sdb)", R"(d:\e)", R"(\\?\c:\a\x.sdb)"},
                 {R"(c:/a//b/)", "", R"(\\?\c:\a\b\)"},
                 {R"(c:\..\..\a)", "", R"(\\?\c:\a)"},
                 {R"(c:\)", "", R"(\\?\c:\)"},
                 {R"(it's "a" .sdb)", R"(c:\ e)", R"(\\?\c:\ e\it's "a" .sdb)"},
                 {R"(a\..\..\b\...)", R"(c:\d\e)", R"(\\?\c:\d\b\...)"},
                 {R"(..\..\..\a)", R"(c:\d)", R"(\\?\c:\a)"},
                 {R"(a)", R"(c:\)", R"(\\?\c:\a)"},
                 {R"(/a)", R"(c:\d)", R"(\\?\c:\a)"},
                 {R"(c:a)", R"(c:\d)", R"(\\?\c:\d\a)"},
                 {R"(c:)", R"(c:\d)", R"(\\?\c:\d)"},
                 {R"(a)", R"(\\s\v\d)", R"(\\?\UNC\s\v\d\a)"},
                 {R"(..\..\..\a)", R"(\\s\v\d)", R"(\\?\UNC\s\v\a)"},
                 {R"(\a)", R"(\\s\v\d)", R"(\\?\UNC\s\v\a)"},
                 {R"(a)", R"(\\?\c:\d)", R"(\\?\c:\d\a)"},
                 {R"(a)", R"(\\?\UNC\s\v\d)", R"(\\?\UNC\s\v\d\a)"},
                 {R"(//s/v/./a/../../b)", "", R"(\\?\UNC\s\v\b)"},
                 {R"(/\s\v)", "", R"(\\?\UNC\s\v\)"},
                 {R"(\\?\c:\a\..\b/.)", R"(c:\d)", R"(\\?\c:\a\..\b/.)"},
                 {R"(//?/c:/a/../b)", "", R"(\\?\c:\b)"},
                 {R"(\\.\c:\..\b)", "", R"(\\?\c:\b)"},
                 {R"(a)", "", ""},
                 {"", R"(c:\d)", ""}};
    for (const auto& c : cases) {
        EXPECT_EQ(uni::long_windows_path(c.path, c.current), c.expected) << c.path;
    }
    for (const auto& [path, plain] : {std::pair(R"(\\?\c:\a)", R"(c:\a)"),
                                      {R"(\\?\unc\s\v)", R"(\\s\v)"},
                                      {R"(\\?\Volume{1}\a)", R"(\\?\Volume{1}\a)"},
                                      {R"(\\s\v\a)", R"(\\s\v\a)"}}) {
        EXPECT_EQ(uni::plain_windows_path(path), plain);
    }
}

TEST(paths, names_of_windows_devices)
{
    for (const char* const name :
         {R"(\\.\NUL)", R"(\\.\COM1)", R"(\\.\pipe\a)", R"(\\?\Pipe\a)", R"(\\s\pipe\a)",
          R"(\\?\UNC\s\pipe\a)", R"(\\.\PhysicalDrive0)"}) {
        EXPECT_TRUE(uni::names_windows_device(name)) << name;
    }
    for (const char* const name : {R"(c:\pipe\a)", R"(\\.\c:\a)", R"(\\?\c:\)", R"(\\s\v\pipe\a)",
                                   R"(\\?\GLOBALROOT\Device\HarddiskVolumeShadowCopy2\a)", ""}) {
        EXPECT_FALSE(uni::names_windows_device(name)) << name;
    }
}

} // namespace
