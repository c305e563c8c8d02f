#include "pe/pe_file.h"

#include <gtest/gtest.h>

#include "support/pe_builder.h"

namespace {

using test_support::bytes;
using test_support::pe_plan;
using test_support::resource_node;

using lines = std::vector<std::string>;

struct opened {
    explicit opened(const bytes& image) : file(test_support::source_of(image)) {}
    explicit opened(const pe_plan& plan) : opened(plan.build()) {}

    lines resources()
    {
        lines names;
        for (const pe::pe_resource& resource : file.resources()) {
            names.push_back(file.resource_name(resource));
        }
        return names;
    }
    pe::PE_FILE_UTIL file;
};

TEST(pe_file, headers_of_both_sizes)
{
    for (const bool is_64 : {false, true}) {
        pe_plan plan;
        plan.is_64 = is_64;
        plan.optional_size = 0x1234; // not looked at
        plan.image_base = is_64 ? 0x140000000 : 0x400000;
        plan.entry_rva = 0x2010;
        plan.sections = {{".text", 1024, 512, 0x1000, 0x1000},
                         {"no_zero_", 2048, 512, 0x2000, 0x11},
                         {"late", 3072, 512, 0x2000, 0x1000}};
        opened in(plan);
        ASSERT_TRUE(in.file.valid());
        EXPECT_EQ(in.file.is_64(), is_64);
        EXPECT_EQ(in.file.optional_header64().size(), is_64 ? 240u : 224u);
        EXPECT_EQ(in.file.image_base(), plan.image_base);
        EXPECT_EQ(in.file.entry_rva(), 0x2010u);
        EXPECT_EQ(in.file.entry_file_offset(), 2048u + 0x10);
        ASSERT_EQ(in.file.sections().size(), 3u);
        EXPECT_EQ(in.file.sections()[1].name, "no_zero_");
        EXPECT_EQ(in.file.find_section_rsrc(), nullptr);
    }
}

TEST(pe_file, what_is_refused)
{
    pe_plan plan;
    plan.sections = {{".text", 1024, 512}};
    for (const bool is_64 : {false, true}) {
        plan.is_64 = is_64;
        const std::size_t needed = plan.pe_offset + 24 + (is_64 ? 240 : 224) + 40;
        for (plan.file_size = 0; plan.file_size <= needed; ++plan.file_size) {
            const opened in(plan);
            ASSERT_EQ(in.file.valid(), plan.file_size == needed) << plan.file_size;
            ASSERT_EQ(in.file.sections().size(), in.file.valid() ? 1u : 0u);
        }
        plan.file_size = 4096;
    }
    for (const auto& [place, is_valid] : {std::pair{64u, false},
                                          {65u, true},
                                          {0u, false},
                                          {63u, false},
                                          {4000u, false},
                                          {4096u, false},
                                          {4097u, false}}) {
        plan.pe_offset = place; // at 64 there is no stub
        EXPECT_EQ(opened(plan).file.valid(), is_valid) << place;
    }
    for (const std::uint32_t place : {0x7fffffffu, 0x80000000u, 0x80000040u, 0xffffffffu}) {
        bytes image = pe_plan().build();
        test_support::put(image, 60, place, 4);
        EXPECT_FALSE(opened(image).file.valid()) << place;
    }
    for (const std::size_t changed : {0u, 128u, 130u}) {
        bytes image = pe_plan().build();
        image[changed] ^= 1;
        EXPECT_FALSE(opened(image).file.valid()) << changed;
    }
    EXPECT_TRUE(opened(pe_plan()).file.valid()) << "no sections";
    plan.pe_offset = 128;
    plan.sections.resize(65535, plan.sections.front());
    EXPECT_FALSE(opened(plan).file.valid());
    plan.file_size = 128 + 24 + 240 + std::size_t{65535} * 40;
    EXPECT_TRUE(opened(plan).file.valid());
    EXPECT_FALSE(pe::PE_FILE_UTIL(nullptr).valid());
}

TEST(pe_file, names_of_resources)
{
    const auto leaf = [](std::uint32_t language) {
        return resource_node{.id = language, .data = bytes(4)};
    };
    const resource_node root{
        .entries = {
            {.name = u"TYPELIB", .entries = {{.name = u"caf\u00e9", .entries = {leaf(0x12345)}}}},
            {.id = 3, .entries = {{.id = 10, .entries = {leaf(0), leaf(1033)}}}},
            {.id = 13, .data = bytes(8)},
            {.id = 16, .entries = {{.id = 2, .data = bytes(8)}}},
            {.id = 24,
             .entries = {{.id = 1,
                          .entries = {{.name = std::u16string(79, u'x'), .data = bytes(4)},
                                      {.name = std::u16string(80, u'x'), .data = bytes(4)},
                                      leaf(7)}}}},
        }};
    EXPECT_EQ(opened(test_support::pe_with_resources(root)).resources(),
              (lines{"TYPELIB : caf\u00e9 : 0x12345", "ICON : 0x000a : 0x0000",
                     "ICON : 0x000a : 0x0409", "<unk>", "VERSION : 0x0002",
                     "MANIFEST : 0x0001 : " + std::string(79, 'x'), "MANIFEST : 0x0001 : 0x0007"}));
}

TEST(pe_file, a_long_name_hides_the_rest_of_its_directory)
{
    const auto names = [](std::size_t length) {
        const resource_node leaf{.id = 1, .data = bytes(4)};
        const resource_node root{
            .entries = {{.name = std::u16string(length, u'n'), .entries = {{.entries = {leaf}}}},
                        {.id = 3, .entries = {{.entries = {leaf}}}}}};
        return opened(test_support::pe_with_resources(root)).resources().size();
    };
    EXPECT_EQ(names(512), 2u);
    EXPECT_EQ(names(513), 0u);
}

// Sets a word of the resource tree, whose root has its one entry's name at 16 and place at 20.
std::vector<std::string> resources_with(std::size_t at, std::uint32_t word)
{
    bytes image =
        test_support::pe_with_resources(test_support::lone_resource(16, bytes(64))).build();
    test_support::put(image, 1024 + at, word, 4);
    return opened(image).resources();
}

TEST(pe_file, damaged_resource_trees_end)
{
    const lines whole{"VERSION : 0x0001 : 0x0409"};
    EXPECT_EQ(resources_with(16, 16), whole);
    struct row {
        const char* what;
        std::size_t at;
        std::uint32_t word;
        lines names;
    };
    for (const row& row : {
             row{"level 2 is the root", 20, 0x80000000, {}},
             {"level 3 is the root", 44, 0x80000000, {}},
             {"level 3 is level 2", 44, 0x80000018, {}},
             {"a directory beyond the file", 20, 0xffffffff, {}},
             {"a leaf beyond the file", 68, 0x7fffffff, {}},
             {"a fourth level", 68, 0x80000048, {"VERSION : 0x0001"}},
             {"more entries than bytes", 12, 0xffffffff, whole},
             {"a name beyond the file", 16, 0xffffff00, {}},
             {"data before the section", 72, 0, {}},
             {"data that end beyond the file", 76, 0xffffffff, whole},
         }) {
        EXPECT_EQ(resources_with(row.at, row.word), row.names) << row.what;
    }
}

TEST(pe_file, trees_that_refer_to_themselves_stay_small)
{
    // 40,000 entries of which each leads to the directory that they stand in, on three levels.
    bytes tree(16 + 40000 * 8);
    test_support::put(tree, 14, 40000, 2);
    for (std::size_t i = 0; i < 40000; ++i) {
        test_support::put(tree, 16 + i * 8 + 4, 0x80000000 | (i * 16 & 0xffff), 4);
    }
    pe_plan plan;
    plan.sections = {{".rsrc", 1024, static_cast<std::uint32_t>(tree.size()), 0x1000, 0, tree}};
    plan.file_size = 1024 + tree.size();
    EXPECT_LE(opened(plan).file.resources().size(), 100000u);
}

} // namespace
