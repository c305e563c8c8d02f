#include "uni/utf.h"

#include <gtest/gtest.h>

namespace {

std::vector<std::uint8_t> stored(std::u16string_view units)
{
    std::vector<std::uint8_t> out;
    for (const char16_t unit : units) {
        out.push_back(static_cast<std::uint8_t>(unit & 0xff));
        out.push_back(static_cast<std::uint8_t>(unit >> 8));
    }
    return out;
}

TEST(utf, converts_both_ways)
{
    const std::pair<std::u16string, std::string> cases[] = {
        {std::u16string(u"a\0b", 3), std::string("a\0b", 3)},
        {u"\u007f\u0080", "\x7f\xc2\x80"},
        {u"\u07ff\u0800", "\xdf\xbf\xe0\xa0\x80"},
        {u"\uffff", "\xef\xbf\xbf"},
        {u"x\U00010000y\U0010ffff", "x\xf0\x90\x80\x80y\xf4\x8f\xbf\xbf"},
        {u"a\xdc00z", "a\xed\xb0\x80z"}, // a low surrogate alone passes
    };
    for (const auto& [wide, narrow] : cases) {
        EXPECT_EQ(uni::utf8_from_utf16(wide), narrow);
        EXPECT_EQ(uni::utf16_from_utf8(narrow), wide) << narrow;
    }
    EXPECT_EQ(uni::utf16_from_utf8("\xc1\x81\xe0\x81\x82\xf0\x80\x81\x83"), u"ABC") << "overlong";
}

TEST(utf, one_bad_unit_fails_the_whole_text)
{
    for (const std::u16string text : {u"abc\xd800", u"\xd83dx", u"\xd83d\xd83d\xdca9"}) {
        EXPECT_EQ(uni::utf8_from_utf16(text), "");
    }
    for (const std::string text :
         {"ab\x80", "\xc3", "\xc3(", "\xe2\x82", "\xe2(\xac", "\xf0\x9f\x92", "\xf8\x88\x80\x80",
          "\xff", "\xf4\x90\x80\x80"}) {
        EXPECT_EQ(uni::utf16_from_utf8(text), u"") << text;
    }
}

TEST(utf, stored_text_ends_at_its_first_zero_or_last_whole_unit)
{
    // The units, how many bytes of them are stored, the text, and the bytes that it took.
    const std::tuple<std::u16string, std::size_t, std::string, std::uint64_t> cases[] = {
        {u"", 0, "", 0},          {u"a", 1, "", 0},
        {u"a", 3, "a", 2},        {u"ab", 4, "ab", 4},
        {u"ab", 6, "ab", 6},      {u"\u00e9b", 3, "\xc3\xa9", 2},
        {{u"\0ab", 3}, 6, "", 0}, {{u"ab\0cd", 5}, 10, "ab", 6},
    };
    for (const auto& [units, size, expected, taken] : cases) {
        auto value = stored(units);
        value.resize(size);
        std::string text = "old";
        EXPECT_EQ(uni::utf16_to_text(uni::byte_view(value), text), taken) << expected;
        EXPECT_EQ(text, expected);
    }
}

// Plain text goes several units at a time, so what is special must be met in each of their places.
TEST(utf, stored_text_is_the_same_wherever_a_special_unit_stands)
{
    const std::pair<std::u16string, std::string> specials[] = {
        {u"\u0080", "\xc2\x80"},
        {u"\u7f00", "\xe7\xbc\x80"},
        {u"\xffff", "\xef\xbf\xbf"},
        {u"\U0001f9f5", "\xf0\x9f\xa7\xb5"},
        {u"\xd800", "\xef\xbf\xbd"},
        {u"\xdc00", "\xef\xbf\xbd"}, // without a partner
        {u"\xd83d\xd83d\xdca9", "\xef\xbf\xbd\xf0\x9f\x92\xa9"}};
    for (std::size_t length = 0; length <= 16; ++length) {
        for (std::size_t at = 0; at <= length; ++at) {
            const std::string before = std::string("0123456789abcdef").substr(0, at);
            const std::string behind(length - at, 'z');
            const std::u16string wide_before(before.begin(), before.end());
            const std::u16string wide_behind(behind.begin(), behind.end());
            std::string text;
            for (const auto& [unit, narrow] : specials) {
                uni::utf16_to_text(uni::byte_view(stored(wide_before + unit + wide_behind)), text);
                ASSERT_EQ(text, before + narrow + behind);
            }
            uni::utf16_to_text(uni::byte_view(stored(wide_before + u'\0' + wide_behind)), text);
            ASSERT_EQ(text, before);
        }
    }
}

} // namespace
