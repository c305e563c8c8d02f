// Damaged databases: whatever the bytes, loading and every report end by themselves. The sanitizers see
// every byte that is read beside the image, since each image is an allocation of its own size.

#include <gtest/gtest.h>

#include "sdb/tags.h"
#include "support/reports.h"
#include "support/sample_database.h"

namespace {

namespace tag = sdb::tag;
using test_support::bytes;
using test_support::sdb_builder;

// Every kind of report, on what the sample holds; every change leaves some of it.
const std::vector<request::sdb_opts>& all_reports()
{
    static const auto made = [] {
        std::vector<request::sdb_opts> reports;
        const auto add = [&](std::initializer_list<std::string_view> listings,
                             std::string_view form) -> request::sdb_opts& {
            return reports.emplace_back(test_support::listing_options(listings, form));
        };
        add({"apps", "fixes"}, "xml");
        add({"apps", "fixes"}, "plain");
        add({"guids", "stringtable"}, "plain");
        add({"apps", "guids"}, "plain").search.strings = {"drawplan", "e"};
        add({"apps", "guids"}, "plain").search.guid = "2a85d3f7-b096-4c1e-9f68-431e7bd0ca52";
        add({"apps", "guids"}, "plain").search.tagids = {12, 0x100, 0x1a0, 0xffffffff};
        add({"apps", "guids"}, "plain").patch_pattern = {0x85, 0xc0};
        for (const char* const form : {"plain", "csv", "csvl2t"}) {
            add({}, form).stats = true;
        }
        return reports;
    }();
    return made;
}

// Makes the first `count` of them; answers whether the image loads.
bool make_reports(const bytes& image, std::size_t count = 2)
{
    sdb::sdb_database database;
    if (!database.load_image(io::byte_vector(image.begin(), image.end()))) {
        return false;
    }
    for (const request::sdb_opts& options : std::span(all_reports()).first(count)) {
        if (options.stats) {
            test_support::statistics_report(image, options, {.times = {.write = 1}});
        } else {
            EXPECT_TRUE(test_support::database_report(database, options).asked);
        }
    }
    return true;
}

bool make_all(const bytes& image)
{
    return make_reports(image, all_reports().size());
}

bytes prefix(const bytes& image, std::size_t length)
{
    return {image.begin(), image.begin() + static_cast<std::ptrdiff_t>(length)};
}

bytes changed(bytes image, std::size_t position, int value)
{
    image[position] = static_cast<std::uint8_t>(value);
    return image;
}

TEST(malformed, every_prefix_with_a_whole_head_loads)
{
    const bytes sample = test_support::sample_database();
    for (std::size_t length = 0; length <= sample.size(); ++length) {
        const std::size_t reports = length % 3 == 0 ? all_reports().size() : 2;
        ASSERT_EQ(make_reports(prefix(sample, length), reports), length >= 12) << length;
    }
}

TEST(malformed, single_byte_changes_behind_the_magic_still_load)
{
    constexpr std::size_t magic = 8;
    const bytes sample = test_support::sample_database();
    for (std::size_t position = 0; position < sample.size(); position += position < 12 ? 1 : 7) {
        for (const int value : {0x00, 0x7f, 0xff}) {
            ASSERT_EQ(make_all(changed(sample, position, value)),
                      position < magic || position >= 12)
                << "byte " << position << " changed to " << value;
        }
    }
}

TEST(malformed, forged_size_words)
{
    const bytes sample = test_support::sample_database();
    const test_support::loaded_database in(sample);
    for (sdb::tag_ordinal ordinal; ordinal.number() < in.database.tag_count(); ++ordinal) {
        if (sdb::tag_type(in.database.tag_at(ordinal)) < sdb::type::list) {
            continue;
        }
        for (const std::uint32_t size : {0u, 0x7fffffffu, 0xfffffff0u, 0xffffffffu}) {
            bytes forged = sample;
            for (unsigned i = 0; i < 4; ++i) {
                forged[in.database.offset_at(ordinal) + 2 + i] =
                    static_cast<std::uint8_t>(size >> (8 * i));
            }
            ASSERT_TRUE(make_all(forged)) << "tag " << ordinal.number() << ", size " << size;
        }
    }
}

// References in a circle are followed once. Those that multiply are bounded: each of forty layers
// refers eight times to the next one, which followed to the end would be 8^40 records.
TEST(malformed, references_without_end)
{
    struct layer_case {
        int layers;
        int references;
        std::size_t shortest;
        std::size_t longest;
    };
    for (const layer_case& one :
         {layer_case{1, 1, 200, 10'000}, {2, 1, 200, 10'000}, {40, 8, 1'000'000, 200'000'000}}) {
        sdb_builder b;
        for (int layer = 0; layer < one.layers; ++layer) {
            std::vector<test_support::node> children = {b.text(tag::name, "layer"),
                                                        b.text(tag::vendor, "Nobody")};
            for (int reference = 0; reference < one.references; ++reference) {
                const std::string next = "layer" + std::to_string((layer + 1) % one.layers);
                children.push_back(b.list(tag::shim_ref, {b.text(tag::name, "next"),
                                                          b.reference(tag::shim_tagid, next)}));
            }
            b.add(b.label("layer" + std::to_string(layer), b.list(tag::layer, children)));
        }
        b.add(b.list(tag::exe, {b.text(tag::name, "loop.exe"), b.text(tag::vendor, "Nobody"),
                                b.list(tag::layer, {b.reference(tag::layer_tagid, "layer0")})}));
        const test_support::loaded_database in(b.build());
        for (const request::sdb_opts& options : std::span(all_reports()).first(2)) {
            const std::size_t size =
                test_support::database_report(in.database, options).text.size();
            EXPECT_GT(size, one.shortest) << one.layers << options.form;
            EXPECT_LT(size, one.longest) << one.layers << options.form;
        }
    }
}

TEST(malformed, compressed_images_that_do_not_inflate)
{
    const bytes packed = test_support::compress(test_support::sample_database());
    for (std::size_t length = 0; length < packed.size(); ++length) {
        ASSERT_FALSE(make_reports(prefix(packed, length))) << length << " bytes";
    }
    EXPECT_TRUE(make_reports(packed));
    for (std::size_t position = 20; position < packed.size(); position += 7) {
        ASSERT_FALSE(make_reports(changed(packed, position, packed[position] ^ 0x10)))
            << "bit flipped in byte " << position;
    }
    // A sound database, but one that grows more than tenfold.
    sdb_builder b;
    b.add(b.binary(tag::data_bits, bytes(100'000)));
    const bytes bomb = test_support::compress(b.build());
    ASSERT_LT(bomb.size() * 10, b.build().size());
    EXPECT_FALSE(make_reports(bomb));
    EXPECT_TRUE(make_reports(test_support::compress(b.build(), 0)));
}

} // namespace
