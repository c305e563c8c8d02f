// Reads a hive off a volume that lies in memory. The input is a sequence of changes to a sound
// volume: sector (2 bytes), place in it (1 byte, in units of 2), count (1 byte), then the new bytes.
// The device claims to be larger than what it holds. Whatever is changed, each look-up must end by
// itself.

#include <cstddef>
#include <cstdint>

#include "ntfs/attributes.h"
#include "ntfs/directory.h"
#include "ntfs/disk_layout.h"
#include "ntfs/locked_file.h"
#include "support/memory_device.h"
#include "support/ntfs_builder.h"

namespace {

using namespace test_support;

constexpr std::size_t longest_input = 4096;
constexpr std::size_t sector_size = 512;
constexpr std::int64_t volume_size = 16 << 20; // as the device claims

// A hive in several records, with all kinds of runs, and a compressed stream.
bytes sound_volume()
{
    ntfs_builder volume = windows_volume(
        {resident_attribute(0x20, attribute_list({{0x80, 70, 1}, {0x80, 71, 2}, {0x30, 71, 3}})),
         non_resident_attribute(0x80, {{0x21, 1, 250, 0, 0x01, 15, 0}, 5000, 5000, 0, 1, 1024},
                                u"packed")});
    volume.record(
        70,
        {non_resident_attribute(0x80, {{0x21, 2, 200, 0, 0x01, 1, 0x11, 1, 0xf6, 0}, 5000}, {}, 1)},
        file_flags, 44);
    volume.record(71,
                  {file_name(43, u"another name", 1, 3),
                   non_resident_attribute(0x80, {{0x21, 1, 220, 0, 0}, 0, 0, 4}, {}, 2)},
                  file_flags, 44);
    volume.clusters(250, {0x05, 0xb0, 0x08, 'a', 'b', 'c', 0x0f, 0x20, 0, 0});
    return volume.image();
}

void change(bytes& image, uni::byte_view changes)
{
    for (std::uint64_t at = 0; at + 4 <= changes.size();) {
        const std::size_t place =
            changes.u16(at) * sector_size + changes.u8(at + 2) * std::size_t{2};
        const uni::byte_view with = changes.slice(at + 4, changes.u8(at + 3));
        for (std::size_t i = 0; i < with.size() && place + i < image.size(); ++i) {
            image[place + i] = with.u8(i);
        }
        at += 4 + with.size();
    }
}

// Reads and lists whatever the records name.
void read_everything(ntfs::ntfs_volume& volume)
{
    for (std::uint64_t entry = 0; entry < ntfs_records; ++entry) {
        ntfs::mft_entries_ctx context(volume);
        std::vector<ntfs::record_row> rows;
        std::vector<std::uint64_t> children;
        ntfs::list_record_attributes(context, entry, rows);
        for (const ntfs::record_row& row : rows) {
            io::byte_vector content;
            if (row.extents.size() < 8 && row.real_size < (1 << 20)) {
                ntfs::read_attribute_data(context, row, content);
            }
        }
        ntfs::enum_directory(context, entry, children, ntfs::index_parsing::lenient);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size > longest_input) {
        return -1;
    }
    static const bytes sound = sound_volume();
    memory_disk disk;
    disk.bytes = sound;
    disk.size = volume_size;
    change(disk.bytes, uni::byte_view(std::span(data, size)));
    const auto open = [&] {
        return ntfs::open_ntfs_volume("c", ntfs::volume_source::letter, opener_of(disk));
    };
    if (const auto file = ntfs::open_locked_file(open(), hive_path)) {
        io::byte_vector hive;
        io::read_source(hive, *file, file->size());
    }
    if (const auto volume = open()) {
        read_everything(*volume);
    }
    ntfs::RAW_DISK_IO whole("c:", ntfs::disk_mode::volume, opener_of(disk));
    ntfs::read_partitions(whole);
    ntfs::identify_volume(uni::byte_view(disk.bytes));
    return 0;
}
