#include <gtest/gtest.h>

#include "sdb/tags.h"
#include "support/reports.h"

namespace {

namespace tag = sdb::tag;
using test_support::node;
using test_support::sdb_builder;

// A GUID text that ends in a number.
std::string id(int number)
{
    const std::string digits = std::to_string(number);
    return "abcdef00-0000-0000-0000-" + std::string(12 - digits.size(), '0') + digits;
}

std::string listed(sdb_builder& b, std::string_view listing, std::vector<std::string> strings = {})
{
    request::sdb_opts options = test_support::listing_options({listing}, "plain");
    options.csv_separator = "|";
    options.search.strings = std::move(strings);
    const auto made = test_support::database_report(b.build(), options, {.path = "a.sdb"});
    EXPECT_TRUE(made.asked);
    EXPECT_EQ(made.notices, "");
    return made.text;
}

TEST(identifiers, a_database_without_any_gives_nothing_at_all)
{
    sdb_builder b;
    b.add(b.list(tag::exe, {b.text(tag::name, "x"), b.binary(tag::exe_id, {1, 2, 3})}));
    EXPECT_EQ(listed(b, "guids"), "");
}

TEST(identifiers, tables_are_told_by_the_tag_and_rows_come_in_ascending_order)
{
    sdb_builder b;
    b.add({b.text(tag::name, "The database"), b.guid(tag::database_id, id(7))});
    b.add(b.list(tag::library,
                 {b.list(tag::shim, {b.text(tag::name, "fix"), b.guid(tag::fix_id, id(30))}),
                  b.list(tag::shim, {b.text(tag::name, "Fix 2"), b.guid(tag::fix_id, id(4))})}));
    b.add(b.list(tag::exe,
                 {b.text(tag::name, "\"x\".exe"), b.text(tag::app_name, "X|1"),
                  b.guid(tag::exe_id, id(9)), b.guid(tag::app_id, id(8)), b.guid(0x9abc, id(3))}));
    b.add(b.list(tag::exe, {b.guid(tag::exe_id, id(1)), b.text(tag::app_name, "only an app")}));
    EXPECT_EQ(listed(b, "guids"),
              "Exe ID's [a.sdb]\n" + id(1) + "|exe_id|\n" + id(9) + "|exe_id|\"x\".exe\n\n" +
                  "App ID's [a.sdb]\n" + id(8) + "|app_id|X|1\n\n" + //
                  "Fix ID's [a.sdb]\n" + id(4) + "|fix_id|Fix 2\n" + id(30) + "|fix_id|fix\n\n" +
                  "Other ID's [a.sdb]\n" + id(3) + "|tag_39612|\"x\".exe\n" + id(7) +
                  "|database_id|The database\n\n");
}

TEST(identifiers, one_that_stands_twice_is_listed_under_its_first_tag)
{
    for (const bool app_first : {true, false}) {
        sdb_builder b;
        const node app = b.list(tag::exe, {b.text(tag::name, "n1"), b.text(tag::app_name, "a1"),
                                           b.guid(tag::app_id, id(1))});
        const node exe = b.list(tag::exe, {b.text(tag::name, "n2"), b.text(tag::app_name, "a2"),
                                           b.guid(tag::exe_id, id(1))});
        b.add(app_first ? app : exe);
        b.add(app_first ? exe : app);
        EXPECT_EQ(listed(b, "guids"), app_first ? "App ID's [a.sdb]\n" + id(1) + "|app_id|a1\n\n"
                                                : "Exe ID's [a.sdb]\n" + id(1) + "|exe_id|n2\n\n");
    }
}

TEST(identifiers, names_come_from_the_first_group_of_the_list_that_starts_last_before)
{
    sdb_builder parts[6];
    const auto identifier = [&](int i) { return parts[i].guid(tag::exe_id, id(1)); };
    const auto name = [&](int i, const char* text) { return parts[i].text(tag::name, text); };
    const auto list = [&](int i) { return parts[i].list(tag::data, {name(i, "inner")}); };
    const std::pair<std::vector<node>, std::string> cases[] = {
        {{identifier(0), name(0, "first"), name(0, "second")}, "first"},
        {{identifier(1), parts[1].string_ref(tag::name, 0xfff0), name(1, "second")}, ""},
        {{identifier(2), list(2), name(2, "outer")}, "outer"},
        {{name(3, "outer"), list(3), identifier(3)}, "inner"}, // behind a list that has ended
        {{name(4, "outer"), parts[4].list(tag::data, {}), identifier(4)}, "outer"},
        {{identifier(5), list(5)}, ""},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        parts[i].add(parts[i].list(tag::exe, cases[i].first));
        EXPECT_EQ(listed(parts[i], "guids"),
                  "Exe ID's [a.sdb]\n" + id(1) + "|exe_id|" + cases[i].second + "\n\n")
            << i;
    }
}

TEST(identifiers, a_search_takes_names_away_but_no_rows)
{
    sdb_builder b;
    b.add({b.list(tag::exe, {b.text(tag::name, "one"), b.guid(tag::exe_id, id(1))}),
           b.list(tag::exe, {b.text(tag::name, "two"), b.guid(tag::exe_id, id(2))})});
    b.table_text("end");
    const std::tuple<std::string, std::string, std::string> cases[] = {
        {"one", "one", ""}, {"two", "", "two"}, {"o", "one", "two"}, {"zz", "", ""}};
    for (const auto& [text, first, second] : cases) {
        EXPECT_EQ(listed(b, "guids", {text}), "Exe ID's [a.sdb]\n" + id(1) + "|exe_id|" + first +
                                                  "\n" + id(2) + "|exe_id|" + second + "\n\n");
    }
}

TEST(identifiers, the_string_table_is_listed_wherever_its_strings_stand)
{
    sdb_builder b;
    b.lead(b.string(tag::stringtable_item, "before the database"));
    b.add(
        b.list(tag::exe, {b.text(tag::name, "second"), b.string(tag::stringtable_item, "first")}));
    b.add(b.text_units(tag::name, std::u16string_view(u"cut\0off", 7)));
    b.table_text("\xd1\x87\xd0\xb5\n");
    b.table_bytes(test_support::bytes{0x01, 0x88, 0, 0, 0, 0});
    b.table_text("the last one");
    b.trail(b.with_size(tag::stringtable_item, 200, {'x', 0})); // reaches beyond the end
    // A search selects none of them.
    using texts = std::vector<std::string>;
    for (const texts& sought : {texts(), texts{"zz"}}) {
        EXPECT_EQ(listed(b, "stringtable", sought),
                  "first\nsecond\ncut\n\xd1\x87\xd0\xb5\n\n\nthe last one\n\n");
    }
    sdb_builder bare;
    bare.without_string_table().add(bare.null(tag::general));
    EXPECT_EQ(listed(bare, "stringtable"), "\n");
}

} // namespace
