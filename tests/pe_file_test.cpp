#include "pe/pe_file.h"

#include <cmath>
#include <random>

#include <gtest/gtest.h>

#include "pe/hex_dump.h"
#include "support/pe_builder.h"

namespace {

using test_support::bytes;
using test_support::pe_plan;
using test_support::resource_node;

struct opened {
    explicit opened(const bytes& image)
        : file(std::make_unique<io::memory_source>(io::byte_vector(image.begin(), image.end())))
    {}
    explicit opened(const pe_plan& plan) : opened(plan.build()) {}

    // "offset+size name" of each segment.
    std::vector<std::string> map()
    {
        std::vector<std::string> lines;
        for (const auto& [offset, segment] : file.segments()) {
            EXPECT_EQ(offset, segment.offset);
            lines.push_back(std::to_string(offset) + "+" + std::to_string(segment.size) + " " +
                            segment.name);
        }
        return lines;
    }
    std::vector<std::string> resources()
    {
        std::vector<std::string> names;
        for (const pe::pe_resource& resource : file.resources()) {
            names.push_back(file.resource_segment(resource).name);
        }
        return names;
    }
    pe::PE_FILE_UTIL file;
};

using lines = std::vector<std::string>;

bytes random_bytes(std::size_t size)
{
    std::mt19937 random(1);
    bytes made(size);
    for (std::uint8_t& byte : made) {
        byte = static_cast<std::uint8_t>(random());
    }
    return made;
}

TEST(pe_file, figures_of_a_stretch)
{
    bytes image(1000, 10);
    std::fill(image.begin() + 750, image.end(), std::uint8_t{250});
    opened in(image);
    pe::STATS stats;
    ASSERT_TRUE(in.file.compute_stats(0, 1000, stats));
    EXPECT_DOUBLE_EQ(stats.mean, 70);
    EXPECT_DOUBLE_EQ(stats.variance, 10800);
    EXPECT_DOUBLE_EQ(stats.std_dev, std::sqrt(10800));
    EXPECT_NEAR(stats.entropy, 0.811278 / 8, 1e-6);
    EXPECT_EQ(stats.histogram[250], 250u);
    EXPECT_EQ(std::make_pair(stats.max_count, stats.max_byte), std::make_pair(750u, 10u));
    EXPECT_EQ(std::make_pair(stats.min_count, stats.min_byte), std::make_pair(0u, 0u));
    EXPECT_DOUBLE_EQ(in.file.whole_file_stats()->mean, 70);
    EXPECT_FALSE(in.file.compute_stats(0, 0, stats));
    EXPECT_FALSE(in.file.compute_stats(1, 1000, stats));
    EXPECT_EQ(opened(bytes()).file.whole_file_stats(), nullptr);
}

TEST(pe_file, bounds_of_the_test_for_random_bytes)
{
    pe::STATS good;
    good.mean = 125;
    good.std_dev = 65;
    good.entropy = 0.987;
    good.max_count = 100;
    good.min_count = 60;
    ASSERT_TRUE(pe::is_high_entropy(good));
    struct row {
        double pe::STATS::*field;
        double value;
        bool passes;
    };
    for (const row& row : {row{&pe::STATS::mean, 120, true},
                           {&pe::STATS::mean, 130, true},
                           {&pe::STATS::mean, 119.99, false},
                           {&pe::STATS::mean, 130.01, false},
                           {&pe::STATS::std_dev, 64.99, false},
                           {&pe::STATS::entropy, 0.98699, false}}) {
        pe::STATS changed = good;
        changed.*row.field = row.value;
        EXPECT_EQ(pe::is_high_entropy(changed), row.passes) << row.value;
    }
    good.min_count = 59;
    EXPECT_FALSE(pe::is_high_entropy(good));
    EXPECT_FALSE(pe::is_high_entropy(pe::STATS()));
}

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
        EXPECT_EQ(in.file.dos_stub().size(), plan.pe_offset - 64);
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
    const auto is_valid = [&plan](std::uint32_t pe_offset) {
        plan.pe_offset = pe_offset;
        return opened(plan).file.valid();
    };
    EXPECT_FALSE(is_valid(64)) << "no stub";
    EXPECT_TRUE(is_valid(65));
    for (const std::uint32_t place :
         {0u, 63u, 4000u, 4096u, 4097u, 0x7fffffffu, 0x80000000u, 0x80000040u, 0xffffffffu}) {
        EXPECT_FALSE(is_valid(place)) << place;
    }
    for (const std::size_t changed : {0u, 128u, 130u}) {
        bytes image = pe_plan().build();
        image[changed] ^= 1;
        EXPECT_FALSE(opened(image).file.valid()) << changed;
    }
    EXPECT_TRUE(opened(pe_plan()).file.valid()) << "no sections";
    plan.sections.resize(65535, plan.sections.front());
    EXPECT_FALSE(is_valid(128));
    plan.file_size = 128 + 24 + 240 + std::size_t{65535} * 40;
    EXPECT_TRUE(is_valid(128));
}

TEST(pe_file, map_of_segments_and_gaps)
{
    pe_plan plan; // 128 bytes, then 248 of headers and 40 a section
    plan.certificate[0] = 3000;
    plan.certificate[1] = 96;
    plan.bound_import[0] = 500;
    plan.bound_import[1] = 0; // no segment
    plan.sections = {{"inside", 300, 100},  {"first", 1024, 512}, {"second", 1024, 1000},
                     {"overlap", 1500, 10}, {"empty", 2000, 0},   {"next", 1536, 64}};
    EXPECT_EQ(opened(plan).map(),
              (lines{"0+128 dos_headers", "128+488 pe_headers", "616+408 gap", "1024+512 first",
                     "1536+64 next", "1600+1400 gap", "3000+96 digital_cert", "3096+1000 gap"}));
    plan.sections = {{"beyond", 0xfffffff0, 0xffffffff}};
    plan.is_64 = true;
    plan.certificate[1] = 0;
    plan.bound_import[1] = 7;
    EXPECT_EQ(
        opened(plan).map(),
        (lines{"0+128 dos_headers", "128+304 pe_headers", "432+68 gap", "500+7 bound_import",
               "507+4294966773 gap [too large for analysis]", "4294967280+4294967295 beyond"}));
    EXPECT_EQ(opened(bytes(100)).map(), lines());
}

TEST(pe_file, gaps_and_resources_are_tested_between_exact_bounds)
{
    constexpr std::size_t headers = 128 + 248;
    for (const auto& [size, mark] : {std::pair<std::size_t, const char*>{4096, "gap"},
                                     {4097, "gap"},
                                     {100000, "gap [entropy high]"},
                                     {0x1000000, "gap [entropy high]"},
                                     {0x1000001, "gap [too large for analysis]"}}) {
        bytes image = pe_plan{.file_size = headers}.build();
        const bytes noise = size == 4097 ? bytes(size, 125) : random_bytes(size);
        image.insert(image.end(), noise.begin(), noise.end());
        EXPECT_EQ(opened(image).map().back(), "376+" + std::to_string(size) + " " + mark);
    }
    for (const auto& [size, mark] : {std::pair<std::size_t, const char*>{4096, ""},
                                     {100000, " [entropy high]"},
                                     {0x1000001, " [too large for analysis]"}}) {
        const auto plan =
            test_support::pe_with_resources(test_support::lone_resource(10, random_bytes(size)));
        EXPECT_EQ(opened(plan).resources(), lines{std::string("RCDATA : 0x0001 : 0x0409") + mark});
    }
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
    for (std::size_t i = 0; i < 4; ++i) {
        image[1024 + at + i] = static_cast<std::uint8_t>(word >> (8 * i));
    }
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
             {"data that end beyond the file",
              76,
              0xffffffff,
              {"VERSION : 0x0001 : 0x0409 [too large for analysis]"}},
         }) {
        EXPECT_EQ(resources_with(row.at, row.word), row.names) << row.what;
    }
}

TEST(pe_file, trees_that_refer_to_themselves_stay_small)
{
    // 40,000 entries of which each leads to the directory that they stand in, on three levels.
    bytes tree(16 + 40000 * 8);
    tree[14] = 0x40;
    tree[15] = 0x9c;
    for (std::size_t i = 0; i < 40000; ++i) {
        tree[16 + i * 8 + 4] = static_cast<std::uint8_t>(i * 16);
        tree[16 + i * 8 + 5] = static_cast<std::uint8_t>(i * 16 >> 8);
        tree[16 + i * 8 + 7] = 0x80;
    }
    pe_plan plan;
    plan.sections = {{".rsrc", 1024, static_cast<std::uint32_t>(tree.size()), 0x1000, 0, tree}};
    plan.file_size = 1024 + tree.size();
    EXPECT_LE(opened(plan).file.resources().size(), 100000u);
}

TEST(pe_file, hex_dump)
{
    uni::text_buffer out;
    const bytes some{0, 31, 32, 'A', 126, 127, 128, 255, 8, 9, 10, 11, 12, 13, 14, 15, 'z'};
    pe::hex_dump(uni::byte_view(some), out, 0xfff0);
    EXPECT_EQ(out.view(),
              "0000 fff0:  00 1f 20 41 7e 7f 80 ff  08 09 0a 0b 0c 0d 0e 0f .. A~...........\n"
              "0001 0000:  7a                                               z\n");
    out.clear();
    const bytes large(0x1000001);
    pe::hex_dump(uni::byte_view(large), out, 0);
    EXPECT_EQ(out.view(), "size to big to output: size 0x1000001\n");
}

} // namespace
