#include "front/discovery.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "front/sdb_options.h"
#include "front/stdin_stream_ex.h"
#include "io/byte_source.h"
#include "io/notice.h"
#include "platform/files.h"

namespace {

namespace fs = std::filesystem;
using paths = std::vector<std::string>;

fs::path path_of(const std::string& utf8)
{
    return {std::u8string(utf8.begin(), utf8.end())};
}

// A folder of its own for each test. Paths are written with "/" below that folder.
class made_folder : public testing::Test {
protected:
    made_folder()
    {
        const auto* const test = testing::UnitTest::GetInstance()->current_test_info();
        const std::u8string folder =
            (fs::path(testing::TempDir()) / (std::string("discovery_") + test->name())).u8string();
        root_.assign(folder.begin(), folder.end());
        fs::remove_all(root_);
        fs::create_directories(root_);
    }
    ~made_folder() override { fs::remove_all(root_); }

    std::string root_;
};

// What looks at files goes before they do, as it may hold some open.
class discovery : public made_folder {
protected:
    void make(std::initializer_list<const char*> files) const
    {
        for (const char* const file : files) {
            const fs::path path = path_of(root_) / path_of(file);
            fs::create_directories(path.parent_path());
            std::ofstream(path) << "x";
        }
    }
    // Results without the root, with "/" between their components. A doubled separator stays one.
    paths below_root(const paths& found) const
    {
        paths out;
        for (const std::string& path : found) {
            EXPECT_TRUE(path.starts_with(root_)) << path;
            out.push_back(path.substr(std::min(path.size(), root_.size() + 1)));
            std::replace(out.back().begin(), out.back().end(), '\\', '/');
        }
        return out;
    }
    paths sdb_files(std::uint32_t depth)
    {
        paths found;
        front::walk_sdb_files(tree_, root_, found, depth, notices_);
        return below_root(found);
    }
    paths walked(const std::string& root, std::uint32_t depth)
    {
        const request::cmd_params options;
        front::stdin_stream_ex stream(options, tree_, notices_, nullptr);
        EXPECT_TRUE(stream.start_walk(root, depth, {}));
        return entries_of(stream);
    }
    static paths entries_of(front::stdin_stream_ex& stream)
    {
        paths found;
        for (std::string entry; stream.stdin_list_next(entry);) {
            found.push_back(entry);
        }
        return found;
    }

    io::error_notices notices_;
    files::file_tree tree_;
};

TEST_F(discovery, sdb_walk_takes_a_folder_before_its_subfolders_as_deep_as_asked)
{
    make({"b/2.sdb", "b/1.SDB", "b/z/5.sdb", "A/3.sdb", "C.sdb/4.sdb", "x.sdb", "M.Sdb", "_.sdb",
          "a.sdb", ".sdb", "a.sdb.bak", "a.sdbx", "sdb", "a.sd"});
    paths expected = {".sdb",  "_.sdb",   "a.sdb",   "C.sdb",   "M.Sdb",
                      "x.sdb", "A/3.sdb", "b/1.SDB", "b/2.sdb", "C.sdb/4.sdb"};
    EXPECT_EQ(sdb_files(2), expected);
    expected.insert(expected.end() - 1, "b/z/5.sdb");
    EXPECT_EQ(sdb_files(3), expected);
    EXPECT_EQ(sdb_files(1), paths(expected.begin(), expected.begin() + 6));
    EXPECT_EQ(sdb_files(0), paths());
}

TEST_F(discovery, what_cannot_be_listed_gives_nothing)
{
    make({"file", "a.sdb"});
    for (const std::string& bad : {std::string(), root_ + "/absent", root_ + "/file"}) {
        std::vector<platform::directory_entry> entries(1);
        EXPECT_FALSE(platform::list_directory(bad, entries).is_whole) << bad;
        EXPECT_TRUE(entries.empty());
        paths found;
        front::walk_sdb_files(tree_, bad, found, 8, notices_);
        EXPECT_EQ(found, paths());
    }
    const fs::path old = fs::current_path();
    fs::current_path(root_);
    paths found;
    front::walk_sdb_files(tree_, ".", found, 8, notices_);
    front::walk_sdb_files(tree_, "..", found, 8, notices_);
    EXPECT_EQ(found, paths()) << "these two are not walked";
    EXPECT_EQ(walked(".", 0),
              (paths{platform::join_path(".", "file"), platform::join_path(".", "a.sdb")}));
    fs::current_path(old);
}

TEST_F(discovery, paths_have_one_separator_and_open_as_they_are)
{
    const paths expected = {"sub/\xd0\xb1\xd0\xb0\xd0\xb7\xd0\xb0.sdb",
                            "sub/\xf0\x9f\xa7\xb5 .SDB"};
    make({expected[0].c_str(), expected[1].c_str()});
    for (const char* const ending : {"", "/", "//"}) {
        paths found;
        front::walk_sdb_files(tree_, root_ + ending, found, 8, notices_);
        EXPECT_EQ(below_root(found), expected);
        paths listed = walked(root_ + ending, 1);
        EXPECT_EQ(below_root(listed), paths(expected.rbegin(), expected.rend()));
        for (const std::string& path : listed) {
            EXPECT_TRUE(io::open_source(path)) << path;
        }
    }
}

TEST_F(discovery, walks_go_into_paths_of_any_length)
{
    paths folders;
    for (std::string folder = root_; folders.size() < 5;) {
        folder = platform::join_path(folder, std::string(100, 'n'));
        fs::create_directory(path_of(platform::walkable_path(folder)));
        folders.push_back(folder);
    }
    const std::string file = platform::join_path(folders.back(), "a.sdb");
    platform::close_file(
        platform::open_for_writing(platform::walkable_path(file), platform::existing_file::renew)
            .descriptor);
    paths found;
    front::walk_sdb_files(tree_, root_, found, 6, notices_);
    EXPECT_EQ(found, paths{platform::join_path(platform::walkable_path(folders.back()), "a.sdb")});
    EXPECT_TRUE(io::open_source(found.at(0)));
    EXPECT_EQ(walked(root_, 5), paths{file}) << "lists show plain paths";
    EXPECT_EQ(walked(folders.back(), 0), paths{file});
    fs::remove(path_of(platform::walkable_path(file)));
    for (; !folders.empty(); folders.pop_back()) {
        fs::remove(path_of(platform::walkable_path(folders.back())));
    }
}

TEST_F(discovery, links_to_folders_are_not_followed)
{
    make({"real/a.sdb"});
    std::error_code failure;
    for (const char* const link : {"real/up", "real/again.sdb", "other"}) {
        fs::create_directory_symlink("..", path_of(root_) / link, failure);
    }
    if (failure) {
        GTEST_SKIP() << "no links here";
    }
    fs::create_symlink("nowhere", path_of(root_) / "broken.sdb");
    fs::create_symlink("loop.sdb", path_of(root_) / "loop.sdb");
    fs::create_symlink("real/a.sdb", path_of(root_) / "file.sdb");
    EXPECT_EQ(sdb_files(8),
              (paths{"broken.sdb", "file.sdb", "loop.sdb", "real/a.sdb", "real/again.sdb"}));
    EXPECT_EQ(below_root(walked(root_, ~0u)),
              (paths{"loop.sdb", "file.sdb", "broken.sdb", "real/a.sdb"}));
    EXPECT_EQ(walked(root_ + "/real/up/real", 0).size(), 1u) << "but a root may be reached by one";
}

TEST_F(discovery, the_system_volume_is_looked_at_where_no_target_is_named)
{
    request::sdb_opts options;
    front::argument_list args = {"quilt", "-stats"};
    front::diag_log log;
    io::null_out_stream nowhere;
    EXPECT_TRUE(front::parse_sdb_options(options, args, tree_, log, notices_, nowhere));
    EXPECT_TRUE(options.searches_default_places);
    EXPECT_EQ(options.volume_text, "c:");
}

TEST_F(discovery, list_walk_shows_plain_paths_but_keeps_those_of_devices)
{
    make({"a.sdb"});
    const std::string prefix = "\\\\?\\";
    EXPECT_EQ(walked(prefix + root_, 0), walked(root_, 0));
    const std::string device = prefix + "GlobalRoot\\Device\\HarddiskVolumeShadowCopy";
    const fs::path old = fs::current_path();
    fs::current_path(root_);
    std::error_code failure;
    for (const std::string& folder : {device, device + "3"}) {
        fs::create_directory(path_of(folder), failure);
        std::ofstream(path_of(folder) / "a.sdb") << "x";
    }
    if (!failure) { // where a folder may have such a name
        EXPECT_EQ(walked(device + "3", 0), paths{device + "3/a.sdb"});
        EXPECT_EQ(walked(device, 0), paths()) << "too short for a device";
    }
    fs::current_path(old);
}

TEST_F(discovery, list_walk_starts_anew_and_gives_way_to_lines)
{
    make({"old/1", "old/2", "old/sub/3", "new/a"});
    std::FILE* const input = std::tmpfile();
    ASSERT_NE(input, nullptr);
    std::fputs("one\r\n\nlast", input);
    std::rewind(input);
    const request::cmd_params options;
    front::stdin_stream_ex stream(options, tree_, notices_, input);
    std::string entry;
    EXPECT_TRUE(stream.start_walk(platform::join_path(root_, "old"), 1, {}));
    EXPECT_TRUE(stream.stdin_list_next(entry));
    EXPECT_FALSE(stream.start_walk("", 1, {}));
    EXPECT_TRUE(stream.start_walk(platform::join_path(root_, "new"), 1, {}));
    EXPECT_EQ(below_root(entries_of(stream)), paths{"new/a"});
    EXPECT_FALSE(stream.stdin_list_next(entry));
    EXPECT_EQ(entry, "");
    stream.reset();
    EXPECT_EQ(entries_of(stream), (paths{"one", "", "last"}));
    std::fclose(input);
}

} // namespace
