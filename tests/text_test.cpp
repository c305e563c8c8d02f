#include "uni/text.h"

#include <gtest/gtest.h>

namespace {

using strings = std::vector<std::string>;

TEST(text, case_folds_ascii_letters_only)
{
    EXPECT_EQ(uni::lowered("AZaz@[`{09"), "azaz@[`{09");
    EXPECT_EQ(uni::lowered("\xc3\x84X"), "\xc3\x84x"); // a capital A with diaeresis keeps its bytes
    EXPECT_TRUE(uni::equal_ignoring_case("SysMain.SDB", "sysmain.sdb"));
    EXPECT_FALSE(uni::equal_ignoring_case("sysmain", "sysmain.sdb"));
    EXPECT_FALSE(uni::equal_ignoring_case("@", "`"));
}

TEST(text, trimming_cuts_blanks_and_tabs_at_both_ends)
{
    for (const auto& [text, expected] : {std::pair<std::string, std::string>{" \t a b\t ", "a b"},
                                         {"\na ", "\na"},
                                         {" \t ", ""},
                                         {"", ""},
                                         {"a", "a"}}) {
        std::string in_place = text;
        uni::trim(in_place);
        EXPECT_EQ(in_place, expected);
        EXPECT_EQ(uni::trimmed(text), expected);
    }
}

TEST(text, replaces_and_removes)
{
    std::string text = "a,b,,c";
    uni::replace_char(text, ',', ',');
    EXPECT_EQ(uni::remove_char(text, ','), 3u);
    uni::replace_char(text, 'b', '-');
    EXPECT_EQ(text, "a-c");
    EXPECT_EQ(uni::replace_all("aXbX", "X", "XX"), "aXXbXX");
    EXPECT_EQ(uni::replace_all("aaa", "aa", "b"), "ba");
    EXPECT_EQ(uni::replace_all("abc", "", "x"), "");
}

TEST(text, split_drops_empty_items)
{
    EXPECT_EQ(uni::split("|a|| b ||", '|', false), (strings{"a", " b "}));
    EXPECT_EQ(uni::split(" a | |b", '|', false), (strings{" a ", " ", "b"}));
    EXPECT_EQ(uni::split(" a | |b", '|', true), (strings{"a", "b"}));
    EXPECT_EQ(uni::split("", '|', true), strings{});
}

TEST(text, xml_escape_leaves_plain_ascii)
{
    EXPECT_EQ(uni::xml_escape("a<b>&c"), "a&lt;b&gt;&amp;c");
    EXPECT_EQ(uni::xml_escape("\x80\t\r\n\x7f \"~"), "%80%09\r\n%7f \"~");
    EXPECT_EQ(uni::xml_escape(std::string_view("\0\xff", 2)), "%00%ff");
    std::string out = "<x>";
    uni::append_xml_escaped(out, "<");
    EXPECT_EQ(out, "<x>&lt;");
}

TEST(text, line_ends_become_markers)
{
    const std::pair<std::string, std::string> cases[] = {
        {"a\r\nb\nc", "a[CRLF]b[LF]c"}, {"a\rb\r", "a[CR]b[CR]"},
        {"a\n\rb", "a[LFCR]b"},         {"\n\rb", "[LF]\rb"}, // an LF at the start never pairs
        {"\n\r\nb", "[LF][CRLF]b"},     {"\r\n", "[CRLF]"},
        {"a\n\r\n", "a[LFCR][LF]"}, // the CR belongs to the line end before it
        {"a\rb\n", "a\rb[LF]"},     // a CR beside no LF stays when there is an LF
        {"a\r\r\n", "a\r[CRLF]"},       {"plain", "plain"},
    };
    for (const auto& [text, expected] : cases) {
        std::string in_place = text;
        uni::line_end_markers(in_place);
        EXPECT_EQ(in_place, expected);
    }
}

} // namespace
