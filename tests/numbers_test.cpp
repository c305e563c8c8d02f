#include "uni/guid.h"
#include "uni/numbers.h"

#include <gtest/gtest.h>

namespace {

constexpr std::uint8_t counting[] = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77,
                                     0x88, 0x99, 0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff};
constexpr std::string_view counting_text = "33221100-5544-7766-8899-aabbccddeeff";

TEST(numbers, readers_take_all_forms)
{
    constexpr std::uint32_t largest = 0xffffffff;
    const std::pair<std::optional<std::uint32_t>, std::vector<std::string_view>> cases[] = {
        {0x7003, {"0x7003", "x7003", "28675", "o70003", " \t0X7003 "}},
        {0x1f, {"X1F", "?x1f", "0x1fg"}},
        {'c', {"'c'", "'C'", "99"}},
        {'x', {"'x'"}},
        {15, {"O17", "+15", "15ab", "o178"}},
        {0, {"0x", "-", "o"}},
        {largest, {"-1", "4294967295", "4294967296", "0x1ffffffff", "99999999999999999999999"}},
        {std::nullopt, {"abc", "", " \t", "'ab'", "'a'b", "'a", "#1"}}};
    for (const auto& [expected, texts] : cases) {
        for (const std::string_view text : texts) {
            EXPECT_EQ(uni::read_u32_auto(text), expected) << text;
        }
    }
    EXPECT_EQ(uni::read_u64_auto("0xFFFFFFFFFFFFFFFE"), 0xfffffffffffffffe);
    EXPECT_EQ(uni::read_u64_auto("18446744073709551616"), 0xffffffffffffffff);
    EXPECT_EQ(uni::read_u64_auto("-2"), 0xfffffffffffffffe);
    EXPECT_EQ(uni::read_u64_auto("no"), std::nullopt);
}

TEST(numbers, put_functions_fill_and_grow)
{
    char out[24];
    const auto text = [&](char* end) { return std::string(std::begin(out), end); };
    EXPECT_EQ(text(uni::put_hex(out, 0xabc, 6)), "000abc");
    EXPECT_EQ(text(uni::put_hex(out, 0x12345, 3)), "345");
    EXPECT_EQ(text(uni::put_hex_min(out, 0x12345, 4)), "12345");
    EXPECT_EQ(text(uni::put_hex_min(out, 0, 1)), "0");
    EXPECT_EQ(text(uni::put_hex_min(out, ~0ULL, 4)), "ffffffffffffffff");
    EXPECT_EQ(text(uni::put_decimal(out, 0)), "0");
    EXPECT_EQ(text(uni::put_decimal(out, 10)), "10");
    EXPECT_EQ(text(uni::put_decimal(out, ~0ULL)), "18446744073709551615");
    EXPECT_EQ(text(uni::put_decimal_min(out, 7, 2)), "07");
    EXPECT_EQ(text(uni::put_decimal_min(out, 1234, 2)), "1234");
    EXPECT_EQ(text(uni::put_decimal_min(out, 7, 3)), "007");
    EXPECT_EQ(uni::hex_text(std::span(counting).last(2)), "eeff");
}

TEST(guid, reading_is_lenient_about_separators_and_group_lengths)
{
    EXPECT_EQ(uni::guid_text(counting), counting_text);
    EXPECT_EQ(uni::guid_text(std::span(counting).first(15)), "");
    const std::pair<std::string_view, std::string_view> cases[] = {
        {counting_text, counting_text},
        {"33221100a5544x7766 8899:AABBCCDDEEFF", counting_text},
        {"33221100-5544-7766-8899-aabbccddeeff}", counting_text},
        {"1-2-3-4-00000000000005", "00000001-0002-0003-0004-000000000000"}, // 12 digits, no more
        {"0000001-002-03-4-000005", "00000001-0002-0003-0004-000000000005"},
        {"3322110-554-776-889-ab", "03322110-0554-0776-0889-0000000000ab"},
        {"3322110-554-776-889-a", ""}, // one character short
        {"{33221100-5544-7766-8899-aabbccddeeff}", ""},
        {"33221100-5544-7766-8899-", ""},
        {"33221100-5544-7766-8899", ""}};
    for (const auto& [text, expected] : cases) {
        const auto bytes = uni::guid_from_text(text);
        EXPECT_EQ(bytes ? uni::guid_text(*bytes) : "", expected) << text;
    }
}

} // namespace
