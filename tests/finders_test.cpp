#include "sdb/finders.h"

#include <algorithm>
#include <regex>

#include <gtest/gtest.h>

#include "sdb/tags.h"
#include "support/reports.h"

namespace {

namespace tag = sdb::tag;
using test_support::bytes;
using test_support::loaded_database;
using test_support::match_op;
using test_support::node;
using test_support::sdb_builder;

TEST(finders, strings_are_found_by_any_piece_of_them_whatever_their_case)
{
    sdb_builder b;
    const node alpha = b.text(tag::name, "Alpha.EXE");
    const node again = b.text(tag::app_name, "Alpha.EXE");
    const node beta = b.text(tag::vendor, "beta & gamma");
    const node umlaut = b.text(tag::name, "\xc3\x84RGER");
    const node zeroed = b.text_units(tag::name, std::u16string_view(u"seen\0hidden", 11));
    const node twin =
        b.string_ref(tag::module, b.table_bytes(bytes{1, 0x88, 4, 0, 0, 0, 'b', 0, 'e', 0}));
    const node lead = b.text(tag::description, "Alpha.EXE");
    const node last = b.text(tag::name, "omega");
    b.table_text("nobody refers to this");
    const node behind = b.text(tag::name, "the last one");
    b.lead(lead);
    b.add(b.list(tag::exe, {alpha, beta, b.list(tag::data, {again, umlaut}), last, behind}));
    b.add({zeroed, twin});
    const loaded_database in(b.build());

    const std::tuple<std::string, std::vector<node>> cases[] = {
        {"alpha.exe", {lead, alpha, again}},
        {"A", {lead, alpha, again, beta, last}},
        {"ALPHA", {lead, alpha, again}},
        {"BE", {beta, twin}},
        {" & ", {beta}},
        {"*", {}},
        {"exebeta", {}}, // no text goes on in the next
        {"\xc3\x84rger", {umlaut}},
        {"\xc3\xa4rger", {}}, // only ASCII letters are folded
        {"seen", {zeroed}},
        {"hidden", {}},
        {"nobody", {}},
        {"last one", {}}, // the table's last string is never searched
        {"omega", {last}},
        {"", {lead, alpha, again, beta, umlaut, zeroed, twin, last}},
    };
    for (const auto& [pattern, expected] : cases) {
        sdb::found_tags wanted;
        for (const node found : expected) {
            wanted.push_back(b.offset_of(found));
        }
        std::ranges::sort(wanted);
        sdb::found_tags found;
        EXPECT_EQ(sdb::find_strings(in.database, found, pattern), !expected.empty()) << pattern;
        EXPECT_EQ(found, wanted) << pattern;
    }
}

TEST(finders, guids_are_found_in_any_binary_of_16_bytes)
{
    const std::string wanted = "3cb4a5f1-7e02-4d19-bb6f-90de51c2a784";
    sdb_builder b;
    const node known = b.guid(tag::exe_id, wanted);
    const node unknown = b.guid(0x9abc, wanted);
    const bytes raw = test_support::guid_bytes(wanted);
    bytes longer = raw;
    longer.push_back(0);
    b.add({b.list(tag::exe, {b.guid(tag::app_id, "3cb4a5f1-7e02-4d19-bb6f-90de51c2a785"), known}),
           unknown, b.binary(tag::fix_id, longer)});
    b.trail(b.with_size(tag::fix_id, 16, {1, 2, 3})); // cut off: none
    const loaded_database in(b.build());
    for (const std::string& spelling :
         {wanted, std::string("3CB4A5F1-7E02-4D19-BB6F-90DE51C2A784")}) {
        sdb::found_tags found = {1, 2}; // must not stay
        EXPECT_TRUE(sdb::find_guid(in.database, found, spelling));
        EXPECT_EQ(found, (sdb::found_tags{b.offset_of(known), b.offset_of(unknown)}));
    }
    for (const std::string_view absent :
         {"", "3cb4a5f1", "{3cb4a5f1-7e02-4d19-bb6f-90de51c2a784}",
          "00000000-0000-0000-0000-000000000000", "04030201-0000-0000-0000-000000000000"}) {
        sdb::found_tags found = {1};
        EXPECT_FALSE(sdb::find_guid(in.database, found, absent)) << absent;
        EXPECT_TRUE(found.empty());
    }
}

TEST(finders, patch_bytes_are_found_inside_one_operation)
{
    auto cut_short = match_op("m", 1, {0xaa, 0xbb});
    cut_short.data_size = 3; // reaches behind the value, where only existing bytes count
    auto stuck = match_op("m", 1, {0x01});
    stuck.next_size = 0;
    auto skipping = match_op("m", 1, {0x01});
    skipping.next_size = 84 + 1 + 84 + 1;
    const std::tuple<std::vector<test_support::patch_op>, bytes, bool> cases[] = {
        {{match_op("m", 1, {1, 2, 3})}, {1, 2, 3}, true},
        {{match_op("m", 1, {1, 2, 3})}, {2}, true},
        {{match_op("m", 1, {1, 2, 1, 2, 3})}, {1, 2, 3}, true},
        {{match_op("m", 1, {1, 2, 3})}, {1, 2, 3, 4}, false},
        {{match_op("m", 1, {1, 2, 3})}, {}, false},
        {{match_op("m", 1, {})}, {0}, false},
        {{match_op("m", 1, {9}), match_op("m", 2, {8}), match_op("m", 3, {7, 6})}, {6}, true},
        {{match_op("m", 1, {9, 8}), match_op("m", 2, {7, 6})}, {8, 7}, false},
        {{match_op("m", 0x55667788, {1})}, {0x88, 0x77}, false}, // heads are not searched
        {{cut_short}, {0xaa, 0xbb}, true},
        {{cut_short}, {0xbb, 0x00}, false},
        {{stuck, match_op("m", 1, {5})}, {5}, false},
        {{stuck, match_op("m", 1, {5})}, {1}, true},
        {{skipping, match_op("m", 1, {5}), match_op("m", 1, {6})}, {5}, false},
        {{skipping, match_op("m", 1, {5}), match_op("m", 1, {6})}, {6}, true},
    };
    for (const auto& [operations, pattern, is_found] : cases) {
        sdb_builder b;
        const node bits = b.patch_bits(operations);
        b.add(b.list(tag::patch, {b.binary(tag::file_bits, pattern), bits}));
        b.add(b.binary(tag::patch_bits, {}));
        const loaded_database in(b.build());
        sdb::found_tags found = {1}; // must not stay
        EXPECT_EQ(sdb::find_patch_bytes(in.database, found, pattern), is_found) << pattern.size();
        EXPECT_EQ(found, is_found ? sdb::found_tags{b.offset_of(bits)} : sdb::found_tags());
    }
}

// A database with one patch, whose data hold `data`, an exe that takes it, one that does not, and
// a fix.
sdb_builder searched_database(bytes data)
{
    sdb_builder b;
    const node patch =
        b.list(tag::patch, {b.text(tag::name, "p"), b.text(tag::description, "zebra"),
                            b.patch_bits({match_op("m", 1, std::move(data))})});
    b.add(b.list(tag::library, {patch, b.list(tag::shim, {b.text(tag::name, "fix"),
                                                          b.text(tag::dllfile, "f.dll")})}));
    b.add({b.list(tag::exe, {b.text(tag::name, "patched"),
                             b.guid(tag::exe_id, "c0ffee00-1234-5678-9abc-def012345678"),
                             b.list(tag::patch_ref, {b.reference(tag::patch_tagid, patch)})}),
           b.list(tag::exe, {b.text(tag::name, "plain"), b.null(tag::general)}),
           b.label("app", b.list(tag::app, {b.text(tag::name, "an app"), b.null(tag::general)}))});
    b.table_text("end");
    return b;
}

// A report in brief: of a record its name and a blank, "/" for another line, "$" for the end of the
// document, then what was said.
std::string outcome(const test_support::made_report& made)
{
    std::string text = made.text;
    for (const auto& [piece, brief] : {std::pair{"^<shimdb>\n", ""},
                                       {"^(  | </)[^\n]*\n", ""}, // what stands inside a record
                                       {"^ <\\w+ name=\"([^\"]*)\"[^\n]*\n", "$1 "},
                                       {"^</shimdb>\n", "$$"},
                                       {"\n", "/"}}) {
        const std::regex lines(piece, std::regex::ECMAScript | std::regex::multiline);
        text = std::regex_replace(text, lines, brief);
    }
    return text + made.notices;
}

TEST(search, selects_records_and_words_its_failure_by_what_is_listed)
{
    sdb_builder b = searched_database({0xca, 0xfe});
    const loaded_database in(b.build());
    using wanted = request::search_request;
    using listings = std::vector<std::string_view>;
    const auto texts = [](std::vector<std::string> strings) { return wanted{strings, "", {}}; };
    const auto guid = [](const char* text) { return wanted{{}, text, {}}; };
    const auto ids = [](std::vector<std::uint32_t> offsets) { return wanted{{}, "", offsets}; };
    const wanted known_guid = guid("c0ffee00-1234-5678-9abc-def012345678");
    const wanted nothing = texts({"zz", "yy"});
    const wanted two = texts({"patched", "an "});
    const listings alone = {};
    const listings all = {"apps", "fixes", "exes", "shims", "patches"};
    const std::string none = "no matches found: a.sdb\n";
    struct search_case {
        wanted search;
        bytes pattern;
        listings asked;
        std::string expected;
    };
    const search_case cases[] = {
        {texts({"patched"}), {}, alone, "patched /$"},
        {two, {}, alone, "an app /patched /$"},
        {two, {}, {"exes"}, "patched /$"},
        {texts({"fix"}), {}, alone, "$" + none},
        {texts({"fix"}), {}, {"fixes"}, "fix /$"},
        {texts({"plain"}), {}, {"fixes"}, "No fixes found/$"},
        {texts({"zebra"}), {}, {"exes"}, "patched /$"}, // through a reference
        {nothing, {}, alone, "$" + none},
        {nothing, {}, {"apps"}, "No Apps found/$"},
        {nothing, {}, {"fixes"}, "No fixes found/$"},
        {nothing, {}, {"exes"}, "/$"},
        {nothing, {}, {"tag"}, "/$"},
        {nothing, {}, all, "No Apps found/No fixes found////$"},
        {known_guid, {}, alone, "patched /$"},
        {guid("c0ffee00"), {}, alone, "$" + none},
        {guid("c0ffee00"), {}, {"apps"}, "No Apps found/$"},
        {ids({b.offset_of("app"), 5, 5}), {}, alone, "an app /$"},
        {ids({5}), {}, alone, "$" + none},
        {ids({5}), {}, {"exes"}, "/$"},
        {{}, {0xfe}, alone, "patched /$"},
        {{}, {0xfe}, {"apps"}, "patched /$"},
        {{}, {0xfe}, {"exes"}, "patched /$"},
        {{}, {0xfe}, {"fixes"}, "patched /p /$"},
        {{}, {0xff}, alone, none},
        {{}, {0xff}, all, none},
    };
    for (const search_case& one : cases) {
        request::sdb_opts options = test_support::tag_options(tag::inexclude);
        options.listings = one.asked;
        options.search = one.search;
        options.patch_pattern = one.pattern;
        EXPECT_EQ(outcome(test_support::database_report(in.database, options, {.path = "a.sdb"})),
                  one.expected)
            << "case " << &one - cases;
    }
}

TEST(search, is_made_anew_in_each_database)
{
    request::sdb_opts by_bytes = test_support::listing_options({"exes"});
    by_bytes.patch_pattern = {0xfe};
    request::sdb_opts by_text;
    by_text.search.strings = {"patched"};
    const std::string none = "no matches found: x\n";
    for (const auto& [data, bytes_outcome] :
         {std::pair<bytes, std::string>{{0xca, 0xfe}, "patched /$"},
          {{0xbe}, none},
          {{0xfe, 0xfe}, "patched /$"}}) {
        const bytes image = searched_database(data).build();
        const auto found = [&](const request::sdb_opts& options) {
            return outcome(test_support::database_report(image, options, {.path = "x"}));
        };
        EXPECT_EQ(found(by_bytes), bytes_outcome);
        EXPECT_EQ(found(by_text), "patched /$");
    }
}

} // namespace
