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
        add({"apps", "fixes", "guids", "stringtable"}, "json");
        for (const char* const form : {"plain", "csv", "csvl2t", "json", "timesketch"}) {
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
    if (database.load_image(io::byte_vector(image.begin(), image.end())) !=
        sdb::load_result::loaded) {
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
    for (std::size_t length = 0; length <= sample.size(); length += length < 24 ? 1 : 23) {
        ASSERT_EQ(make_all(prefix(sample, length)), length >= 12) << length;
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
