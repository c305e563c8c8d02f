#include "sdb/finders.h"

#include <algorithm>
#include <array>
#include <functional>

#include <gtest/gtest.h>

#include "report/listings.h"
#include "sdb/tags.h"
#include "support/sdb_builder.h"
#include "support/text_sink.h"

namespace {

namespace tag = sdb::tag;
using test_support::bytes;
using test_support::match_op;
using test_support::node;
using test_support::sdb_builder;
using test_support::text_sink;

void load(sdb::sdb_database& database, const bytes& image)
{
    front::sdb_opts options;
    ASSERT_TRUE(database.load_image(io::byte_vector(image.begin(), image.end()), options));
}

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
    sdb::sdb_database database;
    load(database, b.build());

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
        EXPECT_EQ(sdb::find_strings(database, found, pattern), !expected.empty()) << pattern;
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
    sdb::sdb_database database;
    load(database, b.build());
    for (const std::string& spelling :
         {wanted, std::string("3CB4A5F1-7E02-4D19-BB6F-90DE51C2A784")}) {
        sdb::found_tags found = {1, 2}; // must not stay
        EXPECT_TRUE(sdb::find_guid(database, found, spelling));
        EXPECT_EQ(found, (sdb::found_tags{b.offset_of(known), b.offset_of(unknown)}));
    }
    for (const std::string_view absent :
         {"", "3cb4a5f1", "{3cb4a5f1-7e02-4d19-bb6f-90de51c2a784}",
          "00000000-0000-0000-0000-000000000000", "04030201-0000-0000-0000-000000000000"}) {
        sdb::found_tags found = {1};
        EXPECT_FALSE(sdb::find_guid(database, found, absent)) << absent;
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
        sdb::sdb_database database;
        load(database, b.build());
        sdb::found_tags found = {1}; // must not stay
        EXPECT_EQ(sdb::find_patch_bytes(database, found, pattern), is_found) << pattern.size();
        EXPECT_EQ(found, is_found ? sdb::found_tags{b.offset_of(bits)} : sdb::found_tags());
    }
}

using setter = std::function<void(front::sdb_opts&)>;

// A database with one patch, whose data hold `data`, an exe that takes it, one that does not, and
// a fix.
struct searched_database {
    explicit searched_database(bytes data)
    {
        const node patch =
            b.list(tag::patch, {b.text(tag::name, "p"), b.text(tag::description, "zebra"),
                                b.patch_bits({match_op("m", 1, std::move(data))})});
        b.add(b.list(tag::library, {patch, b.list(tag::shim, {b.text(tag::name, "fix"),
                                                              b.text(tag::dllfile, "f.dll")})}));
        b.add({b.list(tag::exe, {b.text(tag::name, "patched"), b.guid(tag::exe_id, id),
                                 b.list(tag::patch_ref, {b.reference(tag::patch_tagid, patch)})}),
               b.list(tag::exe, {b.text(tag::name, "plain"), b.null(tag::general)}),
               b.list(tag::app, {b.text(tag::name, "an app"), b.null(tag::general)})});
        b.table_text("end");
        load(database, b.build());
    }
    static constexpr std::string_view id = "c0ffee00-1234-5678-9abc-def012345678";
    sdb_builder b;
    sdb::sdb_database database;
};

struct outcome {
    std::string names; // of the records that were listed
    std::string words; // the other lines, a "$" for the end of the document
    std::string notice;
    friend bool operator==(const outcome&, const outcome&) = default;
    friend void PrintTo(const outcome& o, std::ostream* out)
    {
        *out << '{' << o.names << "} {" << o.words << "} {" << o.notice << '}';
    }
};

outcome search(const searched_database& in, front::sdb_opts& options)
{
    text_sink out;
    testing::internal::CaptureStderr();
    EXPECT_TRUE(report::run_database_report(out, in.database, options));
    outcome result;
    result.notice = testing::internal::GetCapturedStderr();
    if (const std::size_t wiped = result.notice.rfind('\r'); wiped != std::string::npos) {
        result.notice.erase(0, wiped + 1);
    }
    out.flush();
    // A record is a line that opens with one blank; what stands inside it has two or more.
    for (std::size_t start = 0; start < out.gathered.size();) {
        const std::size_t end = out.gathered.find('\n', start);
        const std::string line = out.gathered.substr(start, end - start);
        const std::size_t name = line.find("name=\"");
        if (line == "</shimdb>") {
            result.words += '$';
        } else if (!line.starts_with(' ') && line != "<shimdb>") {
            result.words += line + '/';
        } else if (line[1] == '<' && name != std::string::npos) {
            result.names += line.substr(name + 6, line.find('"', name + 6) - name - 6) + ' ';
        }
        start = end + 1;
    }
    return result;
}

void everything(front::sdb_opts& options)
{
    options.list_apps = options.list_fixes = true;
    options.exes_only = options.shims_only = options.patches_only = true;
}

TEST(finders, searches_select_records_and_word_their_failure_by_what_is_listed)
{
    const searched_database in({0xca, 0xfe});
    const auto strings = [](std::vector<std::string> patterns) {
        return [patterns](front::sdb_opts& options) { options.find_strings_list = patterns; };
    };
    const auto guid = [](std::string_view text) {
        return [text](front::sdb_opts& options) { options.find_guid_text = text; };
    };
    const auto ids = [](std::vector<std::uint32_t> offsets) {
        return [offsets](front::sdb_opts& options) { options.find_tagids_list = offsets; };
    };
    const auto bytes_of = [](bytes pattern) {
        return [pattern](front::sdb_opts& options) { options.patch_pattern = pattern; };
    };
    const auto alone = [](front::sdb_opts&) {};
    const auto apps = [](front::sdb_opts& options) { options.list_apps = true; };
    const auto fixes = [](front::sdb_opts& options) { options.list_fixes = true; };
    const auto exes = [](front::sdb_opts& options) { options.exes_only = true; };
    const auto tagged = [](front::sdb_opts& options) {
        options.tag_filter_on = true;
        options.tag_filter = tag::inexclude;
    };
    const std::string none = "no matches found: a.sdb\n";
    const std::tuple<const char*, setter, setter, outcome> cases[] = {
        {"text", strings({"patched"}), alone, {"patched ", "/$", ""}},
        {"texts", strings({"patched", "an "}), alone, {"an app patched ", "//$", ""}},
        {"texts in exes", strings({"patched", "an "}), exes, {"patched ", "/$", ""}},
        {"text of a fix", strings({"fix"}), alone, {"", "$", none}},
        {"text of a fix in fixes", strings({"fix"}), fixes, {"fix ", "/$", ""}},
        {"text of an exe in fixes", strings({"plain"}), fixes, {"", "No fixes found/$", ""}},
        {"through a reference", strings({"zebra"}), exes, {"patched ", "/$", ""}},
        {"no text", strings({"zz", "yy"}), alone, {"", "$", none}},
        {"no text in apps", strings({"zz"}), apps, {"", "No Apps found/$", ""}},
        {"no text in fixes", strings({"zz"}), fixes, {"", "No fixes found/$", ""}},
        {"no text in exes", strings({"zz"}), exes, {"", "/$", ""}},
        {"no text in a tag", strings({"zz"}), tagged, {"", "/$", ""}},
        {"no text at all",
         strings({"zz"}),
         everything,
         {"", "No Apps found/No fixes found////$", ""}},
        {"guid", guid(searched_database::id), alone, {"patched ", "/$", ""}},
        {"no guid", guid("c0ffee00"), alone, {"", "$", none}},
        {"no guid in apps", guid("c0ffee00"), apps, {"", "No Apps found/$", ""}},
        {"id",
         ids({in.database.offset_at(in.database.ordinals_by_tag(tag::app)[0]), 5, 5}),
         alone,
         {"an app ", "/$", ""}},
        {"no id", ids({5}), alone, {"", "$", none}},
        {"no id in exes", ids({5}), exes, {"", "/$", ""}},
        {"bytes", bytes_of({0xfe}), alone, {"patched ", "/$", ""}},
        {"bytes in apps", bytes_of({0xfe}), apps, {"patched ", "/$", ""}},
        {"bytes in exes", bytes_of({0xfe}), exes, {"patched ", "/$", ""}},
        {"bytes in fixes", bytes_of({0xfe}), fixes, {"patched p ", "//$", ""}},
        {"no bytes", bytes_of({0xff}), alone, {"", "", none}},
        {"no bytes at all", bytes_of({0xff}), everything, {"", "", none}},
    };
    for (const auto& [what, look_for, listing, expected] : cases) {
        front::sdb_opts options;
        options.current_path = "a.sdb";
        look_for(options);
        listing(options);
        EXPECT_EQ(search(in, options), expected) << what;
    }
}

TEST(finders, the_string_table_takes_the_place_of_a_text_search)
{
    const searched_database in({1});
    front::sdb_opts options;
    options.xml = false;
    options.find_strings_list = {"zz"};
    options.list_stringtable = true;
    EXPECT_EQ(search(in, options),
              (outcome{"", "p/zebra/fix/f.dll/patched/plain/an app/end//", ""}));
    EXPECT_TRUE(options.found_offsets.empty());
}

TEST(finders, each_database_is_searched_anew)
{
    const searched_database first({0xca, 0xfe});
    const searched_database second({0xbe});
    const searched_database third({0xfe, 0xfe});
    const std::string none = "no matches found: x\n";
    front::sdb_opts by_bytes;
    by_bytes.patch_pattern = {0xfe};
    by_bytes.exes_only = true;
    front::sdb_opts by_text;
    by_text.find_strings_list = {"patched"};
    front::sdb_opts by_id;
    by_id.find_tagids_list = {5};
    const outcome hit = {"patched ", "/$", ""};
    const outcome miss = {"", "$", none};
    const std::tuple<front::sdb_opts&, std::array<outcome, 3>> cases[] = {
        {by_bytes, {hit, {"", "", none}, hit}},
        {by_text, {hit, hit, hit}},
        {by_id, {miss, miss, miss}},
    };
    for (const auto& [options, expected] : cases) {
        std::size_t next = 0;
        for (const searched_database* in : {&first, &second, &third}) {
            front::reset_per_database(options);
            options.current_path = "x";
            EXPECT_EQ(search(*in, options), expected[next++]);
        }
    }
    EXPECT_FALSE(by_bytes.list_apps);
}

} // namespace
