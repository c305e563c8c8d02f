// What a run learns from the software hive, and that no hive, however damaged, harms it.

#include "model/installed_databases.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>

#include "model/software_hive.h"
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

namespace fs = std::filesystem;

using findings_list = std::vector<std::pair<model::registry_finding_kind, std::string>>;

// A run that was given a hive, which lies in a folder of its own.
class Gathering : public testing::Test {
protected:
    Gathering()
        : folder_(fs::temp_directory_path() /
                  ("quilt-hive-" + std::to_string(std::random_device()())))
    {
        fs::create_directories(folder_);
        options.hive_given = true;
        options.software_hive_path = (folder_ / "SOFTWARE").string();
    }
    ~Gathering() override { fs::remove_all(folder_); }

    void write(const bytes& image)
    {
        std::ofstream(options.software_hive_path, std::ios::binary)
            .write(reinterpret_cast<const char*>(image.data()),
                   static_cast<std::streamsize>(image.size()));
    }
    // What is found out beside the targets: kinds and paths.
    findings_list gather(std::vector<hive_key> databases)
    {
        write(hive_builder().build(test_support::software_hive(std::move(databases))));
        findings_list found;
        for (auto& one : gathered()) {
            found.emplace_back(one.kind, one.subject);
        }
        return found;
    }

    std::vector<model::registry_finding> gathered()
    {
        return model::gather_installed_databases(
            targets, options, {options.volume_text, options.software_hive_path}, tree);
    }

    fs::path folder_;
    files::file_tree tree;
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
    struct {
        const char* name;
        bytes data;
        const char* facts; // type, time, path and description
    } const cases[] = {
        {"DatabaseDescription", text_value("", "about").data, "0|0||about"},
        {"PathTypeDescription", text_value("", "first").data, "0|0||first"},
        {"xTYPEx", {1, 2, 0, 0, 9}, "513|0||"},
        {"TimestampType", {7}, "7|0||"},
        {"PathTimeStamp", {1, 0, 0, 0, 2, 0, 0, 0, 5}, "0|8589934593||"},
        {"timestamp", {1, 2}, "0|513||"},
        {"databasepath", text_value("", "c:\\\u00e4.sdb").data, "0|0|c:\\\u00e4.sdb|"},
        {"path", {'a', 0, 0x3d, 0xd8, 'b', 0, 'c'}, "0|0|a\ufffdb|"},
        {"Time", {1}, "0|0||"},
        {"", {1}, "0|0||"},
    };
    for (const auto& one : cases) {
        model::installed_table table;
        model::fold_installed_row(table, row("{A}", one.name, one.data, 77));
        // The key has its first row's time; of several values that mean the same the last counts.
        model::fold_installed_row(table, row("{a}", one.name, {}, 99));
        model::fold_installed_row(table, row("{A}", one.name, one.data, 99));
        ASSERT_EQ(table.size(), 1u);
        const model::installed_database& found = table["{a}"];
        EXPECT_EQ(found.key_path + std::to_string(found.key_modtime), "{a}77");
        EXPECT_EQ(std::to_string(found.database_type) + "|" + std::to_string(found.install_time) +
                      "|" + found.database_path + "|" + found.description,
                  one.facts)
            << one.name;
    }
    model::installed_table table;
    hive_value_record shallow = row("x", "path", {}, 1);
    shallow.path_segments = std::make_shared<const hive::key_path>(hive::key_path(6));
    model::fold_installed_row(table, shallow);
    EXPECT_TRUE(table.empty());
}

// How the registry's facts are found for a path: the description of what is joined to it, else
// whether the name is known at all.
std::string known_of(const model::installed_databases& installed, const std::string& path)
{
    const model::registry_facts found = installed.find(path);
    EXPECT_EQ(found.facts != nullptr,
              found.how == model::joining::joined || found.how == model::joining::ambiguous);
    const std::string mark = found.how == model::joining::ambiguous ? "first of several: " : "";
    return found.facts                               ? mark + found.facts->description
           : found.how == model::joining::not_joined ? "-"
                                                     : "";
}

TEST(InstalledDatabases, AreJoinedByPath)
{
    const std::pair<const char*, const char*> stored[] = {
        {"C:\\ProgramData\\Tarnwick\\fonts.sdb", "Tarnwick"},
        {"C:\\Windows\\AppPatch\\Custom\\Custom64\\fonts.sdb", "Custom64"},
        {"c:/a\\.\\b/../ONE.sdb", "one"},
        {"C:\\x\\twice.sdb", "twice on C"},
        {"D:\\x\\Twice.sdb", "twice on D"},
        {"C:\\y\\again.sdb", "first key"},
        {"c:\\Y\\AGAIN.sdb", "second key"},
        {"\\\\server\\share\\far.sdb", "far"},
        {"C:\\a\\..", "no file"},
        {"", "no path"},
    };
    const auto table = [&] {
        model::installed_table made;
        for (const auto& [path, description] : stored) {
            const std::string key = std::to_string(made.size());
            made[key].key_path = key;
            made[key].database_path = path;
            made[key].description = description;
        }
        return made;
    };
    struct {
        const char* volume; // that was named
        bool joins_by_name;
        const char* path;
        const char* known;
    } const cases[] = {
        // Below a volume the whole path counts.
        {"/mnt", false, "/mnt/ProgramData/Tarnwick/fonts.sdb", "Tarnwick"},
        {"/mnt", false, "/mnt//programdata\\TARNWICK/./Fonts.SDB", "Tarnwick"},
        {"/mnt/", false, "/mnt/Windows/AppPatch/Custom/Custom64/fonts.sdb", "Custom64"},
        {"/mnt", false, "/mnt/Windows/AppPatch/fonts.sdb", "-"},
        {"/mnt", false, "/mnt2/ProgramData/Tarnwick/fonts.sdb", "-"},
        {"/mnt", false, "/ProgramData/Tarnwick/fonts.sdb", "-"},
        {"./mnt", false, "mnt/a/one.sdb", "one"},
        {"mnt", false, "/mnt/a/one.sdb", "-"},
        {"/", false, "/a/one.sdb", "one"},
        {"/", false, "/.", ""},
        {"c:", false, "C:\\A\\One.sdb", "one"},
        {"c:", false, "d:\\a\\one.sdb", "-"},
        {"\\\\?\\GLOBALROOT\\Device\\Copy3", false, "\\\\?\\GLOBALROOT\\Device\\Copy3\\a\\one.sdb",
         "one"},
        {"c:", false, "\\\\?\\c:\\a\\one.sdb", "one"},
        {"/mnt", false, "/mnt/x/twice.sdb", "first of several: twice on C"},
        {"d:", false, "d:\\x\\twice.sdb", "twice on D"},
        {"/mnt", false, "/mnt/y/again.sdb", "first of several: first key"},
        {"/mnt", false, "/mnt/share/far.sdb", "-"},
        {"/mnt", false, "/mnt/other.sdb", ""},
        {"/mnt", false, "/mnt/a/..", ""},
        {"/mnt", false, "/mnt/", ""},
        // Without one a name does, if it is that of one alone and no path agrees.
        {"", true, "/ProgramData/Tarnwick/fonts.sdb", "Tarnwick"},
        {"", true, "E:\\ProgramData\\Tarnwick\\fonts.sdb", "Tarnwick"},
        {"", true, "ProgramData/Tarnwick/fonts.sdb", "-"},
        {"", true, "fonts.sdb", "-"},
        {"", true, "/elsewhere/ONE.sdb", "one"},
        {"", true, "one.sdb", "one"},
        {"", true, "far.sdb", "far"},
        {"", true, "again.sdb", "-"},
        {"", false, "one.sdb", "-"},
        {"", false, "D:\\a\\one.sdb", "one"},
        {"", true, "", ""},
    };
    for (const auto& one : cases) {
        const model::installed_databases installed(table(), one.volume, one.joins_by_name);
        EXPECT_EQ(known_of(installed, one.path), one.known) << one.volume << " " << one.path;
    }
}

TEST_F(Gathering, AddsTheDatabasesThatTheRunDoesNotHave)
{
    using enum model::registry_finding_kind;
    options.volume_text = folder_.string();
    options.volume_given = true;
    const auto on_volume = [&](const char* path) { return (folder_ / path).string(); };
    for (const char* const there : {"Custom/There.sdb", "known.sdb", "deep/a.sdb"}) {
        fs::create_directories((folder_ / there).parent_path());
        std::ofstream(folder_ / there) << "x";
    }
    const std::vector<hive_key> databases = {
        installed_database("{5}", "C:\\CUSTOM\\\\there.sdb", "", 1),
        installed_database("{6}", "C:\\a\\.\\b\\..\\gone.sdb", "", 1),
        installed_database("{3}", "D:\\Deep\\B.sdb", "its folder is there", 3),
        installed_database("{4}", "C:\\deep\\a.sdb", "", 1),
        installed_database("{2}", "C:\\other\\A.sdb", "another of that name, first by key", 1),
        installed_database("{1}", "E:\\KNOWN.SDB", "known", 1),
        installed_database("{7}", "C:\\..\\up.sdb", "", 1),
        installed_database("{8}", "\\\\server\\share\\far.sdb", "", 1),
        installed_database("{9}", "x", "too short", 1),
        installed_database("{a}", "C:\\q\\..", "a folder", 1),
        {.name = "{0}", .values = {text_value("DatabaseDescription", "no path")}},
        {.name = "{b}"},
        {.name = "{c}", .subkeys = {installed_database("below", "C:\\below.sdb", "", 6)}}};
    const std::vector<std::string> listed = {
        on_volume("known.sdb"),  on_volume("other/A.sdb"), on_volume("deep/a.sdb"),
        on_volume("deep/B.sdb"), on_volume("a/gone.sdb"),  on_volume("Custom/There.sdb")};
    const findings_list outside = {{names_no_file, "C:\\q\\.."},
                                   {leaves_volume, "\\\\server\\share\\far.sdb"},
                                   {leaves_volume, "C:\\..\\up.sdb"},
                                   {leaves_volume, "x"}};
    targets.files = {on_volume("known.sdb")};
    EXPECT_EQ(gather(databases), outside);
    ASSERT_EQ(targets.files.size(), listed.size());
    for (std::size_t i = 0; i < listed.size(); ++i) {
        // Where letter case counts, paths have the spelling on disk.
        constexpr bool counts_case = fs::path::preferred_separator == '/';
        const std::string expected = fs::path(listed[i]).make_preferred().string();
        EXPECT_TRUE(counts_case ? targets.files[i] == expected
                                : uni::equal_ignoring_case(targets.files[i], expected))
            << targets.files[i];
    }
    EXPECT_EQ(targets.installed.at(0).by_key().size(), 11u);
    EXPECT_EQ(known_of(targets.installed.at(0), on_volume("known.sdb")), "known");
    EXPECT_EQ(known_of(targets.installed.at(0), on_volume("deep/b.sdb")), "its folder is there");

    // Without a volume a hive of another machine names files that are not here.
    options.volume_given = false;
    targets = {};
    const findings_list told = gather({installed_database("{1}", "C:\\a.sdb", "", 1),
                                       installed_database("{2}", "C:\\..\\b.sdb", "", 1),
                                       installed_database("{3}", "C:\\.", "", 1)});
    EXPECT_EQ(told, (findings_list{{names_no_file, "C:\\."},
                                   {not_opened, "C:\\a.sdb"},
                                   {leaves_volume, "C:\\..\\b.sdb"}}));
    EXPECT_TRUE(targets.files.empty());
    options.list_sdb = true;
    EXPECT_EQ(gather({installed_database("{1}", "C:\\a.sdb", "", 1),
                      installed_database("{2}", "c:/A.SDB", "the same", 1),
                      installed_database("{3}", "C:\\..\\b.sdb", "", 1)}),
              findings_list());
    EXPECT_EQ(targets.files, (std::vector<std::string>{"C:\\a.sdb", "C:\\..\\b.sdb"}));
    options.pipe = true;
    options.list_sdb = false;
    targets = {};
    EXPECT_EQ(gather({installed_database("{1}", "C:\\a.sdb", "one", 1)}), findings_list());
    EXPECT_TRUE(targets.files.empty()); // a list has its own
    EXPECT_EQ(known_of(targets.installed.at(0), "/b/a.sdb"), "one");
}

TEST_F(Gathering, TellsWhyNothingIsKnown)
{
    using enum model::registry_finding_kind;
    const auto hive_of = [](std::vector<hive_key> databases) {
        return hive_builder().build(test_support::software_hive(std::move(databases)));
    };
    const std::string path = options.software_hive_path;
    options.hive_named = true;
    const auto reasons = [&] {
        findings_list found;
        for (auto& one : gathered()) {
            EXPECT_TRUE(one.subject == path || one.subject == folder_.string());
            found.emplace_back(one.kind, one.reason);
        }
        return found;
    };
    EXPECT_EQ(reasons(), (findings_list{{hive_unread, "no such file"}}));
    bytes cut = hive_of({installed_database("{1}", "", "", 0, 0)});
    cut.resize(4496);
    const bytes bare = hive_builder().build({.name = "root"});
    struct {
        bytes hive;
        findings_list findings;
        std::size_t installed;
    } const cases[] = {
        {{}, {{hive_unread, "is no hive"}}, 0},
        {bytes(100'000, 'x'), {{hive_unread, "is no hive"}}, 0},
        {bare, {{no_key, ""}}, 0},
        {hive_of({}), {}, 0},
        {hive_of({{.name = "{1}", .values = {{"DatabasePath", 1, {}}}}}), {}, 0},
        {hive_of({installed_database("{1}", "", "", 0, 0)}), {}, 1},
        {cut, {{damaged, ""}}, 0},
    };
    for (const auto& one : cases) {
        write(one.hive);
        targets = {};
        EXPECT_EQ(reasons(), one.findings) << one.hive.size();
        EXPECT_EQ(targets.installed.empty() ? 0 : targets.installed[0].by_key().size(),
                  one.installed)
            << one.hive.size();
    }
    options.software_hive_path = folder_.string();
    EXPECT_EQ(reasons(), (findings_list{{hive_unread, "is a folder"}}));
    // One that nobody named is missing only where there is a volume to hold it.
    options.hive_named = false;
    options.software_hive_path = path;
    fs::remove(path);
    options.volume_text = "no such volume";
    EXPECT_EQ(reasons(), findings_list());
    options.volume_text = folder_.string();
    EXPECT_EQ(reasons(), (findings_list{{hive_missing, "no such file"}}));
    options.hive_given = false;
    EXPECT_EQ(reasons(), findings_list());
}

// The hive of a volume, in its record or in clusters.
TEST(LockedHives, AreNoneWhereMemoryRunsOut)
{
    const bytes hive(300, 7);
    request::sdb_opts options;
    options.volume_text = "c:";
    options.software_hive_path = "c:\\Windows\\System32\\Config\\Software";
    files::file_tree tree;
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
            const model::software_hive found = model::load_software_hive(
                options, {options.volume_text, options.software_hive_path}, tree, {},
                opener_of(disk));
            EXPECT_EQ(found.state, found.bytes.size() == 0 ? model::hive_state::no_memory
                                                           : model::hive_state::opened);
            return found.bytes.size();
        };
        EXPECT_EQ(size_of_hive(), hive.size());
        const std::size_t all_reads = disk.reads.size();
        for (disk.reads_that_fit = 0; disk.reads_that_fit < all_reads; ++disk.reads_that_fit) {
            EXPECT_EQ(size_of_hive(), 0u) << disk.reads_that_fit << " of " << all_reads;
        }
    }
}

// The table of the installed databases of a hive, its image in an allocation of its own size.
model::installed_table table_of(const bytes& image, bool* is_damaged = nullptr)
{
    model::installed_table table;
    hive::hive_bytes hive;
    hive.open(test_support::source_of(image));
    const hive::hive_image opened(std::move(hive));
    const hive::query_outcome outcome =
        hive::hive_query(model::installed_query(), opened, [&table](hive_value_record&& row) {
            model::fold_installed_row(table, row);
        });
    if (is_damaged != nullptr) {
        *is_damaged = !opened.is_open() || outcome.is_damaged;
    }
    return table;
}

std::string text_of(const model::installed_table& table)
{
    std::string text;
    for (const auto& [key, database] : table) {
        text += key + "|" + database.database_path + "|" + database.description + "|" +
                std::to_string(database.install_time) + "|" +
                std::to_string(database.database_type) + "\n";
    }
    return text;
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
        bool is_damaged = true;
        const model::installed_table whole = table_of(image, &is_damaged);
        ASSERT_EQ(whole.size(), 8u);
        EXPECT_FALSE(is_damaged);
        std::size_t most = 0;
        for (std::size_t size = 0; size <= image.size();
             size += list == lh && size < 8192 ? 1 : 512) {
            const model::installed_table table = table_of(
                {image.begin(), image.begin() + static_cast<std::ptrdiff_t>(size)}, &is_damaged);
            EXPECT_TRUE(is_damaged || text_of(table) == text_of(whole)) << size;
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
    static const std::string place(test_support::installed_path);
    struct {
        const char* what;
        void (*harm)(const hive_builder& built, bytes& image);
    } const cases[] = {
        {"data of great size that nobody asked for",
         [](const hive_builder& built, bytes& image) {
             for (const char* const name : {"\\{0}\\a", "\\{0}\\b", "\\{0}\\c"}) {
                 put(image, built.cell("vk", place + name) + 8, 0xffffff, 4);
             }
         }},
        {"values that are none",
         [](const hive_builder& built, bytes& image) {
             const std::uint32_t key = built.cell("nk", place + "\\{0}");
             put(image, key + 40, 5'000, 4);
             put_cell(image, key + 44, std::vector<std::uint32_t>(5'000, 0x7fffffff));
         }},
        {"keys that are none",
         [](const hive_builder& built, bytes& image) {
             std::vector<std::uint32_t> list(1 + 2 * 5'000, 0x14); // between cells
             list[0] = 5'000 << 16 | 'l' | 'f' << 8;
             for (std::uint32_t i = 0; i < 5'000; ++i) {
                 list[1 + 2 * i] += 8 * i;
             }
             std::size_t end = list.size();
             for (const char* const sound : {"\\{0}", "\\{1}", "\\{2}"}) {
                 list[end -= 2] = hive_builder::reference(built.cell("nk", place + sound));
             }
             const std::uint32_t key = built.cell("nk", place);
             put(image, key + 24, 5'000, 4);
             put_cell(image, key + 32, list);
         }},
    };
    for (const auto& one : cases) {
        hive_key first{.name = "{0}"};
        for (const char* const name : {"a", "b", "c"}) {
            first.values.push_back({name, 3, bytes(100, 1)});
        }
        hive_builder builder;
        bytes image = builder.build(
            test_support::software_hive({first, installed_database("{1}", "C:\\1.sdb", "", 1),
                                         installed_database("{2}", "C:\\2.sdb", "", 1)}));
        one.harm(builder, image);
        bool is_damaged = false;
        model::installed_table table = table_of(image, &is_damaged);
        EXPECT_TRUE(is_damaged) << one.what;
        EXPECT_EQ(table["{1}"].database_path, "C:\\1.sdb") << one.what;
        EXPECT_EQ(table["{2}"].database_path, "C:\\2.sdb") << one.what;
    }
}

} // namespace
