#include "uni/text.h"

#include <gtest/gtest.h>

namespace {

using strings = std::vector<std::string>;
using text_pair = std::pair<std::string, std::string>;

TEST(text, case_folds_ascii_letters_only)
{
    EXPECT_EQ(uni::lowered("AZaz@[`{09\xc3\x84X"), "azaz@[`{09\xc3\x84x");
    EXPECT_TRUE(uni::equal_ignoring_case("SysMain.SDB", "sysmain.sdb"));
    EXPECT_FALSE(uni::equal_ignoring_case("sysmain", "sysmain.sdb"));
    EXPECT_FALSE(uni::equal_ignoring_case("@", "`"));
}

TEST(text, trimming_cuts_blanks_and_tabs_at_both_ends)
{
    for (const auto& [text, expected] :
         {text_pair{" \t a b\t ", "a b"}, {"\na ", "\na"}, {" \t ", ""}, {"", ""}, {"a", "a"}}) {
        std::string in_place = text;
        uni::trim(in_place);
        EXPECT_EQ(in_place, expected);
        EXPECT_EQ(uni::trimmed(text), expected);
    }
}

TEST(text, replaces_and_removes)
{
    std::string text = "a,b,,c";
    EXPECT_EQ(uni::remove_char(text, ','), 3u);
    uni::replace_char(text, 'b', '-');
    EXPECT_EQ(text, "a-c");
    EXPECT_EQ(uni::replace_all("aXbX", "X", "XX"), "aXXbXX");
    EXPECT_EQ(uni::replace_all("aaa", "aa", "b"), "ba");
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
    EXPECT_EQ(uni::xml_escape({"\0\x80\t\r\n\x1f\x7f \"~\xff", 11}), "%00%80%09\r\n%1f%7f \"~%ff");
}

TEST(text, line_ends_become_markers)
{
    for (const auto& [text, expected] : {text_pair{"a\r\nb\nc", "a[CRLF]b[LF]c"},
                                         {"a\rb\r", "a[CR]b[CR]"},
                                         {"a\n\rb", "a[LFCR]b"},
                                         {"\n\rb", "[LF][CR]b"}, // an LF at the start never pairs
                                         {"\n\r\nb", "[LF][CRLF]b"},
                                         {"a\n\r\n", "a[LFCR][LF]"}, // the CR pairs with the first
                                         {"a\r\r\n", "a[CR][CRLF]"},
                                         {"plain", "plain"}}) {
        std::string in_place = text;
        uni::keep_on_one_line(in_place);
        EXPECT_EQ(in_place, expected);
    }
}

} // namespace
