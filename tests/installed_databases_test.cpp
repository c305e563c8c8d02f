// What a run learns from the software hive, and that no hive, however damaged, harms it.

#include "model/installed_databases.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>

#include "support/hive_builder.h"
#include "support/memory_device.h"
#include "support/ntfs_builder.h"
#include "uni/text.h"

namespace {

using hive::hive_value_record;
using test_support::bytes;
using test_support::hive_builder;
using test_support::hive_key;
using test_support::installed_database;
using test_support::put;
using test_support::text_value;

namespace files = std::filesystem;

// A run that was given a hive, which lies in a folder of its own.
class Gathering : public testing::Test {
protected:
    Gathering()
        : folder_(files::temp_directory_path() /
                  ("quilt-hive-" + std::to_string(std::random_device()())))
    {
        files::create_directories(folder_);
        options.hive_given = true;
        options.software_hive_path = (folder_ / "SOFTWARE").string();
    }
    ~Gathering() override { files::remove_all(folder_); }

    void write(const bytes& image)
    {
        std::ofstream(options.software_hive_path, std::ios::binary)
            << std::string(image.begin(), image.end());
    }
    void gather(std::vector<hive_key> databases)
    {
        write(hive_builder().build(test_support::software_hive(std::move(databases))));
        model::gather_installed_databases(targets, options);
    }

    files::path folder_;
    request::sdb_opts options;
    model::run_targets targets;
};

TEST(InstalledRows, AreFoldedByTheWordsInTheirNames)
{
    const auto row = [](std::string key, std::string name, bytes data, std::uint64_t time) {
        return hive_value_record{.path_segments = std::make_shared<const hive::key_path>(
                                     hive::key_path{"", "1", "2", "3", "4", "5", std::move(key)}),
                                 .last_write = time,
                                 .value_name = std::move(name),
                                 .data = std::move(data)};
    };
    // The facts are type, time, path and description.
    const std::tuple<const char*, bytes, const char*> cases[] = {
        {"DatabaseDescription", text_value("", "about").data, "0|0||about"},
        {"PathTypeDescription", text_value("", "first").data, "0|0||first"},
        {"xTYPEx", {1, 2, 0, 0, 9}, "513|0||"},
        {"TimestampType", {7}, "7|0||"},
        {"PathTimeStamp", {1, 0, 0, 0, 2, 0, 0, 0, 5}, "0|8589934593||"},
        {"timestamp", {1, 2}, "0|513||"},
        {"databasepath", text_value("", "c:\\\u00e4.sdb").data, "0|0|c:\\\u00e4.sdb|"},
        {"path", {'a', 0, 0x3d, 0xd8, 'b', 0, 'c'}, "0|0|a\ufffdb|"},
        {"Time", {1}, "0|0||"},
    };
    for (const auto& [name, data, facts] : cases) {
        model::installed_table table;
        model::fold_installed_row(table, row("{A}", name, data, 77));
        // The key has its first row's time; of several values that mean the same the last counts.
        model::fold_installed_row(table, row("{a}", name, {}, 99));
        model::fold_installed_row(table, row("{A}", name, data, 99));
        ASSERT_EQ(table.size(), 1u);
        const model::installed_database& found = table["{a}"];
        EXPECT_EQ(found.key_path + std::to_string(found.key_modtime), "{a}77");
        EXPECT_EQ(std::to_string(found.database_type) + "|" + std::to_string(found.install_time) +
                      "|" + found.database_path + "|" + found.description,
                  facts)
            << name;
    }
    model::installed_table table;
    hive_value_record shallow = row("x", "path", {}, 1);
    shallow.path_segments = std::make_shared<const hive::key_path>(hive::key_path(6));
    model::fold_installed_row(table, shallow);
    EXPECT_TRUE(table.empty());
}

TEST_F(Gathering, AddsTheDatabasesThatTheRunDoesNotHave)
{
    targets.files = {"x/HELPER.sdb", "plain.sdb"};
    gather({installed_database("{4}", "C:\\Custom\\zulu.sdb", "last by name", 4),
            installed_database("{2}", "C:\\Custom\\Alpha.sdb", "first key", 2),
            installed_database("{3}", "D:\\Other\\ALPHA.SDB", "second key", 3),
            installed_database("{1}", "E:\\helper.SDB", "known", 1),
            {.name = "{0}", .values = {text_value("DatabaseDescription", "no path")}},
            {.name = "{5}"},
            {.name = "{6}", .subkeys = {installed_database("below", "C:\\below.sdb", "", 6)}}});
    EXPECT_EQ(targets.files,
              (std::vector<std::string>{"x/HELPER.sdb", "plain.sdb", "C:\\Custom\\Alpha.sdb",
                                        "C:\\Custom\\zulu.sdb"}));
    ASSERT_EQ(targets.installed.size(), 4u);
    const model::installed_database& alpha = targets.installed.at("alpha.sdb");
    EXPECT_EQ(std::tuple(alpha.key_path, alpha.description, alpha.install_time, alpha.database_type,
                         alpha.local_path),
              std::tuple("{2}", "first key", 2u, 0x10000u, "C:\\Custom\\Alpha.sdb"));
    EXPECT_EQ(targets.installed.at("").description, "no path");
    for (const char* const path : {"ALPHA.sdb", "/mnt/Alpha.SDB", "Q:\\any where\\alpha.sdb"}) {
        EXPECT_EQ(model::find_installed(targets.installed, path), &alpha) << path;
    }
    for (const char* const path : {"D:\\y\\", "", "alpha", "D:\\alpha.sdb\\b"}) {
        EXPECT_EQ(model::find_installed(targets.installed, path), nullptr) << path;
    }
}

TEST_F(Gathering, FindsThePathsOnTheVolume)
{
    options.volume_text = folder_.string();
    files::create_directories(folder_ / "Custom");
    std::ofstream(folder_ / "Custom" / "There.sdb") << "x";
    for (const bool is_snapshot : {false, true}) {
        options.volume_given = !is_snapshot;
        options.vss_given = is_snapshot;
        targets = {};
        gather({installed_database("{1}", "C:\\CUSTOM\\\\there.sdb", "", 1),
                installed_database("{2}", "C:\\..\\a\\.\\b\\..\\gone.sdb", "", 1),
                installed_database("{3}", "x", "too short", 1),
                installed_database("{4}", "C:\\q\\", "a folder", 1)});
        std::vector<std::string> found;
        for (const std::string& path : targets.files) {
            EXPECT_EQ(files::exists(path), path.ends_with("here.sdb"));
            found.push_back(
                uni::lowered(files::path(path).lexically_relative(folder_).generic_string()));
        }
        EXPECT_EQ(found, (std::vector<std::string>{"q/", "a/gone.sdb", "custom/there.sdb"}));
        EXPECT_EQ(targets.installed.at("there.sdb").database_path, "C:\\CUSTOM\\\\there.sdb");
    }
}

TEST_F(Gathering, IsSilentWithoutAHive)
{
    const auto installed = [this] {
        targets = {};
        model::gather_installed_databases(targets, options);
        EXPECT_TRUE(targets.files.empty());
        return targets.installed.size();
    };
    const std::string place = options.software_hive_path;
    for (const std::string& path : {place, folder_.string(), std::string()}) {
        options.software_hive_path = path; // no such file, a folder, no path of a hive
        EXPECT_EQ(installed(), 0u) << path;
    }
    options.software_hive_path = place;
    const auto hive_of = [](std::vector<hive_key> databases) {
        return hive_builder().build(test_support::software_hive(std::move(databases)));
    };
    for (const bytes& hive :
         {bytes(), bytes(100'000, 'x'), hive_builder().build({.name = "root"}), hive_of({}),
          hive_of({{.name = "{1}", .values = {{"DatabasePath", 1, {}}}}})}) {
        write(hive);
        EXPECT_EQ(installed(), 0u) << hive.size();
    }
    write(hive_of({installed_database("{1}", "", "", 0, 0)}));
    EXPECT_EQ(installed(), 1u) << "no path, but type and time";
    options.hive_given = false;
    EXPECT_EQ(installed(), 0u) << "a hive that was not asked for";
}

// The hive of a volume, in its record or in clusters.
TEST(LockedHives, AreNoneWhereMemoryRunsOut)
{
    const bytes hive(300, 7);
    request::sdb_opts options;
    options.volume_text = "c:";
    options.software_hive_path = "no such hive";
    for (const bool is_resident : {true, false}) {
        test_support::ntfs_builder volume = test_support::windows_volume(
            {is_resident
                 ? test_support::resident_attribute(0x80, hive)
                 : test_support::non_resident_attribute(0x80, {{0x21, 1, 200, 0, 0}, 300})});
        volume.clusters(200, hive);
        test_support::memory_disk disk;
        disk.bytes = volume.image();
        const auto size_of_hive = [&] {
            disk.reads.clear();
            return model::load_software_hive(options, {}, opener_of(disk)).size();
        };
        EXPECT_EQ(size_of_hive(), hive.size());
        const std::size_t all_reads = disk.reads.size();
        for (disk.reads_that_fit = 0; disk.reads_that_fit < all_reads; ++disk.reads_that_fit) {
            EXPECT_EQ(size_of_hive(), 0u) << disk.reads_that_fit << " of " << all_reads;
        }
    }
}

// The table of the installed databases of a hive, its image in an allocation of its own size.
model::installed_table table_of(const bytes& image)
{
    model::installed_table table;
    hive::hive_bytes hive;
    hive.open(test_support::source_of(image));
    hive::hive_query(model::installed_query(), hive::hive_image(std::move(hive)),
                     [&table](hive_value_record&& row) { model::fold_installed_row(table, row); });
    return table;
}

bytes hive_with_everything(test_support::list_kind list)
{
    std::vector<hive_key> databases;
    for (int i = 0; i < 8; ++i) {
        databases.push_back(
            installed_database("{" + std::to_string(i) + "}", "C:\\a\\b.sdb", "about", 1));
    }
    databases[3].values.push_back({"Large", 3, bytes(20'480, 7)});
    return hive_builder().build(test_support::software_hive(std::move(databases), list));
}

TEST(DamagedHives, GiveNothingThatTheWholeOneDoesNot)
{
    using enum test_support::list_kind;
    for (const test_support::list_kind list : {lf, lh, li, ri_lh, ri_li}) {
        const bytes image = hive_with_everything(list);
        ASSERT_EQ(table_of(image).size(), 8u);
        std::size_t most = 0;
        for (std::size_t size = 0; size <= image.size();
             size += list == lh && size < 8192 ? 1 : 512) {
            const model::installed_table table =
                table_of({image.begin(), image.begin() + static_cast<std::ptrdiff_t>(size)});
            EXPECT_GE(table.size(), most) << size;
            most = table.size();
            for (const auto& [key, database] : table) {
                EXPECT_TRUE(database.database_path.empty() ||
                            database.database_path == "C:\\a\\b.sdb");
                EXPECT_TRUE(database.description.empty() || database.description == "about");
            }
        }
    }
}

// A cell of numbers behind the others, to which the reference at a place then leads.
void put_cell(bytes& image, std::uint32_t place, const std::vector<std::uint32_t>& numbers)
{
    put(image, place, hive_builder::reference(image.size()), 4);
    test_support::append(image, 0 - (4 + 4 * numbers.size()), 4);
    for (const std::uint32_t number : numbers) {
        test_support::append(image, number, 4);
    }
}

TEST(DamagedHives, LoseNoSoundDatabaseByWhatStandsInFrontOfIt)
{
    const std::string place = std::string(test_support::installed_path);
    hive_builder built;
    bytes image = built.build(test_support::software_hive(
        {{.name = "{0}", .values = {{"a", 3, bytes(100, 1)}, {"b", 3, bytes(100, 1)}}},
         {.name = "{1}", .values = {{"a", 3, bytes(100, 1)}}},
         installed_database("{2}", "C:\\2.sdb", "", 1),
         installed_database("{3}", "C:\\3.sdb", "", 1)}));
    // Data of great size that nobody asked for.
    for (const char* const name : {"\\{0}\\a", "\\{0}\\b"}) {
        put(image, built.cell("vk", place + name) + 8, 0xffffff, 4);
    }
    // Values that are none.
    const std::uint32_t key = built.cell("nk", place + "\\{1}");
    put(image, key + 40, 5'000, 4);
    put_cell(image, key + 44, std::vector<std::uint32_t>(5'000, 0x7fffffff));
    // Keys that are none.
    std::vector<std::uint32_t> list(1 + 2 * 5'000, 0x14); // between cells
    list[0] = 5'000 << 16 | 'l' | 'f' << 8;
    for (std::uint32_t i = 0; i < 5'000; ++i) {
        list[1 + 2 * i] += 8 * i;
    }
    std::size_t end = list.size();
    for (const char* const made : {"\\{3}", "\\{2}", "\\{1}", "\\{0}"}) {
        list[end -= 2] = hive_builder::reference(built.cell("nk", place + made));
    }
    put(image, built.cell("nk", place) + 24, 5'000, 4);
    put_cell(image, built.cell("nk", place) + 32, list);
    model::installed_table table = table_of(image);
    EXPECT_EQ(table["{2}"].database_path + table["{3}"].database_path, "C:\\2.sdbC:\\3.sdb");
}

} // namespace
