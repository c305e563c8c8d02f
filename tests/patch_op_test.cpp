#include "sdb/patch_op.h"

#include <gtest/gtest.h>

#include "support/sdb_builder.h"
#include "uni/numbers.h"
#include "uni/utf.h"

namespace {

using test_support::bytes;
using test_support::match_op;

// The fields of a value's first operation, its name and its data; "none" if it does not decode.
std::string decoded(const bytes& value)
{
    sdb::patch_op op;
    if (!sdb::decode_patch_op(op, uni::byte_view(value), 0)) {
        return "none";
    }
    std::string name, text;
    for (const std::int64_t number :
         {std::int64_t{op.opcode}, std::int64_t{op.next_size}, std::int64_t{op.data_size},
          std::int64_t{op.address}, std::int64_t{op.reserved_word}}) {
        text += std::to_string(number) + ' ';
    }
    uni::utf16_to_text(op.module_name, name);
    return text + name + ' ' + uni::hex_text(op.data.bytes());
}

TEST(patch_op, the_lowest_bits_name_it)
{
    const std::pair<std::uint32_t, const char*> cases[] = {
        {0, "unk"},   {1, "set addr"}, {2, "replace"}, {3, "replace"},
        {4, "match"}, {6, "match"},    {16, "unk"},    {0xabcdef01, "set addr"}};
    for (const auto& [opcode, name] : cases) {
        EXPECT_EQ(sdb::op_name(opcode), name) << opcode;
    }
}

TEST(patch_op, fields)
{
    const std::string name(32, 'n'); // fills its place, so that no zero ends it
    test_support::patch_op made{3, name, 1234, {1, 0, 3}};
    made.reserved = 99;
    EXPECT_EQ(decoded(test_support::patch_bytes({made})), "3 87 3 1234 99 " + name + " 010003");
}

TEST(patch_op, fewer_than_84_bytes)
{
    const std::tuple<std::size_t, std::uint32_t, std::string> cases[] = {
        {51, 0, "none"}, // bytes of the value, data size, name and data
        {52, 0, "0 7 0 abcdefghijklmnop "},
        {52, 1, "none"},
        {60, 8, "8 7 0 abcdefghijklmnopqrst "}, // fits, though none of its bytes is there
        {60, 9, "none"},
        {86, 34, "34 7 0 abcdefghijklmnopqrst 0809"}, // of which two are there
        {87, 2, "2 7 0 abcdefghijklmnopqrst 0809"},
        {87, 36, "none"},
        {87, 0x80000000, "none"},
    };
    for (const auto& [size, data_size, expected] : cases) {
        test_support::patch_op made = match_op("abcdefghijklmnopqrst", 7, {8, 9, 10});
        made.data_size = data_size;
        bytes value = test_support::patch_bytes({made});
        value.resize(size);
        EXPECT_EQ(decoded(value), expected == "none" ? expected : "4 87 " + expected) << size;
    }
}

// The places of the operations that are walked to, `most` of them at the most.
std::vector<std::uint64_t> walked(const bytes& value, std::size_t most = 9)
{
    std::vector<std::uint64_t> seen;
    sdb::for_each_patch_op(uni::byte_view(value), [&](const auto&, std::uint64_t position) {
        seen.push_back(position);
        return seen.size() < most;
    });
    return seen;
}

TEST(patch_op, the_walk_goes_by_next_size)
{
    using positions = std::vector<std::uint64_t>;
    test_support::patch_op first = match_op("m", 1, {1});
    const test_support::patch_op second = match_op("m", 2, {});
    EXPECT_EQ(walked({}), positions{});
    EXPECT_EQ(walked(test_support::patch_bytes({first, second})), (positions{0, 85}));
    EXPECT_EQ(walked(test_support::patch_bytes({first, second}), 1), positions{0});
    for (const auto& [next, expected] : {std::pair(0u, positions{0}),
                                         {0xffffffff, {0}},
                                         {117, {0, 117}}, // 52 bytes are left
                                         {118, {0}}}) {   // 51 are not enough
        first.next_size = next;
        EXPECT_EQ(walked(test_support::patch_bytes({first, second})), expected) << next;
    }
}

} // namespace
