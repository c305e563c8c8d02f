#include "uni/guid.h"
#include "uni/numbers.h"

#include <gtest/gtest.h>

namespace {

constexpr std::uint8_t counting[] = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77,
                                     0x88, 0x99, 0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff};
constexpr std::string_view counting_text = "33221100-5544-7766-8899-aabbccddeeff";

TEST(numbers, unsigned_reader_takes_all_forms)
{
    const std::pair<std::string_view, std::optional<std::uint32_t>> cases[] = {
        {"0x7003", 0x7003},
        {"x7003", 0x7003},
        {"28675", 0x7003},
        {"o70003", 0x7003},
        {" \t0X7003 ", 0x7003},
        {"X1F", 0x1f},
        {"O17", 15},
        {"+17", 17},
        {"'c'", 'c'},
        {"'C'", 'c'},
        {"'x'", 'x'},
        {"12ab", 12},
        {"0x1fg", 0x1f},
        {"o18", 1},
        {"0x", 0},
        {"-1", 0xffffffff},
        {"-", 0},
        {"4294967295", 0xffffffff},
        {"4294967296", 0xffffffff},
        {"0x1ffffffff", 0xffffffff},
        {"99999999999999999999999", 0xffffffff},
        {"abc", std::nullopt},
        {"", std::nullopt},
        {" \t", std::nullopt},
        {"'ab'", std::nullopt},
        {"'a'b", std::nullopt},
        {"'a", std::nullopt},
        {"#1", std::nullopt},
    };
    for (const auto& [text, expected] : cases) {
        EXPECT_EQ(uni::read_u32_auto(text), expected) << text;
    }
}

TEST(numbers, wide_and_signed_readers_have_their_own_ranges)
{
    EXPECT_EQ(uni::read_u64_auto("0xFFFFFFFFFFFFFFFE"), 0xfffffffffffffffe);
    EXPECT_EQ(uni::read_u64_auto("18446744073709551616"), 0xffffffffffffffff);
    EXPECT_EQ(uni::read_u64_auto("-2"), 0xfffffffffffffffe);
    EXPECT_EQ(uni::read_u64_auto("no"), std::nullopt);
    const std::pair<std::string_view, std::optional<std::int32_t>> cases[] = {
        {"-5", -5},
        {"+5", 5},
        {" 5 ", 5},
        {"abx1f", 0x1f},
        {"no17", 15},
        {"2147483648", 2147483647},
        {"-2147483648", -2147483647 - 1},
        {"-9999999999", -2147483647 - 1},
        {"0xffffffff", 2147483647},
        {"", std::nullopt},
        {"abc", std::nullopt},
        {"'c'", std::nullopt},
    };
    for (const auto& [text, expected] : cases) {
        EXPECT_EQ(uni::read_i32_auto(text), expected) << text;
    }
}

TEST(numbers, put_functions_fill_and_grow)
{
    char out[24];
    const auto text = [&](char* end) { return std::string(std::begin(out), end); };
    EXPECT_EQ(text(uni::put_hex(out, 0xabc, 6)), "000abc");
    EXPECT_EQ(text(uni::put_hex(out, 0x12345, 4)), "2345");
    EXPECT_EQ(text(uni::put_hex_min(out, 0x12345, 4)), "12345");
    EXPECT_EQ(text(uni::put_hex_min(out, 0, 1)), "0");
    EXPECT_EQ(text(uni::put_hex_min(out, ~0ULL, 4)), "ffffffffffffffff");
    EXPECT_EQ(text(uni::put_decimal(out, 0)), "0");
    EXPECT_EQ(text(uni::put_decimal(out, ~0ULL)), "18446744073709551615");
    EXPECT_EQ(text(uni::put_decimal_min(out, 7, 3)), "007");
    EXPECT_EQ(text(uni::put_decimal_min(out, 1234, 3)), "1234");
    EXPECT_EQ(uni::hex_text(std::span(counting).last(2)), "eeff");
    EXPECT_EQ(uni::hex_text({}), "");
}

TEST(guid, text_and_bytes_lead_to_each_other)
{
    EXPECT_EQ(uni::guid_text(counting), counting_text);
    EXPECT_EQ(uni::guid_text(std::span(counting).first(15)), "");
    const auto bytes = uni::guid_from_text(counting_text);
    ASSERT_TRUE(bytes);
    EXPECT_TRUE(std::equal(bytes->begin(), bytes->end(), std::begin(counting)));
}

TEST(guid, reading_is_lenient_about_separators_and_group_lengths)
{
    const std::pair<std::string_view, std::string_view> cases[] = {
        {"33221100a5544x7766 8899:AABBCCDDEEFF", counting_text},
        {"33221100-5544-7766-8899-aabbccddeeff}", counting_text},
        {"1-2-3-4-00000000000005", "00000001-0002-0003-0004-000000000000"}, // 12 digits, no more
        {"0000001-002-03-4-000005", "00000001-0002-0003-0004-000000000005"},
        {"3322110-554-776-889-ab", "03322110-0554-0776-0889-0000000000ab"},
        {"3322110-554-776-889-a", ""}, // one character short
        {"{33221100-5544-7766-8899-aabbccddeeff}", ""},
        {"33221100-5544-7766-8899-", ""},
        {"33221100-5544-7766-8899", ""},
        {"1-2-3-4-5", ""},
        {"", ""},
    };
    for (const auto& [text, expected] : cases) {
        const auto bytes = uni::guid_from_text(text);
        EXPECT_EQ(bytes ? uni::guid_text(*bytes) : "", expected) << text;
    }
}

} // namespace
