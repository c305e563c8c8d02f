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

class database : public testing::Test {
protected:
    bool load(const bytes& image)
    {
        return db.load_image(io::byte_vector(image.begin(), image.end()));
    }
    void load(sdb_builder& b) { ASSERT_TRUE(load(b.build())); }

    offsets children(std::uint32_t list)
    {
        std::vector<sdb::sdb_child_record> rows;
        const bool any = db.child_records(rows, list);
        EXPECT_EQ(any, !rows.empty());
        offsets found;
        for (const sdb::sdb_child_record& row : rows) {
            EXPECT_EQ(row.parent, row.offset);
            found.push_back(row.offset);
        }
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
    sdb_builder b;
    b.add({b.binary(tag::file_bits, bytes(20'971'520)), b.null(tag::general)});
    const bytes image = b.build();
    io::memory_source file(io::byte_vector(image.begin(), image.end()));
    EXPECT_TRUE(db.load(file));
    EXPECT_EQ(db.image().size(), 20'971'520u);
    EXPECT_EQ(db.tag_count(), 2u);
    io::memory_source empty({});
    EXPECT_FALSE(db.load(empty) || db.loaded());
}

struct stored_tag {
    bytes stored;
    std::uint32_t size;
    bytes value;
};

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
    sdb_builder b;
    std::vector<node> made;
    for (const stored_tag& one : cases) {
        made.push_back(b.raw(one.stored));
        b.add({made.back(), b.raw({0x05, 0x00, 0x01, 0xa0, 0xff, 0xff})}); // unknown types
    }
    load(b);
    EXPECT_EQ(db.tag_count(), std::size(cases) + 2);
    for (std::size_t i = 0; i < made.size(); ++i) {
        expect_tag(b.offset_of(made[i]), cases[i].stored, cases[i].size, cases[i].value);
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
        load(b);
        EXPECT_EQ(db.tag_count(), 3u);
        expect_tag(b.offset_of(cut), stored, size, value);
        EXPECT_EQ(db.string_referrers(offsets{6}), offsets{}) << "cut short it refers to nothing";
    }
}

TEST_F(database, tags_count_from_the_database_list_on)
{
    sdb_builder b;
    b.index(tag::exe, tag::name, 0, {{1, "exe"}});
    const node early = b.text(tag::name, "n");
    const node library = b.list(tag::library, {});
    const node exe = b.label("exe", b.list(tag::exe, {}));
    const node name = b.text(tag::name, "n");
    const node late = b.list(tag::indexes, {});
    const node second_exe = b.list(tag::exe, {});
    b.lead(b.list(tag::library, {})).lead(b.list(tag::exe, {early}));
    b.add({library, exe, name}).trail(late).trail(second_exe);
    load(b);
    EXPECT_EQ(db.database_offset(), b.database_offset());
    EXPECT_EQ(db.library_offset(), b.offset_of(library)) << "the last one counts";
    EXPECT_EQ(db.indexes_offset(), b.indexes_offset()) << "only one before the database counts";
    EXPECT_EQ(db.string_table_offset(), b.string_table_offset());
    EXPECT_EQ(db.string_table_size(), 10u);

    sdb::sdb_tag_item item;
    EXPECT_FALSE(db.read_item(item, b.offset_of(early)));
    EXPECT_FALSE(db.read_item(item, b.indexes_offset()));
    EXPECT_TRUE(db.read_item(item, b.offset_of(late)) && !item.indexed);
    EXPECT_TRUE(db.read_item(item, b.offset_of(exe)) && item.indexed);
    offsets exes;
    for (const sdb::tag_ordinal ordinal : db.ordinals_by_tag(tag::exe)) {
        exes.push_back(db.offset_at(ordinal));
    }
    EXPECT_EQ(exes, (offsets{b.offset_of(exe), b.offset_of(second_exe)}));
    EXPECT_EQ(db.string_referrers(offsets{6}), (offsets{b.offset_of(early), b.offset_of(name)}));
}

TEST_F(database, indexes_are_read_before_the_database_list_alone)
{
    const target any = target::at(1);
    sdb_builder b;
    b.index(tag::shim, tag::app_name, 1,
            {{5, target::at(0x32)}, {2, target::at(0x33)}, {5, target::at(0x34)}});
    b.index(tag::patch, tag::name, 0x00051234, {{7, any}, {3, any}});
    b.index(0, tag::exe_id, 0, {{1, any}}); // over no tag
    b.index(tag::exe, tag::exe_id, 0, {});  // without entries
    b.lead(b.index_bits({{1, any}}));       // belongs to no index any more
    b.lead(b.list(tag::index, {b.word(tag::index_tag, tag::patch), b.word(tag::index_key, 0x6002),
                               b.null(tag::general), b.with_size(tag::index_bits, 15, bytes(16))}));
    b.add(b.list(tag::index, {b.word(tag::index_tag, tag::exe), b.word(tag::index_key, 0x6003),
                              b.index_bits({{1, any}})}));
    load(b);
    std::vector<std::vector<std::uint64_t>> found;
    for (const sdb::sdb_index_record& one : db.indexes()) {
        found.push_back({one.index_tag, one.index_key, one.index_flags, one.list_offset,
                         one.list_size, one.bits_position, one.bits_size});
        for (const sdb::index_entry& entry : one.entries) {
            found.back().push_back(entry.tag_offset);
        }
    }
    const std::uint64_t first = b.indexes_offset() + 6;
    EXPECT_EQ(found, (decltype(found){
                         // by key, equal keys in file order
                         {tag::shim, tag::app_name, 1, first, 56, 26, 36, 0x33, 0x32, 0x34},
                         // 16 bits of the flags
                         {tag::patch, tag::name, 0x1234, first + 62, 44, 26, 24, 1, 1},
                         // a partial entry is left out
                         {tag::patch, 0x6002, 0, b.database_offset() - 38, 32, 22, 15, 0},
                     }));
}

TEST_F(database, string_references)
{
    sdb_builder b;
    const std::uint32_t first = b.table_text("first");
    const std::uint32_t cut = b.table_bytes(bytes{0x01, 0x88, 6, 0, 0, 0, 'a', 0, 0, 0, 'b', 0});
    const std::uint32_t empty = b.table_bytes(bytes{0x01, 0x88, 0, 0, 0, 0});
    const std::uint32_t half = b.table_bytes(bytes{0x01, 0x88, 1, 0, 0, 0, 'a'});
    const std::uint32_t number = b.table_bytes(bytes{0x01, 0x40, 'h', 0, 'i', 0});
    const std::uint32_t last = b.table_text("last");
    load(b);
    const std::pair<std::uint32_t, std::string> cases[] = {
        {0, "A"}, // the list's own size word, 0x41
        {6, "first"},
        {first + 1, "(none)"},
        {cut, "a"},
        {empty, "(none)"},
        {half, ""},
        {number, "hi"},
        {last, "last"}, // whatever tag stands there is read as text
        {b.database_offset() - b.string_table_offset(), "(none)"}, // the sum does not wrap
    };
    for (const auto& [reference, text] : cases) {
        std::string found;
        EXPECT_EQ(db.read_string_ref(found, reference) ? found : "(none)", text) << reference;
    }
}

TEST_F(database, text_search_sees_all_strings_but_the_last)
{
    sdb_builder b;
    const std::uint32_t first = b.table_text("a");
    b.table_bytes(bytes{0x01, 0x88, 0, 0, 0, 0}); // an empty one is stepped over
    const std::uint32_t third = b.table_text("b");
    b.table_text("c");
    b.trail(b.null(tag::general));
    const std::pair<std::uint32_t, offsets> cases[] = {
        {third + 20, {first, third}},
        {third + 11, {first, third}},
        {third + 10, {first}},
        {6, {}},
        {0x7fffffff, {}}, // a table that leaves the image
    };
    for (const auto& [size, expected] : cases) {
        b.string_table_size(size);
        load(b);
        EXPECT_EQ(db.string_offsets(), expected);
    }
}

TEST_F(database, compressed_files_inflate_to_at_most_ten_times_their_size)
{
    sdb_builder b;
    b.add(b.binary(tag::file_bits, bytes(100'000)));
    const bytes plain = b.build();
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
    sdb_builder b;
    const node size = b.dword(tag::size, 1);
    const node name = b.text(tag::name, "n");
    const node inner = b.null(tag::general);
    const node match = b.list(tag::matching_file, {inner});
    const node mode = b.word(tag::match_mode, 1);
    const node exe = b.list(tag::exe, {name, match, mode});
    const node empty = b.list(tag::shim, {});
    const node app = b.list(tag::app, {b.text(tag::vendor, "v")});
    b.add({size, exe, empty, app});
    load(b);
    const auto at = [&](node made) { return b.offset_of(made); };
    const std::uint32_t root = b.database_offset();
    const std::uint32_t table = b.string_table_offset();
    EXPECT_EQ(children(root), (offsets{at(size), at(exe), at(empty), at(app)}));
    EXPECT_EQ(children(at(exe)), (offsets{at(name), at(match), at(mode)}));
    EXPECT_EQ(children(at(empty)), offsets{});
    EXPECT_EQ(children(at(inner)), offsets{});
    std::vector<sdb::sdb_child_record> rows;
    ASSERT_TRUE(db.child_records(rows, root));
    EXPECT_EQ(rows[0].depth, 2u) << "children of a root list";
    EXPECT_TRUE(!rows[0].is_list && rows[1].is_list);
    EXPECT_EQ(rows[0].list_size + rows[1].list_size, 18u);
    ASSERT_TRUE(db.child_records(rows, at(match)));
    EXPECT_EQ(rows[0].depth, 4u);

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
    sdb_builder b;
    const node inner = b.list(tag::matching_file, {b.null(tag::general)});
    const node exe = b.list(tag::exe, {inner});
    b.add(exe);
    load(b);
    EXPECT_EQ(enclosing(b.offset_of(exe), true), 0u);
    EXPECT_EQ(enclosing(b.offset_of(inner), true), b.offset_of(exe));
}

TEST_F(database, pad_bytes_are_not_charged_to_a_list)
{
    sdb_builder b;
    const auto odd = [&] { return b.binary(tag::file_bits, {1}); };
    const node closes = b.list(tag::exe, {odd()});
    const node swallows = b.list(tag::patch, {odd(), odd()});
    const node swallowed = b.null(tag::general);
    const node stays_open = b.list(tag::shim, {odd(), odd(), odd()}); // its remainder wraps
    const node child = b.null(tag::general);
    const node next = b.list(tag::flag, {child});
    b.add({closes, swallows, swallowed, stays_open, next});
    load(b);
    const auto at = [&](node made) { return b.offset_of(made); };
    EXPECT_EQ(children(b.database_offset()), (offsets{at(closes), at(swallows), at(stays_open)}));
    EXPECT_EQ(children(at(swallows)).back(), at(swallowed));
    const offsets open = children(at(stays_open));
    ASSERT_EQ(open.size(), 5u);
    EXPECT_EQ(open[3], at(next));
    EXPECT_EQ(open[4], b.string_table_offset());
    EXPECT_EQ(children(at(next)), offsets{at(child)});
}

TEST_F(database, size_words_that_lie_about_a_list)
{
    sdb_builder b;
    const node one = b.null(tag::general);
    const node two = b.null(tag::general);
    const node too_short = b.list_with_size(tag::exe, 2, {one, two});
    const node too_long = b.list_with_size(tag::app, 0xffffffff, {b.null(tag::general)});
    b.add({too_short, too_long});
    b.trail(b.null(tag::general));
    load(b);
    const auto at = [&](node made) { return b.offset_of(made); };
    EXPECT_EQ(children(at(too_short)), offsets{at(one)});
    EXPECT_EQ(children(b.database_offset()), (offsets{at(too_short), at(two), at(too_long)}));
    EXPECT_EQ(children(at(too_long)).size(), 3u);
}

} // namespace
