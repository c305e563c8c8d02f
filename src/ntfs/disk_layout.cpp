#include "ntfs/disk_layout.h"

#include <algorithm>
#include <array>

#include <zlib.h>

namespace ntfs {

namespace {

using uni::byte_view;

constexpr std::uint64_t mark_place = 510;
constexpr std::uint16_t sector_mark = 0xaa55;
constexpr std::uint32_t ntfs_kind = 7;
constexpr std::uint32_t gpt_kind = 0xee;
constexpr std::string_view gpt_mark = "EFI PART";

bool holds(byte_view block, std::uint64_t place, std::string_view text)
{
    const byte_view found = block.slice(place, text.size());
    return found.size() == text.size() &&
           std::equal(text.begin(), text.end(), found.bytes().begin(),
                      [](char a, std::uint8_t b) { return static_cast<std::uint8_t>(a) == b; });
}

// One shifted left, or 0 for what no sector can be.
std::uint32_t power_of_two(unsigned exponent)
{
    return exponent < 31 ? 1u << exponent : 0;
}

// The BIOS block that most boot sectors share.
volume_identity with_bios_block(std::string_view name, std::uint32_t kind, byte_view block)
{
    volume_identity found{name, kind};
    found.sector_size = block.u16(11);
    found.sectors_per_cluster = block.u8(13);
    return found;
}

volume_identity identify_by_oem_field(byte_view block)
{
    if (holds(block, 3, "EXFAT   ")) {
        volume_identity found{"exfat", ntfs_kind};
        found.sector_size = power_of_two(block.u8(108));
        found.sectors_per_cluster = power_of_two(block.u8(109));
        found.serial = block.u32(100);
        return found;
    }
    if (holds(block, 3, std::string_view("ReFS\0", 5))) {
        return {"refs", ntfs_kind};
    }
    volume_identity found;
    if (holds(block, 3, "NTFS    ")) {
        found = with_bios_block("ntfs", ntfs_kind, block);
    } else if (holds(block, 3, "-FVE-FS-")) {
        found = with_bios_block("bitlocker container", ntfs_kind, block);
    } else {
        return found;
    }
    found.sectors_per_cluster = sectors_per_cluster(block.u8(13));
    found.sector_count = block.u64(40);
    found.serial = block.u64(72);
    return found;
}

volume_identity identify_fat(byte_view block)
{
    volume_identity found;
    if (holds(block, 82, "FAT32")) {
        found = with_bios_block("fat32", 12, block);
        found.sector_count = block.u32(32);
        found.serial = block.u32(67);
    } else if (holds(block, 54, "FAT16")) {
        found = with_bios_block("fat16", 4, block);
        found.serial = block.u32(39);
    } else if (holds(block, 54, "FAT12")) {
        found = with_bios_block("fat12", 1, block);
        found.serial = block.u32(39);
    }
    return found;
}

volume_identity identify_others(byte_view block)
{
    const bool no_oem = block.u64(3) == 0;
    if (block.u16(1080) == 0xef53) {
        volume_identity found{no_oem ? "ext" : "ext2/3", 131};
        const std::uint32_t shift = block.u32(1048);
        found.block_size = shift < 20 ? power_of_two(10 + shift) : 0;
        return found;
    }
    if (no_oem && holds(block, 1024, "H+")) {
        return {"hfs+", 175};
    }
    if (no_oem && holds(block, 1024, "HX")) {
        return {"hfsx", 175};
    }
    return {};
}

bool is_volume(byte_view block)
{
    return block.u16(mark_place) == sector_mark &&
           (holds(block, 3, "EXFA") || holds(block, 3, "MSDO") || holds(block, 3, "NTFS") ||
            holds(block, 3, "-FVE") || !identify_fat(block).name.empty());
}

constexpr std::uint64_t entry_place(std::uint64_t number)
{
    return 446 + number * 16;
}

bool is_extended(std::uint32_t kind)
{
    return kind == 0x05 || kind == 0x0f || kind == 0x85;
}

// Bytes of a disk, those that there are.
std::vector<std::uint8_t> read_bytes(RAW_DISK_IO& disk, std::uint64_t offset, std::uint64_t count)
{
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(count));
    bytes.resize(static_cast<std::size_t>(disk.read(bytes, offset)));
    return bytes;
}

// Whether what stands at a sector fits sectors of that size.
bool is_start_of_something(RAW_DISK_IO& disk, std::uint64_t sector, std::uint64_t size,
                           bool is_table)
{
    const std::vector<std::uint8_t> bytes = read_bytes(disk, sector * size, 512);
    const byte_view block(bytes);
    return block.u16(mark_place) == sector_mark &&
           (is_table || (is_volume(block) && block.u16(11) == size));
}

// The size of a disk's sectors; 0 for what has no table. The mark stands at the sector's end or, as on
// most disks of large sectors, where that of a small one does.
std::uint64_t sector_size_of(RAW_DISK_IO& disk, byte_view first)
{
    for (std::uint64_t size = 1024; size <= 16384; size *= 2) {
        if (first.u16(size - 2) == sector_mark && first.contains(0, size) &&
            first.u16(mark_place) != sector_mark) {
            return size;
        }
    }
    if (first.u16(mark_place) != sector_mark) {
        return 0;
    }
    unsigned small = 0;
    unsigned large = 0;
    for (std::uint64_t i = 0; i < 4; ++i) {
        const byte_view entry = first.slice(entry_place(i), 16);
        const std::uint32_t kind = entry.u8(4);
        if (kind == gpt_kind) {
            const auto end = static_cast<std::uint64_t>(disk.total_size());
            for (const std::uint64_t place : {std::uint64_t{1}, end / 4096 - 1}) {
                large +=
                    end >= 4096 && holds(byte_view(read_bytes(disk, place * 4096, 8)), 0, gpt_mark);
            }
            small += holds(byte_view(read_bytes(disk, 512, 8)), 0, gpt_mark);
        } else if (kind != 0 && entry.u32(8) != 0) {
            small += is_start_of_something(disk, entry.u32(8), 512, is_extended(kind));
            large += is_start_of_something(disk, entry.u32(8), 4096, is_extended(kind));
        }
    }
    return large > small ? 4096 : 512;
}

// The size of a disk's sectors by the header of a GUID partition table or its copy, which may be all that
// is left; 0 for none.
std::uint64_t sector_size_by_gpt(RAW_DISK_IO& disk)
{
    const auto end = static_cast<std::uint64_t>(std::max<std::int64_t>(disk.total_size(), 0));
    for (const std::uint64_t size : {512u, 4096u}) {
        for (const std::uint64_t sector : {std::uint64_t{1}, end / size - 1}) {
            if (end >= size * 2 &&
                holds(byte_view(read_bytes(disk, sector * size, 8)), 0, gpt_mark)) {
                return size;
            }
        }
    }
    return 0;
}

// A reader of the tables of one disk.
class table_walk {
public:
    table_walk(RAW_DISK_IO& disk, std::uint64_t sector) : disk_(disk), sector_(sector) {}

    void take_table(byte_view table);
    void take_gpt();
    std::vector<disk_partition> found;
    table_state state = table_state::sound;

private:
    static constexpr int longest_chain = 128; // of extended partitions
    static constexpr std::uint64_t last_sector = std::uint64_t{1} << 40;

    std::vector<std::uint8_t> read(std::uint64_t sector, std::uint64_t count)
    {
        return read_bytes(disk_, sector * sector_, count * sector_);
    }
    void add(std::uint32_t kind, std::uint64_t start, std::uint64_t count, unsigned number)
    {
        // One beyond all disks stays in the list, so that it is told.
        start = std::min(start, last_sector);
        found.push_back({kind, start * sector_, std::min(count, last_sector) * sector_, number});
    }
    std::uint64_t sectors() const
    {
        return static_cast<std::uint64_t>(disk_.total_size()) / sector_;
    }
    bool is_on_disk(std::uint64_t start, std::uint64_t count) const
    {
        return count != 0 && start <= sectors() && count <= sectors() - start;
    }
    void guess_before(std::uint64_t start);
    void take_chain(std::uint64_t first);
    bool take_gpt_at(std::uint64_t sector, bool must_be_sound);

    RAW_DISK_IO& disk_;
    std::uint64_t sector_;
    unsigned next_in_chain_ = 5;
    bool has_gpt_ = false;
    bool has_absurd_entry_ = false; // in a table whose sums may be right
};

void table_walk::take_table(byte_view table)
{
    for (unsigned i = 0; i < 4; ++i) {
        const byte_view entry = table.slice(entry_place(i), 16);
        const std::uint32_t kind = entry.u8(4);
        if (kind == gpt_kind && !has_gpt_) {
            has_gpt_ = true;
            take_gpt();
        } else if (is_extended(kind)) {
            guess_before(entry.u32(8));
            state = entry.u32(8) == 0 ? table_state::damaged : state;
            take_chain(entry.u32(8));
        } else if (kind != 0) {
            add(kind, entry.u32(8), entry.u32(12), i + 1);
        }
    }
    if (has_gpt_) { // by whose numbers its partitions are known, whatever stands beside it
        std::erase_if(found, [](const disk_partition& each) { return each.kind != gpt_kind; });
    }
}

// Where the first partition of a disk used to begin, a lost one may be.
void table_walk::guess_before(std::uint64_t start)
{
    constexpr std::uint64_t first_of_old = 63;
    const bool is_known =
        std::any_of(found.begin(), found.end(), [this](const disk_partition& partition) {
            return partition.start == first_of_old * sector_;
        });
    if (start <= first_of_old || is_known) {
        return;
    }
    const std::vector<std::uint8_t> boot = read(first_of_old, 1);
    if (holds(byte_view(boot), 3, "NTFS    ")) {
        add(ntfs_kind | guessed_kind, first_of_old, byte_view(boot).u64(40), 0);
    }
}

void table_walk::take_chain(std::uint64_t first)
{
    std::uint64_t base = first;
    for (int links = 0; base != 0; ++links) {
        const std::vector<std::uint8_t> bytes = read(base, 1);
        const byte_view table(bytes);
        // Where the mark of the disk itself may stand.
        const bool is_marked =
            table.u16(sector_ - 2) == sector_mark || table.u16(mark_place) == sector_mark;
        if (!is_marked || links == longest_chain) {
            state = table_state::damaged;
        }
        if (links == longest_chain) {
            return;
        }
        std::uint64_t next = 0;
        for (unsigned i = 0; i < 4; ++i) {
            const byte_view entry = table.slice(entry_place(i), 16);
            const bool leads_on = is_extended(entry.u8(4));
            const std::uint64_t start = (leads_on ? first : base) + entry.u32(8);
            if (entry.u8(4) == 0 || (!is_marked && !is_on_disk(start, entry.u32(12)))) {
                continue;
            }
            if (leads_on) {
                next = start;
            } else {
                add(entry.u8(4), start, entry.u32(12), next_in_chain_++);
            }
        }
        if (next != 0 && next <= base) { // a chain leads forward, or in a circle
            state = table_state::damaged;
            next = 0;
        }
        base = next;
    }
}

std::uint32_t checksum_of(byte_view bytes)
{
    const std::span<const std::uint8_t> all = bytes.bytes();
    return static_cast<std::uint32_t>(::crc32_z(::crc32_z(0, nullptr, 0), all.data(), all.size()));
}

// Takes the table whose header stands in a sector. False if there is none, or, where that is asked for,
// none whose sums are right.
bool table_walk::take_gpt_at(std::uint64_t sector, bool must_be_sound)
{
    constexpr std::uint64_t most_entries = 1024;
    constexpr std::uint64_t least_header = 92;
    std::vector<std::uint8_t> head = read(sector, 1);
    const byte_view header(head);
    const std::uint64_t header_size = header.u32(12);
    const std::uint32_t header_sum = header.u32(16);
    const std::uint32_t entries_sum = header.u32(88);
    const std::uint64_t count = std::min<std::uint64_t>(header.u32(80), most_entries);
    const std::uint64_t size = header.u32(84);
    const std::uint64_t first_sector = header.u64(72);
    if (head.size() < least_header || !holds(header, 0, gpt_mark) || size < 48 || size > 4096 ||
        first_sector > last_sector) {
        return false;
    }
    std::fill_n(head.begin() + 16, 4, std::uint8_t{0});
    std::vector<std::uint8_t> bytes = read(first_sector, (count * size + sector_ - 1) / sector_);
    bytes.resize(std::min(bytes.size(), static_cast<std::size_t>(count * size)));
    const bool is_sound = header_size >= least_header && header_size <= sector_ &&
                          checksum_of(header.slice(0, header_size)) == header_sum &&
                          bytes.size() == count * size &&
                          checksum_of(byte_view(bytes)) == entries_sum;
    if (must_be_sound && !is_sound) {
        return false;
    }
    for (std::uint64_t i = 0; i < count; ++i) {
        const byte_view entry = byte_view(bytes).slice(i * size, size);
        const std::uint64_t first = entry.u64(32);
        const std::uint64_t last = entry.u64(40);
        const bool is_used = (entry.u64(0) | entry.u64(8)) != 0;
        if (is_used && first <= last) {
            add(gpt_kind, first, std::min(last - first, last_sector) + 1,
                static_cast<unsigned>(i + 1));
        }
        has_absurd_entry_ = has_absurd_entry_ || (is_used && first > last);
    }
    return true;
}

void table_walk::take_gpt()
{
    const std::uint64_t copy = sectors() != 0 ? sectors() - 1 : 0;
    if (!take_gpt_at(1, true)) {
        state = take_gpt_at(copy, true) ? table_state::copy : table_state::damaged;
        if (state == table_state::damaged && !take_gpt_at(1, false)) {
            take_gpt_at(copy, false);
        }
    }
    state = has_absurd_entry_ ? table_state::damaged : state;
}

struct type_name {
    std::uint8_t type;
    std::string_view name;
};

constexpr auto type_names = std::to_array<type_name>({
    {0x00, "empty"},
    {0x01, "fat12"},
    {0x02, "xenix root"},
    {0x03, "xenix /usr"},
    {0x04, "fat16"},
    {0x05, "exten"},
    {0x06, "fat"},
    {0x07, "ntfs or exfat"},
    {0x08, "aix boot"},
    {0x09, "aix data"},
    {0x0a, "os/2 boot"},
    {0x0b, "fat32"},
    {0x0c, "fat32"},
    {0x0e, "fat16 LBA mapped"},
    {0x0f, "exten"},
    {0x11, "hidden fat16"},
    {0x14, "hidden fat16"},
    {0x16, "hidden fat16"},
    {0x17, "hidden ntfs"},
    {0x1b, "hidden fat32"},
    {0x1c, "hidden fat32"},
    {0x1e, "hidden fat16"},
    {0x27, "hidden ntfs"},
    {0x82, "linux swap"},
    {0x83, "linux"},
    {0x86, "fat16 volume set"},
    {0x87, "ntfs volume set"},
    {0x88, "linux partition table"},
    {0x8b, "fat32 fault tolerant"},
    {0x8c, "fat32 fault tolerant"},
    {0x8d, "fat12"},
    {0x8e, "linux Logical Volume Mgr"},
    {0x90, "hidden fat16"},
    {0x91, "hidden fat16"},
    {0x92, "hidden fat16"},
    {0x93, "hidden linux"},
    {0x97, "hidden fat32"},
    {0x98, "hidden fat32"},
    {0xa0, "hibernation partition"},
    {0xa1, "hibernation partition"},
    {0xa6, "openbsd"},
    {0xaf, "hfs"},
    {0xee, "gpt"},
});

} // namespace

std::uint32_t sectors_per_cluster(std::uint8_t stored)
{
    constexpr unsigned most = 0x80;
    return stored <= most ? stored : power_of_two(256u - stored);
}

volume_identity identify_volume(byte_view first_block)
{
    constexpr std::uint64_t least = 512;
    if (!first_block.contains(0, least)) {
        return {};
    }
    for (const auto identify : {identify_by_oem_field, identify_fat, identify_others}) {
        if (const volume_identity found = identify(first_block); !found.name.empty()) {
            return found;
        }
    }
    return {};
}

std::string partition_type_name(std::uint32_t kind)
{
    const auto row =
        std::find_if(type_names.begin(), type_names.end(),
                     [kind](const type_name& each) { return each.type == (kind & ~guessed_kind); });
    std::string name(row == type_names.end() ? "unk" : row->name);
    return (kind & guessed_kind) != 0 ? name + " [guess]" : name;
}

disk_table read_partitions(RAW_DISK_IO& disk)
{
    constexpr std::uint64_t largest_sector = 16384;
    const std::vector<std::uint8_t> first = read_bytes(disk, 0, largest_sector);
    if (is_volume(byte_view(first))) {
        return {};
    }
    const std::uint64_t marked = sector_size_of(disk, byte_view(first));
    const std::uint64_t sector = marked != 0 ? marked : sector_size_by_gpt(disk);
    if (sector == 0) {
        return {};
    }
    table_walk walk(disk, sector);
    if (marked != 0) {
        walk.take_table(byte_view(first));
        if (walk.found.empty() && sector_size_by_gpt(disk) == sector) {
            walk.take_gpt(); // what stood in front of it was wiped
            if (walk.state == table_state::damaged) {
                return {};
            }
        }
    } else if (walk.take_gpt(); walk.state == table_state::damaged) {
        return {}; // what is left of an older use of the disk
    }
    return {walk.state, static_cast<std::uint32_t>(sector), std::move(walk.found)};
}

} // namespace ntfs
