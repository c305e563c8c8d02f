// Damaged databases: whatever the bytes, loading and every report end by themselves. The sanitizers see
// every byte that is read beside the image, since each image is an allocation of its own size.

#include <gtest/gtest.h>

#include <string>

#include "report/listings.h"
#include "report/statistics.h"
#include "sdb/database.h"
#include "sdb/finders.h"
#include "sdb/tags.h"
#include "support/sample_database.h"

namespace {

namespace tag = sdb::tag;
using test_support::bytes;
using test_support::sdb_builder;

enum class form { xml, plain };

// Lets output go and counts it.
class counting_stream : public io::output_sink {
public:
    std::uint64_t written()
    {
        flush();
        return written_;
    }

private:
    bool write_block(std::string_view block) override
    {
        written_ += block.size();
        return true;
    }
    std::uint64_t written_ = 0;
};

// Loads an image and lists its applications and fixes; answers whether it loaded.
bool list_all(const bytes& image, form wanted, io::output_sink& out)
{
    front::sdb_opts options;
    options.xml = wanted == form::xml;
    options.list_apps = options.list_fixes = true;
    sdb::sdb_database database;
    if (!database.load_image(io::byte_vector(image.begin(), image.end()), options)) {
        return false;
    }
    EXPECT_TRUE(report::run_database_report(out, database, options));
    return true;
}

// Both forms; they must agree on whether the image loads.
bool list_both(const bytes& image)
{
    static io::null_out_stream nowhere;
    const bool loads = list_all(image, form::xml, nowhere);
    EXPECT_EQ(list_all(image, form::plain, nowhere), loads);
    return loads;
}

// Searches for what the sample holds; every change leaves some of it.
void search_every_way(const sdb::sdb_database& database, io::output_sink& out)
{
    front::sdb_opts searches[4];
    searches[0].find_strings_list = {"drawplan", "e"};
    searches[1].find_guid_text = "2a85d3f7-b096-4c1e-9f68-431e7bd0ca52";
    searches[2].find_tagids_list = {12, 0x100, 0x1a0, 0xffffffff};
    const bytes pattern = {0x85, 0xc0};
    sdb::found_tags found;
    if (sdb::find_patch_bytes(database, found, pattern)) { // a failure would be worded
        searches[3].patch_pattern = pattern;
    }
    for (front::sdb_opts& options : searches) {
        options.xml = false;
        options.list_apps = options.list_guids = true;
        EXPECT_TRUE(report::run_database_report(out, database, options));
    }
}

void make_statistics(const sdb::sdb_database& database, io::output_sink& out)
{
    for (bool front::cmd_params::*const form :
         {&front::cmd_params::xml, &front::cmd_params::csv, &front::cmd_params::csvl2t}) {
        front::sdb_opts options;
        options.xml = false;
        options.*form = true; // plain for the first: statistics have no XML form
        options.file_write_time = 1;
        report::run_database_stats(database, out, options);
    }
}

// Searches, identifiers, the string table and statistics; answers whether the image loaded.
bool report_all(const bytes& image)
{
    static io::null_out_stream nowhere;
    front::sdb_opts options;
    sdb::sdb_database database;
    if (!database.load_image(io::byte_vector(image.begin(), image.end()), options)) {
        return false;
    }
    search_every_way(database, nowhere);
    make_statistics(database, nowhere);
    options.xml = false;
    options.list_guids = options.list_stringtable = true;
    EXPECT_TRUE(report::run_database_report(nowhere, database, options));
    return true;
}

std::uint64_t listing_size(const bytes& image, form wanted)
{
    counting_stream out;
    EXPECT_TRUE(list_all(image, wanted, out));
    return out.written();
}

bytes prefix(const bytes& image, std::size_t length)
{
    return {image.begin(), image.begin() + static_cast<std::ptrdiff_t>(length)};
}

TEST(malformed, every_prefix_with_a_whole_head_loads)
{
    const bytes sample = test_support::sample_database();
    for (std::size_t length = 0; length <= sample.size(); ++length) {
        ASSERT_EQ(list_both(prefix(sample, length)), length >= 12) << length << " bytes";
        if (length % 3 == 0) {
            ASSERT_EQ(report_all(prefix(sample, length)), length >= 12) << length << " bytes";
        }
    }
}

TEST(malformed, single_byte_changes_behind_the_magic_still_load)
{
    constexpr std::size_t magic = 8;
    const bytes sample = test_support::sample_database();
    for (std::size_t position = 0; position < sample.size(); position += position < 12 ? 1 : 7) {
        for (const int value : {0x00, 0x7f, 0xff}) {
            bytes changed = sample;
            changed[position] = static_cast<std::uint8_t>(value);
            const bool has_magic = position < magic || position >= 12;
            ASSERT_EQ(list_both(changed), has_magic)
                << "byte " << position << " changed to " << value;
            ASSERT_EQ(report_all(changed), has_magic)
                << "byte " << position << " changed to " << value;
        }
    }
}

TEST(malformed, forged_size_words)
{
    const bytes sample = test_support::sample_database();
    front::sdb_opts options;
    sdb::sdb_database database;
    ASSERT_TRUE(database.load_image({sample.begin(), sample.end()}, options));
    for (std::uint32_t ordinal = 0; ordinal < database.tag_count(); ++ordinal) {
        const unsigned type = database.tag_at(ordinal) >> 12;
        if (type < 7 || type > 9) {
            continue;
        }
        for (const std::uint32_t size : {0u, 0x7fffffffu, 0xfffffff0u, 0xffffffffu}) {
            bytes changed = sample;
            for (unsigned i = 0; i < 4; ++i) {
                changed[database.offset_at(ordinal) + 2 + i] =
                    static_cast<std::uint8_t>(size >> (8 * i));
            }
            ASSERT_TRUE(list_both(changed)) << "tag " << ordinal << ", size " << size;
            ASSERT_TRUE(report_all(changed)) << "tag " << ordinal << ", size " << size;
        }
    }
}

TEST(malformed, references_in_a_circle_are_followed_once)
{
    sdb_builder b;
    b.add(b.label(
        "exe", b.list(tag::exe, {b.text(tag::name, "loop.exe"), b.text(tag::vendor, "Nobody"),
                                 b.list(tag::layer, {b.reference(tag::layer_tagid, "layer")})})));
    b.add(b.label("layer", b.list(tag::layer,
                                  {b.text(tag::name, "layer"), b.text(tag::vendor, "Nobody"),
                                   b.list(tag::shim_ref, {b.text(tag::name, "back"),
                                                          b.reference(tag::shim_tagid, "layer")}),
                                   b.list(tag::shim_ref, {b.text(tag::name, "exe"),
                                                          b.reference(tag::shim_tagid, "exe")})})));
    const bytes image = b.build();
    for (const form wanted : {form::xml, form::plain}) {
        const std::uint64_t size = listing_size(image, wanted);
        EXPECT_GT(size, 200u);
        EXPECT_LT(size, 10'000u);
    }
}

// Each of forty layers refers eight times to the next one: followed to the end, that would be 8^40
// records.
TEST(malformed, references_that_multiply_are_bounded)
{
    constexpr int layers = 40;
    sdb_builder b;
    for (int layer = 0; layer < layers; ++layer) {
        std::vector<test_support::node> children = {b.text(tag::name, "layer"),
                                                    b.text(tag::vendor, "Nobody")};
        for (int reference = 0; reference < 8; ++reference) {
            children.push_back(b.list(
                tag::shim_ref,
                {b.text(tag::name, "next"),
                 b.reference(tag::shim_tagid, "layer" + std::to_string((layer + 1) % layers))}));
        }
        b.add(b.label("layer" + std::to_string(layer), b.list(tag::layer, children)));
    }
    const bytes image = b.build();
    for (const form wanted : {form::xml, form::plain}) {
        const std::uint64_t size = listing_size(image, wanted);
        EXPECT_GT(size, 1'000'000u);
        EXPECT_LT(size, 200'000'000u);
    }
}

TEST(malformed, compressed_images_that_do_not_inflate)
{
    const bytes packed = test_support::compress(test_support::sample_database());
    for (std::size_t length = 0; length < packed.size(); ++length) {
        ASSERT_FALSE(list_both(prefix(packed, length))) << length << " bytes";
    }
    EXPECT_TRUE(list_both(packed));
    for (std::size_t position = 20; position < packed.size(); position += 7) {
        bytes changed = packed;
        changed[position] ^= 0x10;
        ASSERT_FALSE(list_both(changed)) << "bit flipped in byte " << position;
    }
    // A sound database, but one that grows more than tenfold.
    sdb_builder b;
    b.add(b.binary(tag::data_bits, bytes(100'000)));
    const bytes bomb = test_support::compress(b.build());
    ASSERT_LT(bomb.size() * 10, b.build().size());
    EXPECT_FALSE(list_both(bomb));
    EXPECT_TRUE(list_both(test_support::compress(b.build(), 0)));
}

} // namespace
