#include "sdb/database.h"

#include <gtest/gtest.h>

#include "sdb/tags.h"
#include "support/sdb_builder.h"

namespace {

namespace tag = sdb::tag;
using test_support::bytes;
using test_support::node;
using test_support::sdb_builder;
using test_support::target;
using offsets = std::vector<std::uint32_t>;

// Builds a database and loads it.
struct database : testing::Test, sdb_builder {
    bool load(const bytes& image)
    {
        return db.load_image(io::byte_vector(image.begin(), image.end())) ==
               sdb::load_result::loaded;
    }
    void load() { ASSERT_TRUE(load(build())); }
    std::uint32_t at(node made) const { return offset_of(made); }

    offsets children(std::uint32_t list)
    {
        offsets found;
        db.for_each_child(list,
                          [&](std::uint32_t child, std::uint16_t) { found.push_back(child); });
        return found;
    }
    std::uint32_t enclosing(std::uint32_t offset, bool want_parent)
    {
        std::uint32_t result = 1;
        const bool any = db.find_enclosing_list(result, offset, want_parent);
        EXPECT_EQ(any, result != 0);
        return result;
    }
    void expect_tag(std::uint32_t offset, const bytes& stored, std::uint32_t size,
                    const bytes& value)
    {
        sdb::sdb_tag_item item;
        EXPECT_TRUE(db.read_item(item, offset) && item.valid) << offset;
        EXPECT_EQ(std::tuple(item.offset, item.tag, item.size),
                  std::tuple(offset, stored[0] | stored[1] << 8, size));
        EXPECT_EQ(bytes(item.value.bytes().begin(), item.value.bytes().end()), value);
        EXPECT_FALSE(db.read_item(item, offset + 1)) << "only where the tag begins";
        EXPECT_TRUE(item.tag == 0 && !item.valid);
    }

    sdb::sdb_database db;
};

TEST_F(database, any_file_with_the_right_head_loads_and_no_other)
{
    const bytes image = sdb_builder().build();
    const auto with_magic = [](bytes changed, char first, std::size_t length) {
        changed[8] = static_cast<std::uint8_t>(first);
        changed.resize(length);
        return changed;
    };
    for (const bytes& bad :
         {bytes(), with_magic(image, 's', 11), with_magic(image, 'S', 24),
          with_magic(image, 'z', 20), test_support::compress(with_magic(image, 'S', 24)),
          test_support::compress(test_support::compress(image))}) {
        EXPECT_TRUE(load(image));
        EXPECT_FALSE(load(bad));
        EXPECT_FALSE(db.loaded());
        EXPECT_EQ(db.version_major() + db.tag_count() + db.image().size(), 0u) << "forgotten";
        EXPECT_EQ(children(12), offsets{});
        EXPECT_EQ(enclosing(12, false), 0u);
    }
    for (const std::size_t length : {13u, 12u}) {
        EXPECT_TRUE(load(with_magic(image, 's', length)));
        EXPECT_EQ(db.version_major() * 10 + db.version_minor(), 23u);
        EXPECT_EQ(db.tag_count() + db.ordinals_by_tag(0xffff).size(), 0u);
        EXPECT_EQ(enclosing(12, false) + enclosing(12, true), 0u);
    }
}

TEST_F(database, files_are_read_up_to_their_limit)
{
    add({binary(tag::file_bits, bytes(20'971'520)), null(tag::general)});
    const bytes image = build();
    io::memory_source file(io::byte_vector(image.begin(), image.end()));
    EXPECT_EQ(db.load(file), sdb::load_result::loaded);
    EXPECT_EQ(db.image().size(), 20'971'520u);
    EXPECT_EQ(db.tag_count(), 2u);
    io::memory_source empty({});
    EXPECT_EQ(db.load(empty), sdb::load_result::no_database);
    EXPECT_FALSE(db.loaded());
}

using stored_tag = std::tuple<bytes, std::uint32_t, bytes>; // with its size and value

TEST_F(database, every_type_is_decoded_and_stepped_over)
{
    const stored_tag cases[] = {
        {{0x02, 0x10}, 0, {}},
        {{0x01, 0x20, 0x7f}, 0, {0x7f}},
        {{0x01, 0x30, 1, 2}, 0, {1, 2}},
        {{0x01, 0x40, 1, 2, 3, 4}, 0, {1, 2, 3, 4}},
        {{0x01, 0x50, 1, 2, 3, 4, 5, 6, 7, 8}, 0, {1, 2, 3, 4, 5, 6, 7, 8}},
        {{0x01, 0x60, 6, 0, 0, 0}, 6, {6, 0, 0, 0}},
        {{0x04, 0x70, 0, 0, 0, 0}, 0, {0, 0, 0, 0}},
        {{0x01, 0x88, 3, 0, 0, 0, 'a', 0, 'b'}, 3, {'a', 0, 'b'}}, // never a pad byte
        {{0x03, 0x90, 3, 0, 0, 0, 7, 8, 9, 0}, 3, {7, 8, 9}},
        {{0x03, 0x90, 4, 0, 0, 0, 7, 8, 9, 10}, 4, {7, 8, 9, 10}},
    };
    std::vector<node> made;
    for (const stored_tag& one : cases) {
        made.push_back(raw(std::get<0>(one)));
        add({made.back(), raw({0x05, 0x00, 0x01, 0xa0, 0xff, 0xff})}); // unknown types
    }
    load();
    EXPECT_EQ(db.tag_count(), std::size(cases) + 2);
    for (std::size_t i = 0; i < made.size(); ++i) {
        const auto& [stored, size, value] = cases[i];
        expect_tag(at(made[i]), stored, size, value);
    }
}

TEST_F(database, what_the_images_end_cuts_off_keeps_the_bytes_that_exist)
{
    const stored_tag cases[] = {
        {{0x01, 0x20}, 0, {}},
        {{0x01, 0x40, 1, 2, 3}, 0, {1, 2, 3}},
        {{0x01, 0x60, 6, 0, 0}, 6, {6, 0, 0}},
        {{0x07, 0x70, 9}, 9, {9}},
        {{0x01, 0x88, 9, 0, 0, 0, 'a', 0, 'b'}, 9, {'a', 0, 'b'}},
        {{0x02, 0x90, 0xfe, 0xff, 0xff, 0xff, 1, 2}, 0xfffffffe, {1, 2}},
    };
    for (const auto& [stored, size, value] : cases) {
        sdb_builder b;
        const node cut = b.raw(stored);
        b.trail(cut);
        ASSERT_TRUE(load(b.build()));
        EXPECT_EQ(db.tag_count(), 3u);
        expect_tag(b.offset_of(cut), stored, size, value);
        EXPECT_EQ(db.string_referrers(offsets{6}), offsets{}) << "cut short it refers to nothing";
    }
}

TEST_F(database, tags_count_from_the_database_list_on)
{
    index(tag::exe, tag::name, 0, {{1, "exe"}});
    const node early = text(tag::name, "n");
    const node library = list(tag::library, {});
    const node exe = label("exe", list(tag::exe, {}));
    const node name = text(tag::name, "n");
    const node late = list(tag::indexes, {});
    const node second_exe = list(tag::exe, {});
    lead(list(tag::library, {})).lead(list(tag::exe, {early}));
    add({library, exe, name}).trail(late).trail(second_exe);
    load();
    EXPECT_EQ(db.database_offset(), database_offset());
    EXPECT_EQ(db.library_offset(), at(library)) << "the last one counts";
    EXPECT_EQ(db.indexes_offset(), indexes_offset()) << "only one before the database counts";
    EXPECT_EQ(db.string_table_offset(), string_table_offset());
    EXPECT_EQ(db.string_table_size(), 10u);

    sdb::sdb_tag_item item;
    EXPECT_FALSE(db.read_item(item, at(early)));
    EXPECT_FALSE(db.read_item(item, indexes_offset()));
    EXPECT_TRUE(db.read_item(item, at(late)) && !item.indexed);
    EXPECT_TRUE(db.read_item(item, at(exe)) && item.indexed);
    offsets exes;
    for (const sdb::tag_ordinal ordinal : db.ordinals_by_tag(tag::exe)) {
        exes.push_back(db.offset_at(ordinal));
    }
    EXPECT_EQ(exes, (offsets{at(exe), at(second_exe)}));
    EXPECT_EQ(db.string_referrers(offsets{6}), (offsets{at(early), at(name)}));
}

TEST_F(database, indexes_are_read_before_the_database_list_alone)
{
    const target any = target::at(1);
    index(tag::shim, tag::app_name, 1,
          {{5, target::at(0x32)}, {2, target::at(0x33)}, {5, target::at(0x34)}});
    index(tag::patch, tag::name, 0x00051234, {{7, any}, {3, any}});
    index(0, tag::exe_id, 0, {{1, any}}); // over no tag
    index(tag::exe, tag::exe_id, 0, {});  // without entries
    lead(index_bits({{1, any}}));         // belongs to no index any more
    lead(list(tag::index, {word(tag::index_tag, tag::patch), word(tag::index_key, 0x6002),
                           null(tag::general), with_size(tag::index_bits, 15, bytes(16))}));
    add(list(tag::index, {word(tag::index_tag, tag::exe), word(tag::index_key, 0x6003),
                          index_bits({{1, any}})}));
    load();
    std::vector<std::vector<std::uint64_t>> found;
    for (const sdb::sdb_index_record& one : db.indexes()) {
        found.push_back({one.index_tag, one.index_key, one.index_flags, one.list_offset,
                         one.list_size, one.bits_position, one.bits_size});
        for (const sdb::index_entry& entry : one.entries) {
            found.back().push_back(entry.tag_offset);
        }
    }
    const std::uint64_t first = indexes_offset() + 6;
    EXPECT_EQ(found, (decltype(found){
                         // by key, equal keys in file order
                         {tag::shim, tag::app_name, 1, first, 56, 26, 36, 0x33, 0x32, 0x34},
                         // 16 bits of the flags
                         {tag::patch, tag::name, 0x1234, first + 62, 44, 26, 24, 1, 1},
                         // a partial entry is left out
                         {tag::patch, 0x6002, 0, database_offset() - 38, 32, 22, 15, 0},
                     }));
}

TEST_F(database, string_references)
{
    const std::uint32_t first = table_text("first");
    const std::uint32_t cut = table_bytes(bytes{0x01, 0x88, 6, 0, 0, 0, 'a', 0, 0, 0, 'b', 0});
    const std::uint32_t empty = table_bytes(bytes{0x01, 0x88, 0, 0, 0, 0});
    const std::uint32_t half = table_bytes(bytes{0x01, 0x88, 1, 0, 0, 0, 'a'});
    const std::uint32_t number = table_bytes(bytes{0x01, 0x40, 'h', 0, 'i', 0});
    const std::uint32_t last = table_text("last");
    load();
    const std::pair<std::uint32_t, std::string> cases[] = {
        {0, "A"}, // the list's own size word, 0x41
        {6, "first"},
        {first + 1, "(none)"},
        {cut, "a"},
        {empty, "(none)"},
        {half, ""},
        {number, "hi"},
        {last, "last"}, // whatever tag stands there is read as text
        {database_offset() - string_table_offset(), "(none)"}, // the sum does not wrap
    };
    for (const auto& [reference, text] : cases) {
        std::string found;
        EXPECT_EQ(db.read_string_ref(found, reference) ? found : "(none)", text) << reference;
    }
}

TEST_F(database, text_search_sees_all_strings_but_the_last)
{
    const std::uint32_t first = table_text("a");
    table_bytes(bytes{0x01, 0x88, 0, 0, 0, 0}); // an empty one is stepped over
    const std::uint32_t third = table_text("b");
    table_text("c");
    trail(null(tag::general));
    const std::pair<std::uint32_t, offsets> cases[] = {
        {third + 20, {first, third}},
        {third + 11, {first, third}},
        {third + 10, {first}},
        {6, {}},
        {0x7fffffff, {}}, // a table that leaves the image
    };
    for (const auto& [size, expected] : cases) {
        string_table_size(size);
        load();
        EXPECT_EQ(db.string_offsets(), expected);
    }
}

TEST_F(database, compressed_files_inflate_to_at_most_ten_times_their_size)
{
    add(binary(tag::file_bits, bytes(100'000)));
    const bytes plain = build();
    bytes packed = test_support::compress(plain);
    packed.resize((plain.size() - 1) / 10); // bytes behind the stream matter for the limit alone
    EXPECT_FALSE(load(packed));
    EXPECT_EQ(db.image().size(), 0u);
    packed.resize(plain.size() / 10);
    ASSERT_TRUE(load(packed));
    EXPECT_EQ(bytes(db.image().bytes().begin(), db.image().bytes().end()), plain);
    EXPECT_EQ(db.tag_count(), 3u);
    packed.resize(packed.size() * 2);
    EXPECT_TRUE(load(packed));
}

TEST_F(database, children_and_the_lists_around_a_tag)
{
    const node size = dword(tag::size, 1);
    const node name = text(tag::name, "n");
    const node inner = null(tag::general);
    const node match = list(tag::matching_file, {inner});
    const node mode = word(tag::match_mode, 1);
    const node exe = list(tag::exe, {name, match, mode});
    const node empty = list(tag::shim, {});
    const node app = list(tag::app, {text(tag::vendor, "v")});
    add({size, exe, empty, app});
    load();
    const std::uint32_t root = database_offset();
    const std::uint32_t table = string_table_offset();
    EXPECT_EQ(children(root), (offsets{at(size), at(exe), at(empty), at(app)}));
    EXPECT_EQ(children(at(exe)), (offsets{at(name), at(match), at(mode)}));
    EXPECT_EQ(children(at(empty)), offsets{});
    EXPECT_EQ(children(at(inner)), offsets{});

    const std::tuple<std::uint32_t, std::uint32_t, std::uint32_t> cases[] = {
        {0, 0, 0}, // where, the nearest list, the parent of the list there
        {root - 1, 0, 0},
        {root, root, 0},
        {at(size), root, 0},
        {at(exe), at(exe), root},
        {at(name) + 1, at(exe), 0},
        {at(match), at(match), at(exe)},
        {at(inner), at(match), 0},
        {at(mode), at(match), 0},  // the list that started last, though it has ended
        {at(empty), at(match), 0}, // a list without children is not known as one
        {at(app), at(app), root},
        {table, table, 0},
        {0xffffffff, table, 0},
    };
    for (const auto& [offset, nearest, parent] : cases) {
        EXPECT_EQ(enclosing(offset, false), nearest) << offset;
        EXPECT_EQ(enclosing(offset, true), parent) << offset;
    }
}

TEST_F(database, the_relations_first_row_makes_no_parent)
{
    const node inner = list(tag::matching_file, {null(tag::general)});
    const node exe = list(tag::exe, {inner});
    add(exe);
    load();
    EXPECT_EQ(enclosing(at(exe), true), 0u);
    EXPECT_EQ(enclosing(at(inner), true), at(exe));
}

TEST_F(database, pad_bytes_are_not_charged_to_a_list)
{
    const auto odd = [&] { return binary(tag::file_bits, {1}); };
    const node closes = list(tag::exe, {odd()});
    const node swallows = list(tag::patch, {odd(), odd()});
    const node swallowed = null(tag::general);
    const node stays_open = list(tag::shim, {odd(), odd(), odd()}); // its remainder wraps
    const node child = null(tag::general);
    const node next = list(tag::flag, {child});
    add({closes, swallows, swallowed, stays_open, next});
    load();
    EXPECT_EQ(children(database_offset()), (offsets{at(closes), at(swallows), at(stays_open)}));
    EXPECT_EQ(children(at(swallows)).back(), at(swallowed));
    const offsets open = children(at(stays_open));
    ASSERT_EQ(open.size(), 5u);
    EXPECT_EQ(open[3], at(next));
    EXPECT_EQ(open[4], string_table_offset());
    EXPECT_EQ(children(at(next)), offsets{at(child)});
}

TEST_F(database, size_words_that_lie_about_a_list)
{
    const node one = null(tag::general);
    const node two = null(tag::general);
    const node too_short = list_with_size(tag::exe, 2, {one, two});
    const node too_long = list_with_size(tag::app, 0xffffffff, {null(tag::general)});
    add({too_short, too_long});
    trail(null(tag::general));
    load();
    EXPECT_EQ(children(at(too_short)), offsets{at(one)});
    EXPECT_EQ(children(database_offset()), (offsets{at(too_short), at(two), at(too_long)}));
    EXPECT_EQ(children(at(too_long)).size(), 3u);
}

} // namespace
