#include "sdb/patch_op.h"

#include <gtest/gtest.h>

#include "support/sdb_builder.h"
#include "uni/utf.h"

namespace {

using test_support::bytes;
using test_support::match_op;
using test_support::patch_bytes;
using positions = std::vector<std::uint64_t>;

std::string module_of(const sdb::patch_op& op)
{
    std::string name;
    uni::utf16_to_text(op.module_name, name);
    return name;
}

bytes data_of(const sdb::patch_op& op)
{
    return {op.data.bytes().begin(), op.data.bytes().end()};
}

TEST(patch_op, the_lowest_bits_name_it)
{
    for (const std::string display :
         {"0x00000000 [unk]", "0x00000001 [set addr]", "0x00000002 [replace]",
          "0x00000003 [replace]", "0x00000004 [match]", "0x00000006 [match]", "0x00000010 [unk]",
          "0xabcdef01 [set addr]"}) {
        const unsigned long opcode = std::stoul(display, nullptr, 16);
        EXPECT_EQ(sdb::op_display(static_cast<std::uint32_t>(opcode)), display);
    }
}

TEST(patch_op, fields)
{
    const std::string name(32, 'n'); // fills its place, so that no zero ends it
    test_support::patch_op made{3, name, 0x12345678, {1, 0, 3}};
    made.reserved = 0x99;
    const bytes value = patch_bytes({made});
    sdb::patch_op op;
    ASSERT_TRUE(sdb::decode_patch_op(op, uni::byte_view(value), 0));
    EXPECT_EQ(op.opcode, 3u);
    EXPECT_EQ(op.next_size, 87u);
    EXPECT_EQ(op.data_size, 3);
    EXPECT_EQ(op.address, 0x12345678u);
    EXPECT_EQ(op.reserved_word, 0x99u);
    EXPECT_EQ(module_of(op), name);
    EXPECT_EQ(data_of(op), (bytes{1, 0, 3}));
}

TEST(patch_op, fewer_than_84_bytes)
{
    const std::tuple<std::size_t, std::uint32_t, bool, bytes> cases[] = {
        {51, 0, false, {}}, // bytes of the value, data size, whether it decodes, its data
        {52, 0, true, {}},           {52, 1, false, {}},
        {60, 8, true, {}}, // fits the threshold, though none of its bytes is there
        {60, 9, false, {}},          {86, 34, true, {8, 9}}, // of which two are there
        {87, 2, true, {8, 9}},       {87, 36, false, {}},
        {87, 0x80000000, false, {}},
    };
    const std::string name = "abcdefghijklmnopqrst";
    for (const auto& [size, data_size, decodes, data] : cases) {
        test_support::patch_op made = match_op(name, 7, {8, 9, 10});
        made.data_size = data_size;
        bytes value = patch_bytes({made});
        value.resize(size);
        sdb::patch_op op;
        EXPECT_EQ(sdb::decode_patch_op(op, uni::byte_view(value), 0), decodes) << size;
        EXPECT_EQ(data_of(op), data);
        EXPECT_TRUE(!decodes || module_of(op) == name.substr(0, (size - 20) / 2));
    }
}

TEST(patch_op, the_walk_goes_by_next_size)
{
    const auto with_next = [](std::uint32_t next) {
        test_support::patch_op op = match_op("m", 1, {1});
        op.next_size = next;
        return op;
    };
    const auto second = match_op("m", 2, {});
    const std::pair<bytes, positions> cases[] = {
        {{}, {}},
        {patch_bytes({match_op("m", 1, {1}), second}), {0, 85}},
        {patch_bytes({with_next(0), second}), {0}},
        {patch_bytes({with_next(0xffffffff), second}), {0}},
        {patch_bytes({with_next(169), second, second}), {0, 169}},
        {patch_bytes({with_next(117), second}), {0, 117}}, // 52 bytes are left
        {patch_bytes({with_next(118), second}), {0}},      // 51 are not enough
    };
    for (const auto& [value, expected] : cases) {
        positions seen;
        sdb::for_each_patch_op(uni::byte_view(value), [&](const auto&, std::uint64_t position) {
            seen.push_back(position);
            return true;
        });
        EXPECT_EQ(seen, expected);
    }
    int calls = 0;
    sdb::for_each_patch_op(uni::byte_view(cases[1].first),
                           [&](const auto&, std::uint64_t) { return ++calls == 0; });
    EXPECT_EQ(calls, 1) << "ends when told";
}

} // namespace
