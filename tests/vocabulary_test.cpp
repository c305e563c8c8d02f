#include "sdb/vocabulary.h"

#include <gtest/gtest.h>

#include <set>

namespace {

// The ranges of numbers that have a name, as an independent list beside the table.
constexpr std::pair<unsigned, unsigned> named_ranges[] = {
    {0x1001, 0x1012}, {0x3001, 0x3003}, {0x3802, 0x3803}, {0x4001, 0x4012}, {0x4014, 0x4029},
    {0x4030, 0x4033}, {0x4036, 0x404c}, {0x404e, 0x4058}, {0x4801, 0x4801}, {0x5001, 0x501a},
    {0x501c, 0x501f}, {0x6001, 0x6006}, {0x6008, 0x600b}, {0x6010, 0x6034}, {0x6036, 0x6036},
    {0x7001, 0x701a}, {0x701c, 0x701c}, {0x701e, 0x703a}, {0x703c, 0x703f}, {0x7801, 0x7803},
    {0x8801, 0x8801}, {0x9001, 0x9009}, {0x9010, 0x9013}, {0x9801, 0x9801}};

std::set<unsigned> numbers_where(bool (*predicate)(std::uint16_t))
{
    std::set<unsigned> numbers;
    for (unsigned tag = 0; tag <= 0xffff; ++tag) {
        if (predicate(static_cast<std::uint16_t>(tag))) {
            numbers.insert(tag);
        }
    }
    return numbers;
}

TEST(vocabulary, exactly_the_known_tags_have_names_of_their_own)
{
    std::set<unsigned> expected;
    for (const auto& [first, last] : named_ranges) {
        for (unsigned tag = first; tag <= last; ++tag) {
            expected.insert(tag);
        }
    }
    EXPECT_EQ(numbers_where([](std::uint16_t t) { return !sdb::known_tag_name(t).empty(); }),
              expected);
    std::set<std::string> names;
    for (const unsigned tag : expected) {
        names.insert(sdb::tag_name(static_cast<std::uint16_t>(tag)));
    }
    EXPECT_EQ(names.size(), expected.size());
}

TEST(vocabulary, names_of_tags)
{
    const std::pair<std::uint16_t, std::string_view> cases[] = {
        {0x1001, "include"},     {0x1012, "upgrade_action_proceed_to_mediasetup"},
        {0x3803, "index_key"},   {0x4058, "upgrade_mode"},
        {0x4801, "tagid"},       {0x5001, "time"},
        {0x7007, "exe"},         {0x6017, "s16bit_description"},
        {0x7803, "index"},       {sdb::tag::matching_file, "matching_file"},
        {0x9001, "binary_9001"}, {0x8801, "stringtable_item"},
        {0x2005, "byte"},        {0x9801, "index_bits"},
        {0xa001, "unk"},         {0x2fff, "byte"},
        {0x0001, "unk"},         {0xe003, "unk"},
        {0x9800, "tag_38912"},   {0x404d, "tag_16461"},
    };
    for (const auto& [tag, expected] : cases) {
        EXPECT_EQ(sdb::tag_name(tag), expected) << tag;
    }
}

TEST(vocabulary, names_of_types)
{
    std::string names;
    for (unsigned type = 0; type <= 0xf000; type += 0x1000) {
        names.append(sdb::known_type_name(static_cast<std::uint16_t>(type))).append(",");
    }
    EXPECT_EQ(names, ",null,byte,word,dword,qword,stringref,list,string,binary,,,,,,,");
    EXPECT_EQ(sdb::known_type_name(0x7008), "") << "a whole tag is no type";
}

TEST(vocabulary, predicates_hold_for_their_tags_alone)
{
    EXPECT_EQ(numbers_where(sdb::is_expanded_dword_tag),
              (std::set<unsigned>{0x4004, 0x4005, 0x401a, 0x401b, 0x4020, 0x4030, 0x404c, 0x4050,
                                  0x4801, 0x4888}));
    EXPECT_EQ(numbers_where(sdb::is_reference_list_tag),
              (std::set<unsigned>{0x7009, 0x700a, 0x700b, 0x7011, 0x7015, 0x7019, 0x7026, 0x702c,
                                  0x7031, 0x7032, 0x703c}));
    const auto pseudo = numbers_where(sdb::is_pseudo_tag);
    EXPECT_EQ(pseudo.size(), 0x1000u);
    EXPECT_EQ(*pseudo.begin(), 0xe000u);
    EXPECT_EQ(*pseudo.rbegin(), 0xefffu);
}

} // namespace
