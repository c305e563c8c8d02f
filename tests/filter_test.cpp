#include "front/filter.h"

#include <filesystem>
#include <fstream>
#include <tuple>

#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;
using uni::time_kind;

TEST(filter, paths)
{
    using list = std::vector<std::string>;
    const std::tuple<std::string_view, list, list> rows[] = {
        {"*.sdb", {"c:\\x\\a.SDB", "/x/\xff.Sdb"}, {"a.sdb.bak", "c:\\a.sdb\\b"}},
        {"**", {"/x/any"}, {""}},
        {"help.sdb",
         {"c:\\x\\Help.sdb", "help.sdb"},
         {"help.sdb.bak", "myhelp.sdb", "/help.sdb/x"}},
        {"app*help.sdb", {"apphelp.sdb"}, {"app-help.sdb"}}, // a star inside is as if not there
        {"a.sdb, b.sdb ,,", {"/x/a.sdb", "/x/b.sdb"}, {"/x/c.sdb", "/x/ b.sdb "}},
        {"a,b|c", {"/x/a,b", "/x/c"}, {"/x/a"}}, // a bar goes before a comma
        {" | ", {"/x/ | "}, {"/x/ "}},           // no items: the text is the item
        // Only ASCII letters lose their case.
        {"\xc3\xa9*|\xe5\xba\x93*", {"/x/\xe5\xba\x93.sdb"}, {"/x/\xc3\x89t\xc3\xa9.sdb"}},
        {":stream", {}, {"/x/any", "/x/"}},
        {"x|\\app*", {"c:\\app\\a"}, {"c:\\app6\\a", "c:\\myapp\\a", "c:\\app6\\app\\a"}},
        {"\\windows\\apppatch", {"/mnt/Windows/AppPatch/Custom/a"}, {"/mnt/windows/a"}},
        {"/apppatch", {}, {"/mnt/apppatch/a"}},
        // A backslash at the end asks for another one, or for the end, behind it.
        {"\\app\\*", {"c:\\app\\a", "c:\\app\\b\\a"}, {"c:\\app", "c:\\app6\\a", "c:\\myapp\\a"}},
    };
    for (const auto& [filter, accepted, refused] : rows) {
        std::vector<request::filter_entry> entries;
        front::parse_filter(entries, filter);
        bool open_failed = true;
        for (const list* const paths : {&accepted, &refused}) {
            for (const std::string& path : *paths) {
                EXPECT_EQ(front::filter_accepts({}, open_failed, path, entries), paths == &accepted)
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
    const file_on_disk file("12345678sdbf");
    const std::string absent = file.path + ".absent";
    bool failed = true;
    for (const auto& [text, is_accepted] : {std::pair("73 64 62 66,0x8", true),
                                            {"31 32", true},
                                            {"|8", false},
                                            {"73 64 62 66|7", false},
                                            {"73 64 62 66|9", false}, // up to behind the file's end
                                            {"73|0xffffffffffffffff", false}}) {
        EXPECT_EQ(
            front::filter_accepts({}, failed, file.path, {front::parse_signature_filter(text)}),
            is_accepted)
            << text;
    }
    EXPECT_FALSE(failed);
    EXPECT_FALSE(front::filter_accepts({}, failed, absent, {front::parse_signature_filter("31")}));
    EXPECT_TRUE(failed);
    std::vector<request::filter_entry> entries;
    front::parse_filter(entries, "*.absent");
    entries.insert(entries.begin(), front::parse_signature_filter("31"));
    EXPECT_TRUE(front::filter_accepts({}, failed, absent, entries));
    EXPECT_TRUE(failed) << "told all the same when a later entry accepts";
}

TEST(filter, time_window_wants_one_time_behind_its_start_and_none_behind_its_stop)
{
    const std::tuple<bool, bool, std::uint64_t, std::uint64_t, bool> rows[] = {
        {true, false, 99, 99, false},  {true, false, 100, 0, true},   {true, false, 0, 100, true},
        {false, true, 200, 200, true}, {false, true, 201, 0, false},  {false, true, 0, 201, false},
        {true, true, 0, 150, true},    {true, true, 150, 201, false}, {true, true, 0, 0, false},
    };
    for (const bool is_filetime : {true, false}) {
        for (const auto& [start, stop, written, created, accepted] : rows) {
            request::cmd_params params;
            // The form that is not asked for would refuse everything.
            params.time_window_start = {start, is_filetime ? 100 : ~0ull, is_filetime ? ~0u : 100};
            params.time_window_stop = {stop, is_filetime ? 200u : 0u, is_filetime ? 0u : 200u};
            front::file_times times = {true,
                                       is_filetime ? time_kind::filetime : time_kind::unix_seconds,
                                       written, created};
            bool failed = false;
            EXPECT_EQ(front::filter_accepts(params, failed, "x", {}, &times), accepted)
                << start << stop << ' ' << written << ' ' << created;
        }
    }
}

TEST(filter, time_window_reads_the_times_of_the_file)
{
    const file_on_disk file("x");
    request::cmd_params params;
    bool failed = false;
    const auto accepted = [&](const std::string& path, front::file_times times) {
        return front::filter_accepts(params, failed, path, {}, &times);
    };
    params.time_window_start = {true, uni::now_filetime() - 600 * uni::ticks_per_second, 0};
    EXPECT_TRUE(accepted(file.path, {}));
    EXPECT_FALSE(accepted(file.path + ".absent", {}));
    EXPECT_FALSE(accepted(file.path, {true, time_kind::filetime, 0, 0})) << "known already";
    EXPECT_TRUE(front::filter_accepts(params, failed, "absent", {})) << "no times were given";
}

} // namespace
