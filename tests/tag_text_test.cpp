#include "report/tag_text.h"

#include <gtest/gtest.h>

#include "sdb/tags.h"
#include "support/sdb_builder.h"

namespace {

namespace tag = sdb::tag;
using test_support::bytes;
using test_support::node;
using test_support::sdb_builder;
using line_map = std::map<std::uint32_t, std::string>;

// One tag in a database of its own.
struct single_tag {
    explicit single_tag(node (*make)(sdb_builder&))
    {
        sdb_builder b;
        const node made = make(b);
        load(b, made);
    }
    single_tag(sdb_builder& b, node made) { load(b, made); }
    void load(sdb_builder& b, node made)
    {
        const bytes image = b.add(made).build();
        EXPECT_TRUE(database.load_image(io::byte_vector(image.begin(), image.end()), options));
        offset = b.offset_of(made);
        uni::compile_date_style(options.date_style, "mm/dd/yyyy", "hh:mm:ss", false);
    }
    report::rendered_value rendered() const
    {
        sdb::sdb_tag_item item;
        EXPECT_TRUE(database.read_item(item, offset));
        return report::render_tag_value(database, item, options);
    }
    std::string text(bool all_lines = false, bool quote = false) const
    {
        return report::tag_text(database, offset, options, all_lines, quote);
    }

    front::sdb_opts options;
    sdb::sdb_database database;
    std::uint32_t offset = 0;
};

node number_tag(sdb_builder& b, std::uint16_t tag, std::uint64_t value)
{
    switch (tag >> 12) {
    case 2:
        return b.byte(tag, static_cast<std::uint8_t>(value));
    case 3:
        return b.word(tag, static_cast<std::uint16_t>(value));
    case 4:
        return b.dword(tag, static_cast<std::uint32_t>(value));
    default:
        return b.qword(tag, value);
    }
}

TEST(tag_text, numbers)
{
    struct number_case {
        std::uint16_t tag;
        std::uint64_t value;
        std::string hexadecimal;
        std::optional<std::string> text = {}; // where it is not the number itself
    };
    const number_case cases[] = {
        {0x2001, 0x0a, "0x0a"},
        {tag::match_mode, 0x0fff, "0x0fff"},
        {tag::index_tag, 0x1000, "0x1000", "tag_4096"}, // has the form of a tag
        {tag::index_tag, 0x7007, "0x7007", "exe"},
        {tag::index_tag, 0x9fff, "0x9fff", "tag_40959"},
        {tag::index_tag, 0xa000, "0xa000"},
        {tag::size, 0xffffffff, "0xffffffff"},
        {tag::shim_tagid, 0x1a2b, "0x00001a2b", "1a2b"},
        {tag::tagid, 0, "0x00000000", "0"},
        {0x4888, 0x1a2b, "0x00001a2b"},
        {tag::link_date, 86'399, "0x0001517f", "01/01/1970 23:59:59"},
        {tag::upto_link_date, 0x7fffffff, "0x7fffffff", "01/19/2038 03:14:07"},
        {tag::link_date, 0, "0x00000000", " "}, // no time: its two texts are empty
        {tag::link_date, 0xffffffff, "0xffffffff", " "},
        {tag::from_link_date, 86'399, "0x0001517f"},
        {tag::time, 125'911'584'000'000'000, "0x01bf53eb256d4000", "01/01/2000 00:00:00"},
        {tag::modtime, 10, "0x000000000000000a"},
        {tag::bin_file_version, 0x0001000200030004, "0x0001000200030004", "1.2.3.4"},
        {tag::upto_osmaxversiontested, 0, "0x0000000000000000", "0.0.0.0"},
        {tag::osmaxversiontested, 0, "0x0000000000000000"},
        {tag::from_bin_file_version, 0x000affff00000007, "0x000affff00000007", "10"},
        {tag::upto_bin_file_version, 0x00090000ffffffff, "0x00090000ffffffff", "9.0"},
        {tag::bin_product_version, ~0ull, "0xffffffffffffffff", ""},
    };
    for (const number_case& number : cases) {
        sdb_builder b;
        single_tag it(b, number_tag(b, number.tag, number.value));
        for (const bool base16 : {true, false}) {
            it.options.base16 = base16;
            const report::rendered_value value = it.rendered();
            EXPECT_EQ(value.value_number, number.value);
            EXPECT_EQ(value.value_text, base16 ? number.hexadecimal : std::to_string(number.value));
            EXPECT_EQ(value.lines, (line_map{{it.offset, number.text.value_or(value.value_text)}}));
        }
    }
}

TEST(tag_text, tags_without_a_number)
{
    static constexpr std::string_view id = "11223344-5566-7788-99AA-BBCCDDEEFF00";
    struct text_case {
        node (*make)(sdb_builder&);
        std::string value_text;
        std::optional<std::string> text = {};
    };
    const text_case cases[] = {
        {[](sdb_builder& b) { return b.text(tag::name, "say \"<&>\""); }, "0x0006", "say \"<&>\""},
        {[](sdb_builder& b) { return b.string_ref(tag::name, 0x12345); }, "0x12345"},
        {[](sdb_builder& b) {
             return b.text_units(tag::name, {u"a\0b", 3});
         },
         "0x0006", "a"},
        {[](sdb_builder& b) { return b.string(tag::stringtable_item, "\"in\""); }, "", "\"in\""},
        {[](sdb_builder& b) { return b.list(tag::exe, {b.null(tag::general)}); }, ""},
        {[](sdb_builder& b) { return b.guid(tag::exe_id, id); }, "",
         "11223344-5566-7788-99aa-bbccddeeff00"},
        {[](sdb_builder& b) { return b.guid(tag::data_bits, id); }, ""},
        {[](sdb_builder& b) { return b.binary(tag::fix_id, bytes(15)); }, ""},
        {[](sdb_builder& b) { return b.binary(tag::fix_id, bytes(17)); }, ""},
        {[](sdb_builder& b) { return b.binary(tag::index_bits, bytes(12)); }, "", "..."},
        {[](sdb_builder& b) { return b.binary(tag::index_bits, bytes(11)); }, ""},
        {[](sdb_builder& b) { return b.binary(tag::patch_bits, bytes(51)); }, ""},
    };
    for (const auto& [make, value_text, text] : cases) {
        single_tag it(make);
        for (const bool base16 : {true, false}) {
            it.options.base16 = base16;
            const report::rendered_value value = it.rendered();
            EXPECT_EQ(value.value_number, 0u);
            EXPECT_EQ(value.value_text, value_text);
            EXPECT_EQ(value.lines, text ? line_map({{it.offset, *text}}) : line_map());
            EXPECT_EQ(it.text(), text.value_or(""));
        }
    }
}

TEST(tag_text, a_null_tag_is_set)
{
    single_tag it([](sdb_builder& b) { return b.null(tag::include); });
    EXPECT_EQ(it.rendered().value_text + it.text(), "setset");
    EXPECT_EQ(it.rendered().value_number, 1u);
    ++it.offset;
    EXPECT_EQ(it.text(), "") << "no tag stands there";
}

TEST(tag_text, quoting_makes_double_quotes_single)
{
    const single_tag it([](sdb_builder& b) { return b.text(tag::name, "\"a\" 'b' \""); });
    EXPECT_EQ(it.text(false, false), "\"a\" 'b' \"");
    EXPECT_EQ(it.text(false, true), "'a' 'b' '");
}

TEST(tag_text, patch_operations)
{
    single_tag it([](sdb_builder& b) {
        return b.patch_bits({test_support::match_op("a.dll", 0x1f, {0x0a, 0xff, 0x00}),
                             test_support::replace_op("b.dll", 0xdeadbeef, {})});
    });
    const std::string first =
        R"(<op module="a.dll" type="match" address="0x0000001f">0a ff 00</op>)";
    const std::string second = R"(<op module="b.dll" type="replace" address="0xdeadbeef"></op>)";
    it.options.base16 = false; // changes nothing here
    EXPECT_EQ(it.rendered().lines, (line_map{{it.offset, first}, {it.offset + 87, second}}));
    EXPECT_EQ(it.text(), first);
    EXPECT_EQ(it.text(true), first + "\n" + second);
    it.options.xml = false;
    EXPECT_EQ(it.rendered().lines, (line_map{{it.offset + 6, ""}, {it.offset + 93, ""}}));
    it.options.section_rules = false;
    EXPECT_EQ(it.rendered().lines, line_map());
}

} // namespace
