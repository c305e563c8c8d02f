#include "front/filter.h"

#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;
using uni::time_kind;

TEST(filter, text_gives_an_entry_for_each_item)
{
    const std::pair<std::string_view, std::vector<std::u16string>> rows[] = {
        {"A.sdb|*.Bak", {u"a.sdb", u"*.bak"}},
        {"a.sdb, b.sdb ,,", {u"a.sdb", u"b.sdb"}},
        {"a,b|c", {u"a,b", u"c"}},
        {"a|*|b", {u"*"}},
        {"a b", {u"a b"}},
        {" | ", {u" | "}},
    };
    for (const auto& [text, items] : rows) {
        std::vector<front::filter_entry> entries(3);
        EXPECT_TRUE(front::parse_filter(entries, text));
        std::vector<std::u16string> found;
        for (const front::filter_entry& entry : entries) {
            found.push_back(entry.text);
        }
        EXPECT_EQ(found, items) << text;
    }
}

struct path_row {
    std::string_view filter;
    std::string path;
    bool accepted;
};

const path_row path_rows[] = {
    {"*", "x", true},
    {"*", "", false},
    {"*.sdb", "c:\\x\\a.SDB", true},
    {"*.sdb", "a.sdb.bak", false},
    {"*.sdb", "c:\\a.sdb\\b", false},
    {"*sys*", "c:\\x\\sysmain.sdb", true},
    {"*SYS*", "/x/mySysMain.sdb", true},
    {"*sys*", "c:\\sys\\main.sdb", false},
    {"**", "/x/any", true},
    {"sys*", "/x/SYSMAIN.sdb", true},
    {"sys*", "/x/my.sys", false},
    {"apphelp.sdb", "c:\\x\\AppHelp.sdb", true},
    {"apphelp.sdb", "apphelp.sdb", true},
    {"apphelp.sdb", "c:\\x\\apphelp.sdb.bak", false},
    {"apphelp.sdb", "c:\\x\\my_apphelp.sdb", false},
    {"app*help.sdb", "apphelp.sdb", true},
    {"a.sdb|b.sdb", "/x/b.sdb", true},
    {"a.sdb,b.sdb", "/x/b.sdb", true},
    {"a.sdb,b.sdb", "/x/c.sdb", false},
    {"a|b,c", "/x/b,c", true},
    {"\xc3\xa9*|\xe5\xba\x93*", "/x/\xe5\xba\x93.sdb", true},
    {"\xc3\xa9*", "/x/\xc3\x89t\xc3\xa9.sdb", false}, // only ASCII letters lose their case
    {"*.sdb", "/x/no-utf8-\xff.SDB", true},
    {"a.sdb:stream", "/x/a.sdb", true},
    {"a.sdb:stream", "/x/b.sdb", false},
    {"b|*:*", "/x/any", true},
    {":stream", "/x/any", false},
    {"\\apppatch", "c:\\Windows\\AppPatch\\a.sdb", true},
    {"\\apppatch*", "c:\\windows\\apppatch\\custom\\a.sdb", true},
    {"x|\\apppatch", "c:\\windows\\apppatch64\\a.sdb", false},
    {"\\apppatch", "c:\\windows\\myapppatch\\a.sdb", false},
    {"\\apppatch", "c:\\windows\\apppatch", false}, // a file of that name
    {"\\apppatch", "c:\\apppatch64\\apppatch\\a.sdb", false},
    {"\\windows\\apppatch", "/mnt/Windows/AppPatch/Custom/a.sdb", true},
    {"/apppatch", "/mnt/windows/apppatch/a.sdb", false},
    // A backslash at the end asks for another one, or for the end, behind it.
    {"\\apppatch\\*", "c:\\apppatch\\\\a.sdb", true},
    {"\\apppatch\\*", "c:\\apppatch\\\\custom\\a.sdb", true},
    {"\\apppatch\\*", "c:\\apppatch\\a.sdb", false},
    {"\\apppatch\\*", "c:\\apppatch\\custom\\a.sdb", false},
};

TEST(filter, paths)
{
    for (const auto& [filter, path, accepted] : path_rows) {
        std::vector<front::filter_entry> entries;
        front::parse_filter(entries, filter);
        bool open_failed = true;
        EXPECT_EQ(front::filter_accepts(front::cmd_params(), open_failed, path, entries), accepted)
            << filter << " for " << path;
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
    struct row {
        std::string_view text;
        std::string path;
        bool accepted;
        bool open_failed;
    };
    for (const auto& [text, path, accepted, open_failed] : std::initializer_list<row>{
             {"73 64 62 66|8", file.path, true, false},
             {"73 64 62 66,0x8", file.path, true, false},
             {"31 32", file.path, true, false},
             {"73 64 62 66|7", file.path, false, false},
             {"73 64 62 66|9", file.path, false, false}, // the last byte lies behind the end
             {"73|0xffffffffffffffff", file.path, false, false},
             {"|8", file.path, false, false},
             {"31", file.path + ".absent", false, true},
         }) {
        bool failed = !open_failed;
        EXPECT_EQ(front::filter_accepts(front::cmd_params(), failed, path,
                                        {front::parse_signature_filter(text)}),
                  accepted)
            << text;
        EXPECT_EQ(failed, open_failed) << text;
    }
    std::vector<front::filter_entry> entries;
    front::parse_filter(entries, "*.absent");
    entries.insert(entries.begin(), front::parse_signature_filter("31"));
    bool failed = false;
    EXPECT_TRUE(front::filter_accepts(front::cmd_params(), failed, file.path + ".absent", entries));
    EXPECT_TRUE(failed) << "told all the same when a later entry accepts";
}

TEST(filter, time_window_wants_one_time_behind_its_start_and_none_behind_its_stop)
{
    struct row {
        bool start, stop;
        std::uint64_t written, created;
        bool accepted;
    };
    const row rows[] = {
        {true, false, 99, 99, false},  {true, false, 100, 0, true},   {true, false, 0, 100, true},
        {false, true, 200, 200, true}, {false, true, 201, 0, false},  {false, true, 0, 201, false},
        {true, true, 0, 150, true},    {true, true, 150, 201, false}, {true, true, 0, 0, false},
    };
    for (const bool is_filetime : {true, false}) {
        for (const auto& [start, stop, written, created, accepted] : rows) {
            front::cmd_params params;
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
    front::cmd_params params;
    bool failed = false;
    const auto accepted = [&](const std::string& path, front::file_times times) {
        return front::filter_accepts(params, failed, path, {}, &times);
    };
    EXPECT_TRUE(accepted("absent", {})) << "nothing is read without a window";
    params.time_window_start = {true, uni::now_filetime() - 600 * uni::ticks_per_second, 0};
    params.time_window_stop = {true, ~0ull, ~0u};
    EXPECT_TRUE(accepted(file.path, {}));
    EXPECT_FALSE(accepted(file.path + ".absent", {}));
    EXPECT_FALSE(accepted(file.path, {true, time_kind::filetime, 0, 0})) << "known already";
    EXPECT_FALSE(accepted(file.path, {true, time_kind::unix_milliseconds, ~0u, ~0u}));
    params.time_window_start.filetime = uni::now_filetime() + 600 * uni::ticks_per_second;
    EXPECT_FALSE(accepted(file.path, {}));
    EXPECT_TRUE(front::filter_accepts(params, failed, file.path, {})) << "no times were given";
}

} // namespace
