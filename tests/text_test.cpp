#include "uni/marks.h"
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

TEST(text, xml_escape_replaces_markup_alone)
{
    EXPECT_EQ(uni::xml_escape("a<b>&c\xc3\xa9\"\t'"), "a&lt;b&gt;&amp;c\xc3\xa9&quot;\t'");
}

TEST(text, what_acts_on_a_screen_becomes_a_mark)
{
    for (const auto& [text, expected] :
         {text_pair{"a\r\nb\nc", "a[CRLF]b[LF]c"},
          {"a\rb\r", "a[CR]b[CR]"},
          {"a\n\rb", "a[LFCR]b"},
          {"\n\rb", "[LF][CR]b"}, // an LF at the start never pairs
          {"\n\r\nb", "[LF][CRLF]b"},
          {"a\n\r\n", "a[LFCR][LF]"}, // the CR pairs with the first
          {"a\r\r\n", "a[CR][CRLF]"},
          {"plain\t\xc3\xa9\xe8\xa8\x88", "plain\t\xc3\xa9\xe8\xa8\x88"},
          {"\x1b[2J\x7f", "[x1b][2J[x7f]"},
          {"\xc2\x9b\xc2\x80\xc2\xa0", "[x9b][x80]\xc2\xa0"},
          {"\xd8\x9c\xe2\x80\x8e", "[U+061C][U+200E]"},
          {"\xe2\x80\xa9\xe2\x80\xaa", "\xe2\x80\xa9[U+202A]"},
          {"\xe2\x80\xae\xe2\x80\xaf", "[U+202E]\xe2\x80\xaf"},
          {"\xe2\x81\xa6\xe2\x81\xa9", "[U+2066][U+2069]"},
          {"\xef\xbf\xbe\xef\xbf\xbf", "\xef\xbf\xbd\xef\xbf\xbd"},
          {"\xff"
           "a\xc3",
           "[xff]a[xc3]"}, // no UTF-8
          {"\xc0\xaf\xed\xa0\x80", "[xc0][xaf][xed][xa0][x80]"},
          {"\xf0\x9f\xa7\xb5\xf4\x90\x80\x80", "\xf0\x9f\xa7\xb5[xf4][x90][x80][x80]"}}) {
        std::string in_place = text;
        uni::mark(in_place);
        EXPECT_EQ(in_place, expected);
        EXPECT_EQ(uni::needs_marks(text), text != expected);
    }
}

} // namespace
