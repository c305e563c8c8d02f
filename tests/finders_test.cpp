#include "sdb/finders.h"

#include <algorithm>
#include <map>
#include <regex>
#include <sstream>

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

struct finders : testing::Test, sdb_builder {};

TEST_F(finders, strings_are_found_by_any_piece_of_them_whatever_their_case)
{
    const node alpha = text(tag::name, "Alpha.EXE");
    const node again = text(tag::app_name, "Alpha.EXE");
    const node beta = text(tag::vendor, "beta & gamma");
    const node umlaut = text(tag::name, "\xc3\x84RGER");
    const node zeroed = text_units(tag::name, std::u16string_view(u"seen\0hidden", 11));
    const node twin =
        string_ref(tag::module, table_bytes(bytes{1, 0x88, 4, 0, 0, 0, 'b', 0, 'e', 0}));
    const node leading = text(tag::description, "Alpha.EXE");
    const node last = text(tag::name, "omega");
    table_text("nobody refers to this");
    const node behind = text(tag::name, "the last one");
    lead(leading);
    add(list(tag::exe, {alpha, beta, list(tag::data, {again, umlaut}), last, behind}));
    add({zeroed, twin});
    const loaded_database in(build());

    const std::tuple<std::string, std::vector<node>> cases[] = {
        {"alpha.exe", {leading, alpha, again}},
        {"A", {leading, alpha, again, beta, last}},
        {"BE", {beta, twin}},
        {" & ", {beta}},
        {"*", {}},
        {"exebeta", {}}, // no text goes on in the next
        {"\xc3\x84rger", {umlaut}},
        {"\xc3\xa4rger", {}}, // only ASCII letters are folded
        {"seen", {zeroed}},
        {"hidden", {}},
        {"last one", {}}, // the table's last string is never searched
        {"omega", {last}},
        {"", {leading, alpha, again, beta, umlaut, zeroed, twin, last}},
        {"nobody,be", {beta, twin}},
        {"xxbetaa,eta &,taa", {beta}}, // one begins in what is left of another
        {"ph,lph", {leading, alpha, again}},
        {"ome,omegaz,\xc3\x84r,hidden,qqq", {last, umlaut}},
        {"zzz,", {leading, alpha, again, beta, umlaut, zeroed, twin, last}},
    };
    for (const auto& [pattern, expected] : cases) {
        std::vector<std::string> patterns;
        for (std::istringstream list(pattern + ",");
             std::getline(list, patterns.emplace_back(), ',');) {
        }
        patterns.pop_back();
        sdb::found_tags wanted;
        for (const node found : expected) {
            wanted.push_back(offset_of(found));
        }
        std::ranges::sort(wanted);
        sdb::found_tags found;
        EXPECT_EQ(sdb::find_strings(in.database, found, patterns), !expected.empty()) << pattern;
        EXPECT_EQ(found, wanted) << pattern;
    }
}

TEST_F(finders, guids_are_found_in_any_binary_of_16_bytes)
{
    const std::string wanted = "3cb4a5f1-7e02-4d19-bb6f-90de51c2a784";
    const node known = guid(tag::exe_id, wanted);
    const node unknown = guid(0x9abc, wanted);
    bytes longer = test_support::guid_bytes(wanted);
    longer.push_back(0);
    add({list(tag::exe, {guid(tag::app_id, "3cb4a5f1-7e02-4d19-bb6f-90de51c2a785"), known}),
         unknown, binary(tag::fix_id, longer)});
    trail(with_size(tag::fix_id, 16, {1, 2, 3})); // cut off: none
    const loaded_database in(build());
    const sdb::found_tags both = {offset_of(known), offset_of(unknown)};
    for (const auto& [text, expected] :
         std::map<std::string, sdb::found_tags>{{wanted, both},
                                                {"3CB4A5F1-7E02-4D19-BB6F-90DE51C2A784", both},
                                                {"", {}},
                                                {"3cb4a5f1", {}},
                                                {"{" + wanted + "}", {}},
                                                {"00000000-0000-0000-0000-000000000000", {}},
                                                {"04030201-0000-0000-0000-000000000000", {}}}) {
        sdb::found_tags found = {1, 2}; // must not stay
        EXPECT_EQ(sdb::find_guid(in.database, found, text), !expected.empty()) << text;
        EXPECT_EQ(found, expected) << text;
    }
}

TEST_F(finders, patch_bytes_are_found_inside_one_operation)
{
    auto cut_short = match_op("m", 1, {0xaa, 0xbb});
    cut_short.data_size = 3; // reaches behind the value, where only existing bytes count
    auto stuck = match_op("m", 1, {0x01});
    stuck.next_size = 0;
    auto skipping = match_op("m", 1, {0x01});
    skipping.next_size = 84 + 1 + 84 + 1;
    const std::tuple<std::vector<test_support::patch_op>, bytes, bool> cases[] = {
        {{match_op("m", 1, {1, 2, 3})}, {1, 2, 3}, true},
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
        b.add({b.list(tag::patch, {b.binary(tag::file_bits, pattern), bits}),
               b.binary(tag::patch_bits, {})});
        const loaded_database in(b.build());
        sdb::found_tags found = {1}; // must not stay
        EXPECT_EQ(sdb::find_patch_bytes(in.database, found, pattern), is_found) << pattern.size();
        EXPECT_EQ(found, is_found ? sdb::found_tags{b.offset_of(bits)} : sdb::found_tags());
    }
}

// A report in brief: of a record its name and a blank, "/" for another line, "$" for the end of the
// document, then what was said.
std::string outcome(const test_support::made_report& made)
{
    std::string text = made.text;
    for (const auto& [piece, brief] : {std::pair{"^(<[?]xml.*|<shimdb>|  .*| </.*)\n", ""},
                                       {"^ <\\w+ name=\"([^\"]*)\"[^\n]*\n", "$1 "},
                                       {"^</shimdb>\n", "$$"},
                                       {"\n", "/"}}) {
        const std::regex lines(piece, std::regex::ECMAScript | std::regex::multiline);
        text = std::regex_replace(text, lines, brief);
    }
    return text + made.notices;
}

TEST_F(finders, of_a_run_select_records_and_word_their_failure_by_what_is_listed)
{
    // A patch, an exe that takes it, one that does not, and a fix.
    const node patch = list(tag::patch, {text(tag::name, "p"), text(tag::description, "zebra"),
                                         patch_bits({match_op("m", 1, {0xca, 0xfe})})});
    add(list(tag::library,
             {patch, list(tag::shim, {text(tag::name, "fix"), text(tag::dllfile, "f.dll")})}));
    add({list(tag::exe, {text(tag::name, "patched"),
                         guid(tag::exe_id, "c0ffee00-1234-5678-9abc-def012345678"),
                         list(tag::patch_ref, {reference(tag::patch_tagid, patch)})}),
         list(tag::exe, {text(tag::name, "plain"), null(tag::general)}),
         label("app", list(tag::app, {text(tag::name, "an app"), null(tag::general)}))});
    table_text("end");
    const loaded_database in(build());
    using wanted = request::search_request;
    using listings = std::vector<std::string_view>;
    const auto of_texts = [](std::vector<std::string> strings) { return wanted{strings, "", {}}; };
    const auto of_guid = [](const char* text) { return wanted{{}, text, {}}; };
    const auto ids = [](std::vector<std::uint32_t> offsets) { return wanted{{}, "", offsets}; };
    const listings alone, all = {"apps", "fixes", "exes", "shims", "patches"};
    const std::string none = "no matches found: a.sdb\n";
    const std::tuple<wanted, bytes, listings, std::string> cases[] = {
        {of_texts({"patched"}), {}, alone, "patched /$"},
        {of_texts({"patched", "an "}), {}, alone, "an app /patched /$"},
        {of_texts({"fix"}), {}, alone, "$" + none},
        {of_texts({"fix"}), {}, {"fixes"}, "fix /$"},
        {of_texts({"plain"}), {}, {"fixes"}, "No fixes found/$"},
        {of_texts({"zebra"}), {}, {"exes"}, "patched /$"}, // through a reference
        {of_texts({"zz", "yy"}), {}, all, "No Apps found/No fixes found////$"},
        {of_guid("c0ffee00-1234-5678-9abc-def012345678"), {}, alone, "patched /$"},
        {of_guid("c0ffee00"), {}, alone, "$" + none},
        {ids({offset_of("app"), 5, 5}), {}, alone, "an app /$"},
        {{}, {0xfe}, {"apps"}, "patched /$"},
        {{}, {0xfe}, {"fixes"}, "patched /p /$"},
        {{}, {0xff}, all, "$" + none},
    };
    int number = 0;
    for (const auto& [search, pattern, asked, expected] : cases) {
        request::sdb_opts options = test_support::tag_options(tag::inexclude);
        options.listings = asked;
        options.search = search;
        options.patch_pattern = pattern;
        EXPECT_EQ(outcome(test_support::database_report(in.database, options, {.path = "a.sdb"})),
                  expected)
            << "case " << number++;
    }
}

} // namespace
