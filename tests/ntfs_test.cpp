// Volumes read without the help of a file system, from devices that stand in for real ones.

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "model/software_hive.h"
#include "ntfs/attributes.h"
#include "ntfs/compression.h"
#include "ntfs/directory.h"
#include "ntfs/disk_layout.h"
#include "ntfs/locked_file.h"
#include "support/memory_device.h"
#include "support/ntfs_builder.h"

namespace {

using namespace test_support;
using ntfs::disk_mode;
using ntfs::volume_source;
using strings = std::vector<std::string>;

bytes numbered(std::size_t size)
{
    bytes out(size);
    for (std::size_t i = 0; i < size; ++i) {
        out[i] = static_cast<std::uint8_t>(i * 7 + i / 256);
    }
    return out;
}

// A file's content: in the record, in clusters, or told by an attribute list.
bytes data(const bytes& value, std::u16string_view name = {}, std::uint16_t id = 0)
{
    return resident_attribute(0x80, value, name, id);
}
bytes stored(const non_resident& value, std::u16string_view name = {}, std::uint16_t id = 0)
{
    return non_resident_attribute(0x80, value, name, id);
}
bytes list(const std::vector<list_item>& items)
{
    return resident_attribute(0x20, attribute_list(items));
}

bytes list_at(const bytes& runs, std::uint64_t size)
{
    return non_resident_attribute(0x20, {runs, size});
}

TEST(raw_disk_io, takes_names_and_fallbacks_by_mode)
{
    constexpr std::int64_t size = 8192;
    struct {
        const char* name;
        disk_mode mode;
        bool extended, older, partition, extended_partition;
        const char* opened;
        bool random;
        std::int64_t total; // -1: not open
    } const cases[] = {
        {"c:", disk_mode::volume, true, true, false, false, "\\\\.\\c:", false, size},
        {"C", disk_mode::volume, true, true, true, true, "\\\\.\\C:", false, 4096},
        {"c:\\", disk_mode::volume, true, false, false, true, "\\\\.\\c:", false, 4096},
        {"c:", disk_mode::volume, false, true, false, false, "\\\\.\\c:", false, 2 * 3 * 4 * 512},
        {"c:", disk_mode::volume, false, false, true, true, "\\\\.\\c:", false, -1},
        {"1:", disk_mode::volume, true, true, false, false, "1:", false, size},
        {"\\\\.\\c:", disk_mode::volume, false, false, true, false, "\\\\.\\c:", true, 4096},
        {"\\\\.\\c:", disk_mode::volume, false, false, false, false, "\\\\.\\c:", true, 0},
        {"c", disk_mode::device, true, true, false, false, "c", false, size},
        {"\\\\?\\dev3", disk_mode::device, false, false, true, false, "\\\\?\\dev3", false, -1},
    };
    for (const auto& each : cases) {
        memory_disk disk{.bytes = bytes(size),
                         .knows_extended_geometry = each.extended,
                         .knows_geometry = each.older,
                         .knows_partition = each.partition,
                         .knows_extended_partition = each.extended_partition,
                         .geometry = {2, 12, 3, 4, 512},
                         .partition = {.length = 4096}};
        const ntfs::RAW_DISK_IO io(each.name, each.mode, opener_of(disk));
        ASSERT_EQ(disk.opened.size(), 1u);
        EXPECT_EQ(disk.opened[0].first, each.opened);
        EXPECT_EQ(disk.opened[0].second.random, each.random) << each.opened;
        EXPECT_FALSE(disk.opened[0].second.write);
        EXPECT_EQ(io.is_open() ? io.total_size() : -1, each.total) << each.opened;
    }
}

TEST(raw_disk_io, reads_whole_sectors_and_gives_what_was_asked)
{
    memory_disk disk{.bytes = numbered(4096 + 100), .size = 4096};
    ntfs::RAW_DISK_IO io("c:", disk_mode::volume, opener_of(disk));
    struct {
        std::uint64_t offset, size, read_at, read_size;
        bool works;
    } const cases[] = {
        {700, 100, 512, 512, true},     {1024, 512, 1024, 512, true},
        {1000, 100, 512, 1024, true},   {1024, 100, 1024, 512, true},
        {4095, 1, 3584, 512, true},     {4000, 196, 3584, 1024, true}, // begins below the end
        {4000, 197, 3584, 1024, false},                                // cut off
    };
    for (const auto& each : cases) {
        bytes out(each.size);
        disk.reads.clear();
        EXPECT_EQ(io.read(out, each.offset) == each.size, each.works) << each.offset;
        ASSERT_EQ(disk.reads.size(), 1u);
        EXPECT_EQ(disk.reads[0], std::pair(std::int64_t(each.read_at), each.read_size));
        if (each.works) {
            EXPECT_TRUE(
                std::ranges::equal(out, std::span(disk.bytes).subspan(each.offset, each.size)));
        }
    }
    bytes byte(1);
    EXPECT_EQ(io.read(byte, 4096) + io.read(byte, ~std::uint64_t{0}) + io.read({}, 0), 0u);
}

TEST(raw_disk_io, takes_bytes_from_elsewhere)
{
    const bytes contents = numbered(3000);
    ntfs::RAW_DISK_IO io(source_of(contents));
    EXPECT_EQ(io.total_size(), 3000);
    bytes out(100);
    EXPECT_EQ(io.read(out, 2950), 50u);
    EXPECT_EQ(io.read(out, 2900), 100u);
    EXPECT_EQ(out, bytes(contents.end() - 100, contents.end()));
    EXPECT_FALSE(ntfs::RAW_DISK_IO(nullptr).is_open());
    EXPECT_FALSE(ntfs::open_ntfs_volume(source_of(contents)));
    const auto file = ntfs::open_locked_file(
        ntfs::open_ntfs_volume(source_of(windows_volume({data({7})}).image())), hive_path);
    ASSERT_TRUE(file);
    EXPECT_EQ(file->read(out, 0), 1u);
    EXPECT_EQ(out[0], 7);
}

TEST(runs, are_decoded_up_to_what_does_not_fit)
{
    const std::pair<bytes, const char*> cases[] = {
        // runs; lcn+length at vcn, "-" for a sparse one
        {{0}, ""},
        {{0x11, 4, 0x10, 0x11, 2, 0xff, 0}, "16+4@0 15+2@4 "},
        {{0x11, 4, 0x10, 0x01, 8, 0x11, 2, 1, 0}, "16+4@0 -+8@4 17+2@12 "},
        {{0x21, 1, 0x00, 0x80, 0}, ""}, // below the first cluster
        {{0x22, 0x00, 0x01, 0x34, 0x12, 0x12, 1, 0, 0x80, 0}, "4660+256@0 4532+1@256 "},
        {{0x11, 4, 0, 0x11, 4, 0, 0}, "0+4@0 -+4@4 "}, // the first may begin at cluster 0
        {{0x10, 5, 0x11, 3, 2, 0}, "7+3@0 "},          // a run of no clusters
        {{0x19, 1, 2, 3, 4, 5, 6, 7, 8, 9, 9, 0}, ""}, // a length wider than 8 bytes
        {{0x15, 1, 0, 0, 0, 1, 5, 0}, ""},             // more than 32 bits of clusters
        {{0x11, 4, 0x10, 0x41, 4, 1, 2}, "16+4@0 "},   // cut off by the attribute's end
        {{0x11, 4, 0x10, 0x11, 2, 1, 0x11, 1}, "16+4@0 17+2@4 "},
    };
    for (const auto& [stored_runs, expected] : cases) {
        // As long as its runs need and no longer.
        bytes attribute = stored({{}, 1});
        append(attribute, stored_runs);
        std::vector<ntfs::byte_run> runs;
        std::vector<ntfs::extent> extents;
        ntfs::decode_data_runs(ntfs::attribute(uni::byte_view(attribute)), runs);
        ntfs::runs_to_extents(runs, extents);
        std::string found;
        for (const ntfs::extent& part : extents) {
            found += (part.is_sparse ? "-" : std::to_string(part.lcn)) + "+" +
                     std::to_string(part.length) + "@" + std::to_string(part.vcn) + " ";
        }
        EXPECT_EQ(found, expected);
    }
}

TEST(records, are_told_by_their_head_and_fixed_up)
{
    ntfs_builder builder;
    builder.record(9, {data(numbered(800))});
    bytes good = builder.image();
    good.erase(good.begin(), good.begin() + place_of_record(9));
    good.resize(1024);
    using kind = ntfs::record_kind;
    struct {
        std::vector<std::pair<std::size_t, std::uint8_t>> changes;
        kind expected;
        bool fixed;
    } const cases[] = {
        {{}, kind::file, true},
        {{{510, 9}, {511, 9}}, kind::file, true}, // torn: the check value is not compared
        {{{6, 9}}, kind::file, true},             // more elements than sectors
        {{{6, 1}}, kind::file, false},
        {{{6, 10}}, kind::unknown, false},
        {{{4, 49}}, kind::unknown, false},
        {{{20, 72}}, kind::file, true},
        {{{20, 73}}, kind::unknown, false},
        {{{0, 'B'}, {1, 'A'}, {2, 'A'}, {3, 'D'}}, kind::bad, false},
        {{{0, 'I'}, {1, 'N'}, {2, 'D'}, {3, 'X'}}, kind::index, true},
        {{{0, 0}}, kind::unknown, false},
    };
    for (const auto& each : cases) {
        bytes record = good;
        for (const auto& [place, value] : each.changes) {
            record[place] = value;
        }
        EXPECT_EQ(ntfs::fix_up(record), each.expected);
        const bool fixed = record[510] == good[50] && record[511] == good[51] &&
                           record[1022] == good[52] && record[1023] == good[53];
        EXPECT_EQ(fixed, each.fixed);
    }
}

// A mounted volume and what was traced.
struct opened_volume {
    explicit opened_volume(const ntfs_builder& builder) : disk{.bytes = builder.image()}
    {
        volume = ntfs::open_ntfs_volume("c", volume_source::letter, opener_of(disk));
    }
    std::unique_ptr<ntfs::mft_entries_ctx> look_up()
    {
        auto context = std::make_unique<ntfs::mft_entries_ctx>(*volume);
        context->trace = [this](std::string_view line) { traced.emplace_back(line); };
        return context;
    }

    // The entry of the file that a path leads to, 0 for none; and what a directory holds.
    std::uint64_t find(const char* path)
    {
        std::uint64_t inode = 0, parent = 0;
        return ntfs::resolve_file(*look_up(), path, inode, parent) ? inode : 0;
    }
    std::vector<std::uint64_t> children(std::uint64_t entry,
                                        ntfs::index_parsing how = ntfs::index_parsing::strict)
    {
        std::vector<std::uint64_t> found;
        const bool is_directory = ntfs::enum_directory(*look_up(), entry, found, how);
        EXPECT_EQ(is_directory, !found.empty());
        return found;
    }

    memory_disk disk;
    std::unique_ptr<ntfs::ntfs_volume> volume;
    strings traced;
};
using entry_list = std::vector<std::uint64_t>;

TEST(paths, are_resolved_through_indexes_and_names)
{
    const std::string device = "\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy";
    struct {
        std::string path;
        std::uint64_t inode = 0, parent = 0; // 0: not found
        std::string canonical = {};          // empty: as it was given
    } const cases[] = {
        {"\\", 5, ~std::uint64_t{0}},
        {""},
        {"\\Windows", 40, 5},
        {"windows", 40, 5},
        {"C:\\Windows", 40, 5},
        {"C:", 5, 5},
        {"\\WINDOWS\\SYSTEM32\\CONFIG\\SOFTWARE", 44, 43},
        {"/windows//system32/ config\t/software:stream", 44, 43,
         "\\windows\\system32\\ config\t\\software:stream"},
        {"\\windows\\system32\\config\\elsewhere", 45, 43},
        {"\\a long name", 41, 5},
        {"\\alongn~1"}, // a name for DOS alone
        {"\\windows\\system32\\config\\not listed"},
        {"\\windows/system32"}, // one separator in a path
        {"\\windows\\windows"},
        {"\\a long name\\x"},
        {device + "3\\Windows", 40, 5, "\\Windows"},
        {"\\\\?\\globalroot" + device.substr(14) + "12\\windows\\", 40, 5, "\\windows"},
        {device + "3"},
        {"\\\\.\\snapid_" + std::string(36, '1') + "\\Windows", 40, 5, "\\Windows"},
        {"\\\\?\\C:\\Windows"},
    };
    opened_volume on(windows_volume({}));
    ASSERT_TRUE(on.volume);
    for (const auto& each : cases) {
        const auto context = on.look_up();
        std::uint64_t inode = 0, parent = 0;
        std::string canonical;
        const bool found =
            ntfs::resolve_path_to_inode(*context, each.path, inode, parent, canonical);
        EXPECT_EQ(found ? inode : 0, each.inode) << each.path;
        if (found) {
            EXPECT_EQ(parent, each.parent) << each.path;
            EXPECT_EQ(canonical, each.canonical.empty() ? each.path : each.canonical);
        }
    }
}

TEST(paths, leave_a_trace)
{
    opened_volume on(windows_volume({}));
    on.disk.bytes[place_of_record(41) + 29] = 8; // larger than a record
    std::uint64_t inode = 0, parent = 0;
    EXPECT_EQ(on.find("\\Windows"), 40u);
    EXPECT_FALSE(ntfs::resolve_file(*on.look_up(), "\\WINDOWS\\x", inode, parent));
    EXPECT_EQ(inode, 40u) << "the last that was found";
    EXPECT_EQ(
        on.traced,
        (strings{"anal: \\Windows", "root dir", "seg: windows", "info: get children nodes",
                 "info: # children [3]", "info: get children names", "err: paramsFR: inode 0x29",
                 "info: inode found for seg: windows : 0x28", "anal: \\WINDOWS\\x", "root dir",
                 "seg: windows", "info: cache lookup", "info: inode found for seg: windows : 0x28",
                 "seg: x", "info: get children nodes", "info: # children [1]",
                 "info: get children names", "err: no child nodes",
                 "inode not found for \\WINDOWS\\x"}));
}

TEST(paths, lead_to_files_that_are_there_before_deleted_ones)
{
    ntfs_builder volume = windows_volume({});
    volume.record(5, {index_root({38, 39, 40, 41, 47})}, directory_flags);
    volume.record(38, {file_name(5, u"windows"), file_name(5, u"gone"), file_name(5, u"linked")},
                  0);
    volume.record(39, {file_name(5, u"gone")}, 0);
    volume.record(47, {file_name(40, u"linked"), file_name(5, u"windows")});
    opened_volume on(volume);
    EXPECT_EQ((entry_list{on.find("\\Windows"), on.find("\\gone"), on.find("\\linked")}),
              (entry_list{40, 38, 47}));
}

TEST(paths, do_not_lead_through_records_that_extend_another_file)
{
    ntfs_builder volume = windows_volume({});
    volume.record(41, {list({{0x30, 72, 1}})}); // looked at first
    volume.record(44, {list({{0x30, 72, 1}})});
    volume.record(72, {file_name(43, u"software", 1, 1)}, file_flags, 44);
    opened_volume on(volume);
    const auto context = on.look_up(); // one for both
    std::uint64_t inode = 0, parent = 0;
    EXPECT_FALSE(ntfs::resolve_file(*context, "\\software", inode, parent));
    EXPECT_TRUE(ntfs::resolve_file(*context, hive_path, inode, parent));
    EXPECT_EQ(inode, 44u);
}

TEST(directories, follow_attribute_lists)
{
    ntfs_builder volume = windows_volume({});
    volume.record(42,
                  {list({{0x30, 42, 0}, {0x90, 50, 3}, {0xa0, 51, 4}, {0xa0, 52, 5}}),
                   file_name(40, u"System32")},
                  directory_flags);
    volume.record(50, {index_root({43}, 3)}, file_flags, 42);
    // One block in two parts, which come in either order.
    bytes block = index_block({60});
    volume.clusters(150, {block.begin(), block.begin() + 2048});
    volume.clusters(160, {block.begin() + 2048, block.end()});
    volume.record(51, {non_resident_attribute(0xa0, {{0x21, 2, 160, 0, 0}, 0, 0, 2}, u"$I30", 4)},
                  file_flags, 42);
    volume.record(52, {non_resident_attribute(0xa0, {{0x21, 2, 150, 0, 0}, 4096}, u"$I30", 5)},
                  file_flags, 42);
    volume.record(60, {file_name(42, u"found")});
    opened_volume on(volume);
    EXPECT_EQ(on.find("\\windows\\system32\\config"), 43u);
    EXPECT_EQ(on.find("\\windows\\system32\\found"), 60u);
    EXPECT_EQ(on.children(50), (entry_list{43, 60}))
        << "a record that extends another stands for it";
}

TEST(directories, parse_nodes_strictly_or_not)
{
    // The entry in the middle refers to nothing.
    ntfs_builder volume = windows_volume({});
    bytes root = index_root({41, 46, 45});
    put(root, 24 + 8 + 16 + 16 + 88, 0, 8);
    volume.record(40, {file_name(5, u"Windows"), root}, directory_flags);
    opened_volume on(volume);
    EXPECT_EQ(on.children(40), (entry_list{41}));
    EXPECT_EQ(on.children(40, ntfs::index_parsing::lenient), (entry_list{41, 45}));
    EXPECT_EQ(on.children(41), entry_list{});
}

std::size_t bytes_read(const memory_disk& disk)
{
    std::size_t read = 0;
    for (const auto& each : disk.reads) {
        read += each.second;
    }
    return read;
}

// Runs of 256 clusters that all but share these.
bytes repeated_runs(std::uint8_t first_size, std::uint8_t first)
{
    bytes runs = {0x21, first_size, first, 0};
    for (int i = 0; i < 150; ++i) {
        append(runs, i % 2 == 0 ? 0x01010012 : 0xff010012, 4);
    }
    append(runs, 0, 1);
    return runs;
}

TEST(directories, end_where_their_clusters_come_again_and_again)
{
    ntfs_builder volume = windows_volume({});
    volume.record(43, {non_resident_attribute(0xa0, {repeated_runs(4, 140), 1 << 20}, u"$I30")},
                  directory_flags);
    opened_volume on(volume);
    on.disk.reads.clear();
    EXPECT_EQ(on.children(43), (entry_list{44, 45}));
    EXPECT_LT(bytes_read(on.disk), 20u << 20) << "of 38 MiB";
    // The same of the records themselves; those in the first run stay.
    volume = windows_volume({data({7})});
    volume.record(0, {stored({repeated_runs(96, 4), 1 << 30})});
    opened_volume records(volume);
    EXPECT_LT(records.volume->record_count, 20u * 1024);
    EXPECT_EQ(records.find(hive_path), 44u);
}

TEST(clusters, that_come_again_are_counted)
{
    using first_and_count = std::pair<std::uint64_t, std::uint64_t>;
    const std::pair<std::vector<first_and_count>, std::uint64_t> cases[] = {
        {{{10, 5}, {20, 5}, {15, 5}, {5, 5}}, 0}, // side by side
        {{{10, 5}, {10, 5}, {10, 5}}, 10},
        {{{10, 5}, {20, 5}, {8, 20}, {27, 2}}, 11},
        {{{10, 20}, {12, 3}, {29, 3}, {31, 2}}, 5},
    };
    for (const auto& [runs, again] : cases) {
        for (const std::uint64_t most : {again, std::max<std::uint64_t>(again, 1) - 1}) {
            ntfs::cluster_use use(most);
            bool fits = use.add({10, 0, true, 100}); // a sparse one uses none
            for (const auto& [first, count] : runs) {
                fits = use.add({first, 0, false, count}) && fits;
            }
            EXPECT_EQ(fits, most >= again) << most;
        }
    }
}

std::unique_ptr<io::byte_source> open_hive(memory_disk& disk)
{
    return ntfs::open_locked_file(
        ntfs::open_ntfs_volume("c:", volume_source::letter, opener_of(disk)), hive_path);
}

bytes read_hive(memory_disk& disk)
{
    io::byte_vector found;
    const auto file = open_hive(disk);
    EXPECT_EQ(file && io::read_source(found, *file, file->size()), file != nullptr);
    return {found.begin(), found.end()};
}
bytes read_hive(const ntfs_builder& volume)
{
    memory_disk disk{.bytes = volume.image()};
    return read_hive(disk);
}

bytes operator+(bytes a, const bytes& b)
{
    append(a, b);
    return a;
}

TEST(contents, come_from_wherever_they_lie)
{
    const bytes a = numbered(2048);
    const bytes b(1024, 'b');
    const bytes a_start(a.begin(), a.begin() + 1500);
    // "abc" and a copy of it from 3 back, 18 long; in a unit whose other 15 clusters are sparse.
    const bytes packed = {0x05, 0xb0, 0x08, 'a', 'b', 'c', 0x0f, 0x20, 0, 0};
    bytes unpacked;
    append(unpacked, "abcabcabcabcabcabcabc");
    unpacked.resize(5000);
    constexpr std::u16string_view zero_name(u"\0x", 2);
    bytes name_outside = data({1}, u"ab");
    name_outside[11] = 0x40;
    struct {
        const char* what;
        std::vector<bytes> attributes;
        bytes expected;
    } const cases[] = {
        {"nothing", {}, {}},
        {"resident", {data({3, 4, 5})}, {3, 4, 5}},
        {"empty", {data({})}, {}},
        {"streams", {data(b, u""), data(a_start, u"x")}, {}}, // does not fit
        {"a stream before", {data({1}, u"x"), data({2})}, {2}},
        {"a stream whose name begins with a zero", {data({2}), data({1}, zero_name)}, {2}},
        {"a stream whose name lies outside of it", {data({2}), name_outside}, {2}},
        {"a later part of such a stream",
         {stored({{0x21, 1, 220, 0, 0}, 2048}), stored({{0x21, 1, 200, 0, 0}, 0, 0, 1}, zero_name)},
         b},
        {"two contents", {data({1}), data({2})}, {2}},
        {"runs", {stored({{0x21, 2, 200, 0, 0}, 1500})}, a_start},
        {"two runs", {stored({{0x21, 1, 220, 0, 0x11, 2, 0xec, 0}, 3072})}, b + a},
        {"a hole", {stored({{0x21, 1, 220, 0, 0x01, 1, 0}, 2000})}, b + bytes(976)},
        {"all sparse", {stored({{0x01, 2, 0}, 2048})}, bytes(2048)},
        {"more than its runs", {stored({{0x21, 1, 220, 0, 0}, 1 << 30})}, b},
        {"less initialized", {stored({{0x21, 2, 200, 0, 0}, 2048, 1500})}, a_start + bytes(548)},
        {"a run out of the volume", {stored({{0x21, 1, 220, 0, 0x31, 1, 0, 0, 0x40, 0}, 2048})}, b},
        {"first run out of the volume", {stored({{0x31, 1, 0, 0, 0x40, 0}, 2048})}, {}},
        {"in another record", {list({{0x80, 70, 1}})}, a},
        {"in two records, the later part first", {list({{0x80, 71, 2}, {0x80, 70, 1}})}, a + b},
        {"one bad", {list({{0x80, 70, 1}, {0x80, 72, 2}, {0x80, 71, 2}})}, a + b},
        {"the first part missing", {list({{0x80, 71, 2}})}, {}},
        {"ids that do not match", {list({{0x80, 70, 2}})}, {}},
        {"a list in clusters", {list_at({0x21, 1, 240, 0, 0}, 96)}, a + b},
        {"a list of no size", {list_at({0x21, 1, 240, 0, 0}, 0)}, a + b},
        {"a later list", {list_at({0x31, 1, 0, 0, 0x40, 0x31, 1, 240, 0, 0xc0, 0}, 2048)}, a + b},
        {"packed", {stored({{0x21, 1, 250, 0, 0x01, 15, 0}, 5000, 5000, 0, 1, 1024})}, unpacked},
        {"as it is", {stored({{0x21, 16, 200, 0, 0}, 2048, 2048, 0, 1, 16384})}, a},
        {"compressed, all sparse", {stored({{0x01, 16, 0}, 2048, 2048, 0, 1, 1024})}, bytes(2048)},
    };
    for (const auto& each : cases) {
        ntfs_builder volume = windows_volume(each.attributes);
        volume.clusters(200, a);
        volume.clusters(220, b);
        volume.clusters(240, attribute_list({{0x10, 44, 0}, {0x80, 70, 1}, {0x80, 71, 2}}));
        volume.clusters(250, packed);
        volume.record(70, {stored({{0x21, 2, 200, 0, 0}, 3072}, {}, 1)}, file_flags, 44);
        volume.record(71, {stored({{0x21, 1, 220, 0, 0}, 0, 0, 2}, {}, 2)}, file_flags, 44);
        EXPECT_EQ(read_hive(volume), each.expected) << each.what;
    }
}

TEST(contents, of_many_parts_cost_one_reading_of_a_record)
{
    ntfs_builder volume = windows_volume({list_at({0x21, 8, 240, 0, 0}, 8192)});
    std::vector<list_item> items;
    for (int i = 0; i < 120; ++i) {
        items.insert(items.end(), {{0x80, 70, 1}, {0x80, 8, 1}}); // far from each other
    }
    volume.clusters(240, attribute_list(items));
    volume.record(70, {data({3}, {}, 1)}, file_flags, 44);
    volume.record(8, {data({4}, u"x", 1)}, file_flags, 44);
    opened_volume on(volume);
    std::vector<ntfs::record_row> rows;
    on.disk.reads.clear();
    EXPECT_TRUE(ntfs::list_record_attributes(*on.look_up(), 44, rows));
    EXPECT_EQ(rows.size(), 6u)
        << "the record, two names, the list, a content and a stream, each once";
    EXPECT_LT(on.disk.reads.size(), 10u);
}

TEST(contents, that_are_compressed_are_expanded_where_they_are_asked_for)
{
    // Units of 16 clusters: one that is packed, zeros, one that is packed, and a damaged one.
    const bytes runs = {0x21, 1, 200, 0,    0x01, 15,   0x04, 0xc0, 0xff, 0x3f, 0,
                        0x11, 1, 10,  0x01, 15,   0x11, 1,    10,   0x01, 15,   0};
    constexpr std::uint64_t zeros_end = 0x3fffd0 * ntfs_cluster;
    constexpr std::uint64_t size = 0x3ffff0 * ntfs_cluster;
    ntfs_builder volume = windows_volume({stored({runs, size, size, 0, 1, 1024})});
    volume.clusters(200, {0x03, 0xb0, 0x02, 'x', 0xfc, 0x0f, 0, 0});
    volume.clusters(210, {0x03, 0xb0, 0x02, 'y', 0xfc, 0x0f, 0, 0});
    volume.clusters(220, {0x03, 0xb0, 0x02, 'z', 0xfc, 0x0f, 0x01, 0xb0, 1, 0, 0, 0});
    memory_disk disk{.bytes = volume.image()};
    disk.size = std::int64_t{5} << 30;
    const auto file = open_hive(disk);
    ASSERT_TRUE(file);
    EXPECT_EQ(file->size(), size);
    const auto at = [&](std::uint64_t offset, std::size_t count) {
        bytes out(count);
        out.resize(file->read(out, offset));
        return out;
    };
    disk.reads.clear();
    EXPECT_EQ(at(4095, 2), bytes({'x', 0}));
    EXPECT_EQ(at(1 << 30, 3), bytes(3));
    EXPECT_TRUE(disk.reads.empty()) << "the first unit is there, the zeros are nowhere";
    EXPECT_EQ(at(zeros_end - 1, 2), bytes({0, 'y'}));
    EXPECT_EQ(at(zeros_end + 4095, 1), bytes{'y'});
    EXPECT_EQ(disk.reads.size(), 1u);
    EXPECT_EQ(at(size - 16384, 8192), bytes(4096, 'z'));
    EXPECT_EQ(at(size - 1, 1), bytes());
}

TEST(contents, end_where_a_cluster_cannot_be_read)
{
    ntfs_builder volume = windows_volume({stored({{0x21, 32, 200, 0, 0}, 32 * 1024})});
    const bytes whole = numbered(32 * 1024);
    volume.clusters(200, whole);
    // Large reads are for speed alone: what precedes the bad cluster is there.
    memory_disk disk{.bytes = volume.image()};
    EXPECT_EQ(read_hive(disk).size(), whole.size());
    EXPECT_EQ(std::ranges::count(disk.reads, std::pair(std::int64_t{200 << 10}, whole.size())), 1)
        << "clusters side by side are read at once";
    for (const int bad : {0, 1, 20, 31}) {
        disk.unreadable = (200 + bad) * 1024 + 5;
        EXPECT_EQ(read_hive(disk), bytes(whole.begin(), whole.begin() + bad * 1024));
    }
    disk.unreadable = -1;
    disk.bytes.resize(210 * 1024);
    EXPECT_EQ(read_hive(disk).size(), 10u * 1024);
}

TEST(contents, are_decompressed_up_to_damage)
{
    // What is packed, how much is sound of 8192 bytes, and their beginning.
    const std::tuple<bytes, std::uint64_t, std::string_view> cases[] = {
        {{}, 8192, ""},
        {{0x02, 0x30, 'x', 'y', 'z', 0, 0}, 8192, "xyz"},            // a stored chunk
        {{0x03, 0xb0, 0x02, 'x', 0xff, 0x0f}, 0, "x"},               // longer than a chunk may get
        {{0x03, 0xb0, 0x02, 'x', 0x00, 0x10, 0, 0}, 0, "x"},         // from before its beginning
        {{0x03, 0xb0, 0x02, 'x', 0xfc, 0x0f, 0, 0}, 8192, "xxxxxx"}, // just to its end
        {{0x02, 0xb0, 0x01, 0, 0, 0, 0}, 0, ""},                     // a copy of nothing
        {{0x09, 0xb0, 0x00, 'x'}, 0, ""},                            // cut off
        {{0x01, 0xb0, 0x00, 'x', 0x09, 0xb0, 0, 'y'}, 4096, "x"},
    };
    for (const auto& [packed, sound, begin] : cases) {
        bytes out(8192, 0xee);
        EXPECT_EQ(ntfs::decompress(uni::byte_view(packed), out), sound);
        EXPECT_TRUE(std::equal(begin.begin(), begin.end(), out.begin()));
    }
}

TEST(mounting, settles_sizes_or_fails)
{
    struct {
        const char* what;
        std::vector<std::pair<std::size_t, std::uint8_t>> changes; // of the image
        std::uint32_t record_size;                                 // 0: it does not mount
    } const cases[] = {
        {"as it is", {}, 1024},
        {"clusters for a record", {{64, 1}}, 1024},
        {"records of unknown size", {{64, 0}}, 1024},
        {"smaller records than they are", {{64, 0xf7}}, 1024},
        {"the shift is out of range", {{64, 0x80}}, 0},
        {"no sectors", {{13, 0}}, 0},
        {"sectors as a power of two", {{13, 0xff}}, 1024},
        {"larger clusters than there are", {{13, 0xf3}}, 0},
        {"more sectors than can be counted", {{13, 0x81}}, 0},
        {"no bytes in a sector", {{11, 0}, {12, 0}}, 0},
        {"another file system", {{3, 'E'}}, 0},
        {"$MFT beyond the volume", {{53, 1}}, 0},
        {"$MFT beyond any volume", {{55, 0xff}}, 0},
        {"record 0 is bad", {{place_of_record(0) + 1, 'x'}}, 0},
        {"record 0 has no size", {{place_of_record(0) + 29, 0}}, 0},
        {"record 0 has a true size of 4096", {{place_of_record(0) + 6, 9}}, 4096},
    };
    for (const auto& each : cases) {
        memory_disk disk{.bytes = windows_volume({}).image()};
        for (const auto& [place, value] : each.changes) {
            disk.bytes[place] = value;
        }
        const auto volume = ntfs::open_ntfs_volume("c", volume_source::letter, opener_of(disk));
        EXPECT_EQ(volume ? volume->record_size : 0, each.record_size) << each.what;
        std::uint64_t mft_offset = 0;
        if (volume) {
            EXPECT_EQ(volume->record_count, ntfs_records);
            EXPECT_TRUE(ntfs::mount_ntfs_volume(*volume, mft_offset)) << "at once";
            EXPECT_EQ(mft_offset, place_of_record(0));
        }
    }
    EXPECT_FALSE(ntfs::open_ntfs_volume("", volume_source::letter));
}

TEST(mounting, follows_the_attribute_list_of_the_mft)
{
    ntfs_builder volume = windows_volume({data({7})});
    // Records 0 to 19 lie at once, and 12 tells where the others do.
    volume.record(0, {list({{0x80, 0, 0}, {0x80, 12, 6}}), stored({{0x11, 20, 4, 0}, 96 * 1024})});
    volume.record(12, {stored({{0x11, 76, 24, 0}, 0, 0, 20}, {}, 6)}, file_flags, 0);
    EXPECT_EQ(read_hive(volume), bytes{7});
}

TEST(rows, stand_in_their_order_and_tell_what_failed)
{
    ntfs_builder volume = windows_volume({});
    volume.record(44, {data({1, 2}), file_name(43, u"a"), resident_attribute(0x10, bytes(48)),
                       data({3}, u"ads"), file_name(43, u"b")});
    opened_volume on(volume);
    on.disk.bytes[place_of_record(45)] = 'x';
    put(on.disk.bytes, place_of_record(46), "BAAD");
    std::vector<ntfs::record_row> rows;
    EXPECT_TRUE(ntfs::list_record_attributes(*on.look_up(), 44, rows));
    std::string found;
    for (const ntfs::record_row& row : rows) {
        found += std::to_string(row.type) + row.name + ":" + std::to_string(row.real_size) + " ";
    }
    EXPECT_EQ(found, "272:0 16:48 48:68 48:68 128:2 128ads:1 ");
    for (const std::uint64_t bad : {45, 46, 5000}) {
        EXPECT_FALSE(ntfs::list_record_attributes(*on.look_up(), bad, rows)) << bad;
    }
    EXPECT_EQ(on.traced, (strings{"err: mftfixup 2d", "err: fixup_mft type: BAAD",
                                  "err: recd bad 2e", "err: mftfixup 1388"}));
}

TEST(locked_hives, are_read_by_the_letter_or_the_device_of_the_run)
{
    const bytes hive = numbered(3000);
    ntfs_builder volume = windows_volume({stored({{0x21, 3, 200, 0, 0}, 3000})});
    volume.clusters(200, hive);
    const std::string snapshot = "\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy2";
    struct {
        std::string volume;
        bool is_snapshot, has_geometry;
        const char* device;
        bool is_read;
    } const cases[] = {
        {"c:", false, true, "\\\\.\\c:", true},
        {"c:", false, false, "\\\\.\\c:", false},
        {"q\\", false, true, "\\\\.\\q:", true}, // the start of a path
        {"d:", false, true, "\\\\.\\c:", false},
        {snapshot, true, true, snapshot.c_str(), true},
        {snapshot + "0", true, true, snapshot.c_str(), false},
        {"", false, true, "", false},
    };
    for (const auto& each : cases) {
        memory_disk disk{.bytes = volume.image(), .name = each.device};
        disk.knows_extended_geometry = disk.knows_geometry = each.has_geometry;
        files::file_tree tree;
        request::sdb_opts options;
        options.volume_text = each.volume;
        options.vss_given = each.is_snapshot;
        options.software_hive_path =
            each.volume + std::string("\\Windows\\System32\\Config\\Software");
        const hive::hive_bytes found =
            model::load_software_hive(options, {options.volume_text, options.software_hive_path},
                                      tree, {}, opener_of(disk))
                .bytes;
        const std::span<const std::uint8_t> read = found.at(0, found.size()).bytes();
        EXPECT_EQ(bytes(read.begin(), read.end()), each.is_read ? hive : bytes()) << each.volume;
    }
}

// Whatever the bytes, a look-up ends by itself, and reads nothing twice for long.
TEST(damage, of_any_byte_ends_a_look_up)
{
    ntfs_builder volume = windows_volume({list({{0x80, 70, 1}, {0x80, 71, 2}, {0x20, 44, 0}})});
    volume.record(70, {stored({{0x21, 2, 200, 0, 0}, 3072}, {}, 1)}, file_flags, 44);
    volume.record(71, {list({{0x20, 70, 0}})}, file_flags, 70);
    const bytes image = volume.image();
    memory_disk disk;
    std::vector<std::pair<std::uint64_t, std::uint64_t>> stretches = {{0, 80}, {140 * 1024, 80}};
    for (const std::uint64_t record : {0, 5, 40, 42, 43, 44, 45, 70, 71}) {
        stretches.emplace_back(place_of_record(record), 512);
    }
    for (const auto& [begin, size] : stretches) {
        for (std::uint64_t place = begin; place < begin + size; ++place) {
            disk.bytes = image;
            for (const unsigned value : {0u, 1u, 0x7fu, 0x80u, 0xffu, 0xffffffffu}) {
                put(disk.bytes, place, value, value > 0xff ? 4 : 1);
                disk.reads.clear();
                EXPECT_LE(read_hive(disk).size(), disk.bytes.size() + (64u << 20));
                EXPECT_LT(bytes_read(disk), 8u * 1024 * 1024);
            }
        }
    }
}

TEST(disk_layout, tells_file_systems_apart)
{
    using marks = std::vector<std::pair<std::size_t, std::string>>;
    const std::pair<marks, const char*> cases[] = {
        // kind; bytes or number of sector, cluster, block
        {{{3, "EXFAT   "}, {100, "1234"}, {108, "\x09\x03"}}, "exfat 7; 512 8 0; 34333231"},
        {{{3, "NTFS    "}, {12, "\x02\x08"}, {72, "12345678"}},
         "ntfs 7; 512 8 0; 3837363534333231"},
        {{{3, "-FVE-FS-"}, {12, "\x02\x08"}}, "bitlocker container 7; 512 8 0; 0"},
        {{{3, "MSDOS5.0"}, {12, "\x02\x04"}, {82, "FAT32"}, {67, "12"}}, "fat32 12; 512 4 0; 3231"},
        {{{3, "MSDOS5.0"}, {12, "\x02\x04"}, {54, "FAT16"}, {39, "12"}}, "fat16 4; 512 4 0; 3231"},
        {{{3, "x"}, {1048, "\x02"}, {1080, "\x53\xef"}}, "ext2/3 131; 0 0 4096; 0"},
        {{{1048, "\x02"}, {1080, "\x53\xef"}}, "ext 131; 0 0 4096; 0"},
        {{{1024, "H+"}}, "hfs+ 175; 0 0 0; 0"},
        {{{1024, "HX"}}, "hfsx 175; 0 0 0; 0"},
        {{{3, "x"}, {1024, "HX"}}, " 0; 0 0 0; 0"},
        {{{3, "EXFAT   "}, {108, "\xff\xff"}}, "exfat 7; 0 0 0; 0"},
    };
    for (const auto& [at, expected] : cases) {
        bytes block(2048);
        for (const auto& [place, mark] : at) {
            put(block, place, mark);
        }
        const ntfs::volume_identity found = ntfs::identify_volume(uni::byte_view(block));
        std::ostringstream text;
        text << found.name << " " << found.kind << "; " << found.sector_size << " "
             << found.sectors_per_cluster << " " << found.block_size << "; " << std::hex
             << found.serial;
        EXPECT_EQ(text.str(), expected);
    }
    EXPECT_EQ(ntfs::identify_volume(uni::byte_view(bytes(511))).name, "");
    const std::pair<std::uint32_t, const char*> names[] = {
        {0x07, "ntfs or exfat"}, {0x8007, "ntfs or exfat [guess]"}, {0x0f, "exten"}, {0xee, "gpt"},
        {0x54, "unk"},           {0x8c, "fat32 fault tolerant"},
    };
    for (const auto& [kind, name] : names) {
        EXPECT_EQ(ntfs::partition_type_name(kind), name);
    }
}

// A disk of 512 sectors; `entries` are sector, place in the table, type, start and count.
std::string partitions_of(const std::vector<std::array<std::uint32_t, 5>>& entries,
                          std::string_view oem = {}, std::size_t size = 512,
                          std::size_t unmarked = 0)
{
    memory_disk disk;
    disk.bytes.resize(512 * size);
    bytes& image = disk.bytes;
    for (const auto& [sector, place, type, start, count] : entries) {
        const std::size_t table = sector * size;
        if (sector == 0 || sector != unmarked) {
            put(image, table + size - 2, 0xaa55, 2);
        }
        put(image, table + 446 + place * 16 + 4, type, 1);
        put(image, table + 446 + place * 16 + 8, start | std::uint64_t{count} << 32, 8);
    }
    put(image, 3, oem);
    put(image, 63 * size + 3, "NTFS    "); // a lost partition
    put(image, 63 * size + 40, 20, 1);
    put(image, size, "EFI PART");
    // Four entries from sector 2 on; the second has a type, a first sector and a last.
    put(image, {{size + 72, 2, 1}, {size + 80, 4, 1}, {size + 84, 128, 1}});
    const std::size_t second = 2 * size + 128;
    put(image, {{second, 1, 1}, {second + 32, 34, 1}, {second + 40, 99, 1}});
    ntfs::RAW_DISK_IO io("c:", disk_mode::volume, opener_of(disk));
    std::string found;
    for (const ntfs::disk_partition& each : ntfs::read_partitions(io).partitions) {
        found += ntfs::partition_type_name(each.kind) + " " + std::to_string(each.start / size) +
                 "+" + std::to_string(each.size / size) + "; ";
    }
    return found;
}

TEST(disk_layout, reads_partition_tables)
{
    EXPECT_EQ(partitions_of({{0, 0, 7, 10, 20}, {0, 3, 0x83, 40, 5}}),
              "ntfs or exfat 10+20; linux 40+5; ");
    EXPECT_EQ(partitions_of({{0, 0, 7, 10, 20}}, "NTFS"), "") << "a volume has no table";
    EXPECT_EQ(partitions_of({{0, 0, 0xee, 1, 500}}), "gpt 34+66; ");
    // Without a mark an entry must lie on the disk; the mark stands where the disk's own does.
    const std::vector<std::array<std::uint32_t, 5>> chain = {
        {0, 1, 5, 100, 300}, {100, 0, 6, 1, 9},    {100, 2, 6, 1, 600},
        {100, 1, 5, 50, 60}, {150, 0, 0x0b, 2, 8}, {150, 1, 0x0f, 0, 0}};
    for (const std::size_t size : {512u, 4096u}) {
        EXPECT_EQ(partitions_of(chain, {}, size),
                  "ntfs or exfat [guess] 63+20; fat 101+9; fat 101+600; fat32 152+8; ");
        EXPECT_EQ(partitions_of(chain, {}, size, 100),
                  "ntfs or exfat [guess] 63+20; fat 101+9; fat32 152+8; ");
    }
    EXPECT_EQ(partitions_of({{0, 0, 7, 63, 20}, {0, 1, 0x0f, 100, 300}}), "ntfs or exfat 63+20; ");
    EXPECT_EQ(partitions_of({}), "");
}

} // namespace
