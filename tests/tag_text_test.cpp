#include "form/tag_text.h"

#include <gtest/gtest.h>

#include "form/forms.h"
#include "sdb/tags.h"
#include "support/reports.h"

namespace {

namespace tag = sdb::tag;
using test_support::bytes;
using test_support::node;
using test_support::sdb_builder;

// The text of one tag, in a database of its own; "none" if it has none.
std::string text_of(sdb_builder& b, node made, std::string_view form = "plain", bool base16 = true)
{
    const test_support::loaded_database loaded(b.add(made).build());
    request::sdb_opts options;
    options.base16 = base16;
    uni::compile_date_style(options.date_style, "mm/dd/yyyy", "hh:mm:ss", false);
    uni::text_buffer out;
    const auto writer = form::form_of(form).make(out, options, {});
    writer->begin({&loaded.database, ""});
    return writer->tag_text(b.offset_of(made), 1000).value_or("none");
}

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
        for (const bool base16 : {true, false}) {
            sdb_builder b;
            const std::string plain = base16 ? number.hexadecimal : std::to_string(number.value);
            EXPECT_EQ(text_of(b, number_tag(b, number.tag, number.value), "plain", base16),
                      number.text.value_or(plain));
        }
    }
}

TEST(tag_text, tags_without_a_number)
{
    static constexpr std::string_view id = "11223344-5566-7788-99AA-BBCCDDEEFF00";
    sdb_builder b;
    const std::pair<node, std::string> cases[] = {
        {b.null(tag::include), "set"},
        {b.text(tag::name, "say \"<&>\""), "say \"<&>\""},
        {b.string_ref(tag::name, 0x12345), "none"},
        {b.text_units(tag::name, {u"a\0b", 3}), "a"},
        {b.string(tag::stringtable_item, "\"in\""), "\"in\""},
        {b.list(tag::exe, {b.null(tag::general)}), "none"},
        {b.guid(tag::exe_id, id), "11223344-5566-7788-99aa-bbccddeeff00"},
        {b.guid(tag::data_bits, id), "none"},
        {b.binary(tag::fix_id, bytes(15)), "none"},
        {b.binary(tag::fix_id, bytes(17)), "none"},
        {b.binary(tag::index_bits, bytes(12)), "..."},
        {b.binary(tag::index_bits, bytes(11)), "none"},
        {b.binary(tag::patch_bits, bytes(51)), "none"},
    };
    for (const auto& [made, text] : cases) {
        EXPECT_EQ(text_of(b, made), text);
    }
}

TEST(tag_text, a_patch_value_shows_its_first_operation_where_the_form_has_room)
{
    for (const auto& [form, text] :
         {std::pair{"xml", R"(<op module="a.dll" type="match" address="0x0000001f">0a ff 00</op>)"},
          {"plain", ""},
          {"csv", "none"}}) {
        sdb_builder b;
        const node patch = b.patch_bits({test_support::match_op("a.dll", 0x1f, {0x0a, 0xff, 0}),
                                         test_support::replace_op("b.dll", 0xdeadbeef, {})});
        EXPECT_EQ(text_of(b, patch, form, false), text) << form;
    }
}

} // namespace
