#include "front/filter.h"

#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "platform/files.h"

namespace {

namespace fs = std::filesystem;

TEST(filter, paths)
{
    files::file_tree tree;
    struct row {
        std::string_view filter;
        std::vector<std::string> accepted;
        std::vector<std::string> refused;
    };
    const row rows[] = {
        {"*.sdb", {"c:\\x\\a.SDB", "/x/no-utf8-\xff.Sdb"}, {"a.sdb.bak", "c:\\a.sdb\\b"}},
        {"**", {"/x/any"}, {}},
        {"apphelp.sdb",
         {"c:\\x\\AppHelp.sdb", "apphelp.sdb"},
         {"apphelp.sdb.bak", "myapphelp.sdb"}},
        {"app*help.sdb", {"apphelp.sdb"}, {"app-help.sdb"}}, // a star inside is as if not there
        {"a.sdb, b.sdb ,,", {"/x/a.sdb", "/x/b.sdb"}, {"/x/c.sdb", "/x/ b.sdb "}},
        {"a,b|c", {"/x/a,b", "/x/c"}, {"/x/a"}}, // a bar goes before a comma
        {" | ", {"/x/ | "}, {"/x/ "}},           // no items: the text is the item
        // Only ASCII letters lose their case.
        {"\xc3\xa9*|\xe5\xba\x93*", {"/x/\xe5\xba\x93.sdb"}, {"/x/\xc3\x89t\xc3\xa9.sdb"}},
        {":stream", {}, {"/x/any", "/x/"}},
        {"b|*:*", {"/x/any"}, {}},
        {"\\apppatch", {"c:\\Windows\\AppPatch\\a", "\\apppatch\\custom\\a"}, {"c:\\apppatch"}},
        {"x|\\apppatch*",
         {"c:\\apppatch\\a"},
         {"c:\\apppatch64\\a", "c:\\myapppatch\\a", "c:\\apppatch64\\apppatch\\a"}},
        {"\\windows\\apppatch", {"/mnt/Windows/AppPatch/Custom/a"}, {"/mnt/windows/a"}},
        {"/apppatch", {}, {"/mnt/apppatch/a"}},
        // A backslash at the end asks for another one, or for the end, behind it.
        {"\\apppatch\\*",
         {"c:\\apppatch\\a", "c:\\apppatch\\custom\\a"},
         {"c:\\apppatch", "c:\\apppatch64\\a", "c:\\myapppatch\\a"}},
    };
    for (const auto& [filter, accepted, refused] : rows) {
        std::vector<request::filter_entry> entries;
        front::parse_filter(entries, filter);
        bool open_failed = true;
        for (const auto* const list : {&accepted, &refused}) {
            for (const std::string& path : *list) {
                EXPECT_EQ(front::filter_accepts({}, tree, open_failed, path, entries),
                          list == &accepted)
                    << filter << path;
            }
        }
        EXPECT_FALSE(open_failed) << "no file is touched";
    }
}

// A file that is there for the length of a test.
struct file_on_disk {
    explicit file_on_disk(std::string_view contents)
        : path((fs::path(testing::TempDir()) / "filter_test.sdb").string())
    {
        std::ofstream(path, std::ios::binary) << contents;
    }
    ~file_on_disk() { fs::remove(path); }
    std::string path;
};

TEST(filter, signatures)
{
    files::file_tree tree;
    const file_on_disk file("12345678sdbf");
    const std::string absent = file.path + ".absent";
    bool failed = true;
    for (const auto& [text, is_accepted] : {std::pair("73 64 62 66|8", true),
                                            {"73 64 62 66,0x8", true},
                                            {"31 32", true},
                                            {"73 64 62 66|7", false},
                                            {"73 64 62 66|9", false}, // up to behind the file's end
                                            {"73|0xffffffffffffffff", false}}) {
        EXPECT_EQ(front::filter_accepts(
                      {}, tree, failed, file.path,
                      {front::parse_signature_filter(text).value_or(request::filter_entry{})}),
                  is_accepted)
            << text;
    }
    for (const char* nothing : {"", "|8", "zz", "73 zz|8", "173|8", "73|x"}) {
        EXPECT_FALSE(front::parse_signature_filter(nothing)) << nothing;
    }
    EXPECT_FALSE(failed);
    EXPECT_FALSE(
        front::filter_accepts({}, tree, failed, absent, {*front::parse_signature_filter("31")}));
    EXPECT_TRUE(failed);
    std::vector<request::filter_entry> entries;
    front::parse_filter(entries, "*.absent");
    entries.insert(entries.begin(), *front::parse_signature_filter("31"));
    EXPECT_TRUE(front::filter_accepts({}, tree, failed, absent, entries));
    EXPECT_TRUE(failed) << "told all the same when a later entry accepts";
}

TEST(filter, time_window_holds_the_write_time)
{
    files::file_tree tree;
    const file_on_disk file("x");
    platform::file_facts facts;
    ASSERT_TRUE(platform::read_file_facts(file.path, facts));
    const std::uint64_t written = facts.write_time;
    using end = std::optional<std::uint64_t>;
    struct row {
        end start, stop;
        bool accepted;
    };
    const row rows[] = {
        {{}, {}, true},
        {written, {}, true},
        {written + 1, {}, false},
        {{}, written, true},
        {{}, written - 1, false},
        {written, written, true},
        {written - 2, written - 1, false},
    };
    for (const auto& [start, stop, accepted] : rows) {
        request::cmd_params params;
        params.time_window_start = start;
        params.time_window_stop = stop;
        bool failed = false;
        EXPECT_EQ(front::filter_accepts(params, tree, failed, file.path, {}), accepted)
            << start.value_or(0) << ' ' << stop.value_or(0);
        EXPECT_TRUE(front::filter_accepts(params, tree, failed, file.path + ".absent", {}))
            << "whoever opens it tells that it is not there";
    }
}

} // namespace
