#include "front/filter.h"

#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;
using uni::time_kind;

bool accepts(std::string_view filter, const std::string& path)
{
    std::vector<front::filter_entry> entries;
    front::parse_filter(entries, filter);
    bool open_failed = true;
    const bool accepted = front::filter_accepts(front::cmd_params(), open_failed, path, entries);
    EXPECT_FALSE(open_failed) << "no file is touched";
    return accepted;
}

TEST(filter, text_gives_an_entry_for_each_item)
{
    struct row {
        std::string_view text;
        std::vector<std::u16string> items;
    };
    for (const auto& [text, items] : std::initializer_list<row>{
             {"A.sdb|*.Bak", {u"a.sdb", u"*.bak"}},
             {"a.sdb, b.sdb ,,", {u"a.sdb", u"b.sdb"}},
             {"a,b|c", {u"a,b", u"c"}},
             {"a b", {u"a b"}},
             {" | ", {u" | "}},
             {"a|*|b", {u"*"}},
         }) {
        std::vector<front::filter_entry> entries(3);
        EXPECT_TRUE(front::parse_filter(entries, text));
        std::vector<std::u16string> found;
        for (const front::filter_entry& entry : entries) {
            found.push_back(entry.text);
        }
        EXPECT_EQ(found, items) << text;
    }
}

TEST(filter, names)
{
    struct row {
        std::string_view filter;
        const char* path;
        bool accepted;
    };
    for (const auto& [filter, path, accepted] : std::initializer_list<row>{
             {"*", "x", true},
             {"*", "", false},
             {"*.sdb", "c:\\x\\a.SDB", true},
             {"*.sdb", "/x/.sdb", true},
             {"*.sdb", "a.sdb.bak", false},
             {"*.sdb", "c:\\a.sdb\\b", false},
             {"*sys*", "c:\\x\\sysmain.sdb", true},
             {"*sys*", "c:\\sys\\main.sdb", false},
             {"*SYS*", "/x/mySysMain.sdb", true},
             {"**", "/x/any", true},
             {"sys*", "/x/SYSMAIN.sdb", true},
             {"sys*", "/x/my.sys", false},
             {"apphelp.sdb", "c:\\x\\AppHelp.sdb", true},
             {"apphelp.sdb", "apphelp.sdb", true},
             {"apphelp.sdb", "c:\\x\\apphelp.sdb.bak", false},
             {"apphelp.sdb", "c:\\x\\my_apphelp.sdb", false},
             {"apphelp", "c:\\x\\apphelp.sdb", false},
             {"ap*help.sdb", "apphelp.sdb", true},
             {"a.sdb|b.sdb", "/x/b.sdb", true},
             {"a.sdb,b.sdb", "/x/b.sdb", true},
             {"a.sdb,b.sdb", "/x/c.sdb", false},
             {"a|b,c", "/x/b,c", true},
             {"\xc3\xa9*|\xe5\xba\x93*", "/x/\xe5\xba\x93.sdb", true},
             {"\xc3\xa9*", "/x/\xc3\x89t\xc3\xa9.sdb", false}, // only ASCII letters lose their case
             {"*.sdb", "/x/no-utf8-\xff.SDB", true},
             {"*\xff*", "/x/no-utf8-\xff.sdb", false},
             {"a.sdb:stream", "/x/a.sdb", true},
             {"a.sdb:stream", "/x/b.sdb", false},
             {"*:stream", "/x/any", true},
             {"b|*:*", "/x/any", true},
             {":stream", "/x/any", false},
         }) {
        EXPECT_EQ(accepts(filter, path), accepted) << filter << " for " << path;
    }
}

TEST(filter, folders_end_at_a_boundary)
{
    struct row {
        std::string_view filter;
        const char* path;
        bool accepted;
    };
    for (const auto& [filter, path, accepted] : std::initializer_list<row>{
             {"\\apppatch", "c:\\Windows\\AppPatch\\a.sdb", true},
             {"\\apppatch", "c:\\windows\\apppatch\\custom\\a.sdb", true},
             {"\\apppatch*", "c:\\windows\\apppatch\\a.sdb", true},
             {"\\apppatch", "c:\\windows\\apppatch64\\a.sdb", false},
             {"\\apppatch", "c:\\windows\\myapppatch\\a.sdb", false},
             {"\\apppatch", "c:\\windows\\apppatch", false}, // a file of that name
             {"\\apppatch", "c:\\apppatch64\\apppatch\\a.sdb", false},
             {"\\windows\\apppatch", "/mnt/Windows/AppPatch/a.sdb", true},
             {"\\windows\\apppatch", "/mnt/Windows/AppPatch/Custom/a.sdb", true},
             {"/apppatch", "/mnt/windows/apppatch/a.sdb", false},
             {"\\", "c:\\windows\\a.sdb", false},
             // A backslash at the end asks for another one.
             {"\\apppatch\\*", "c:\\apppatch\\\\a.sdb", true},
             {"\\apppatch\\*", "c:\\apppatch\\\\custom\\a.sdb", true},
             {"\\apppatch\\*", "c:\\apppatch\\a.sdb", false},
             {"\\apppatch\\*", "c:\\apppatch\\custom\\a.sdb", false},
             {"x|\\apppatch", "c:\\apppatch\\a.sdb", true},
         }) {
        EXPECT_EQ(accepts(filter, path), accepted) << filter << " for " << path;
    }
}

TEST(filter, signatures)
{
    const fs::path file = fs::path(testing::TempDir()) / "filter_signatures.sdb";
    std::ofstream(file, std::ios::binary) << "12345678sdbf";
    const std::string there = file.string();
    struct row {
        std::string_view text;
        std::string path;
        bool accepted;
        bool open_failed;
    };
    for (const auto& [text, path, accepted, open_failed] : std::initializer_list<row>{
             {"73 64 62 66|8", there, true, false},
             {"73 64 62 66,0x8", there, true, false},
             {"31 32", there, true, false},
             {"73 64 62 66|7", there, false, false},
             {"73 64 62 66|9", there, false, false}, // the last byte lies behind the end
             {"73|0xffffffffffffffff", there, false, false},
             {"|8", there, false, false},
             {"31", there + ".absent", false, true},
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
    EXPECT_TRUE(front::filter_accepts(front::cmd_params(), failed, there + ".absent", entries));
    EXPECT_TRUE(failed);
    EXPECT_TRUE(front::filter_accepts(front::cmd_params(), failed, there, entries));
    EXPECT_FALSE(failed);
    fs::remove(file);
}

TEST(filter, time_window_wants_one_time_behind_its_start_and_none_behind_its_stop)
{
    struct row {
        bool start;
        bool stop;
        std::uint64_t written;
        std::uint64_t created;
        bool accepted;
    };
    for (const time_kind kind : {time_kind::filetime, time_kind::unix_seconds}) {
        for (const auto& [start, stop, written, created, accepted] : {
                 row{true, false, 99, 99, false},
                 {true, false, 100, 0, true},
                 {true, false, 0, 100, true},
                 {false, true, 200, 200, true},
                 {false, true, 201, 0, false},
                 {false, true, 0, 201, false},
                 {true, true, 0, 150, true},
                 {true, true, 150, 201, false},
                 {true, true, 0, 0, false},
             }) {
            front::cmd_params params;
            const bool is_filetime = kind == time_kind::filetime;
            // The form that is not asked for would refuse everything.
            params.time_window_start = {start, is_filetime ? 100 : ~0ull, is_filetime ? ~0u : 100};
            params.time_window_stop = {stop, is_filetime ? 200u : 0u, is_filetime ? 0u : 200u};
            front::file_times times{true, kind, written, created};
            bool failed = false;
            EXPECT_EQ(front::filter_accepts(params, failed, "x", {}, &times), accepted)
                << start << stop << ' ' << written << ' ' << created;
        }
    }
}

TEST(filter, time_window_reads_the_times_of_the_file)
{
    const fs::path file = fs::path(testing::TempDir()) / "filter_times.sdb";
    std::ofstream(file) << "x";
    front::cmd_params params;
    bool failed = false;
    const auto accepted = [&](const std::string& path, front::file_times times) {
        return front::filter_accepts(params, failed, path, {}, &times);
    };
    EXPECT_TRUE(accepted("absent", {})) << "nothing is read without a window";
    params.time_window_start = {true, uni::now_filetime() - 600 * uni::ticks_per_second, 0};
    params.time_window_stop = {true, ~0ull, ~0u};
    EXPECT_TRUE(accepted(file.string(), {}));
    EXPECT_FALSE(accepted(file.string(), {true, time_kind::filetime, 0, 0})) << "known already";
    EXPECT_FALSE(accepted(file.string(), {true, time_kind::unix_milliseconds, ~0u, ~0u}));
    EXPECT_FALSE(accepted(file.string() + ".absent", {}));
    params.time_window_start.filetime = uni::now_filetime() + 600 * uni::ticks_per_second;
    EXPECT_FALSE(accepted(file.string(), {}));
    EXPECT_TRUE(front::filter_accepts(params, failed, file.string(), {})) << "no times were given";
    fs::remove(file);
}

} // namespace
