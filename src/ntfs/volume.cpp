#include "ntfs/volume.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <optional>

#include "ntfs/attributes.h"
#include "ntfs/disk_layout.h"

namespace ntfs {

namespace {

constexpr std::string_view oem_id = "NTFS    ";
constexpr std::size_t oem_place = 3;
constexpr std::uint64_t largest_cluster = 2 << 20;
constexpr std::uint32_t usual_record_size = 1024;
constexpr std::uint32_t largest_record = 1 << 20;
constexpr std::uint32_t smallest_record = 48; // its header
constexpr std::uint64_t bitmap_entry = 6;

constexpr std::uint64_t first_window = 4096;
constexpr std::uint64_t largest_window = 0x40000;

// Record size in bytes from the boot sector's byte; 0 for an unknown one.
std::uint64_t record_size_of(std::uint8_t stored, std::uint32_t cluster_size)
{
    constexpr unsigned negative = 0x80;
    constexpr unsigned widest_shift = 20; // largest_record
    if (stored < negative) {
        return std::uint64_t{stored} * cluster_size;
    }
    const unsigned shift = 256u - stored;
    return shift <= widest_shift ? std::uint64_t{1} << shift : largest_record + 1;
}

bool has_ntfs_mark(const ntfs_volume& volume)
{
    return std::equal(oem_id.begin(), oem_id.end(), volume.boot_sector.begin() + oem_place);
}

bool read_boot_sector(ntfs_volume& volume)
{
    if (volume.reader->read(volume.boot_sector, volume.volume_offset) !=
        volume.boot_sector.size()) {
        volume.boot_sector.fill(0);
        return false;
    }
    const uni::byte_view boot(volume.boot_sector);
    if (!has_ntfs_mark(volume)) {
        return false;
    }
    volume.sectors_per_cluster = sectors_per_cluster(boot.u8(13));
    const std::uint64_t cluster_size = boot.u16(11) * std::uint64_t{volume.sectors_per_cluster};
    if (cluster_size == 0 || cluster_size > largest_cluster) {
        return false;
    }
    volume.cluster_size = static_cast<std::uint32_t>(cluster_size);
    const std::uint64_t record_size = record_size_of(boot.u8(64), volume.cluster_size);
    constexpr std::uint64_t last_byte = std::uint64_t{1} << 62;
    if (record_size > largest_record || boot.u64(48) > last_byte / volume.cluster_size) {
        return false;
    }
    volume.record_size =
        record_size == 0 ? usual_record_size : static_cast<std::uint32_t>(record_size);
    volume.clusters_per_record = volume.record_size / volume.cluster_size;
    volume.total_clusters = boot.u64(40) / volume.sectors_per_cluster;
    volume.mft_offset = boot.u64(48) * volume.cluster_size;
    return true;
}

// Reads record 0, which tells where all others lie.
bool read_first_record(ntfs_volume& volume, std::vector<std::uint8_t>& buffer)
{
    buffer.resize(volume.record_size);
    if (volume.reader->read(buffer, volume.volume_offset + volume.mft_offset) != buffer.size()) {
        buffer.clear();
    }
    return !buffer.empty();
}

// Reads record 0 in its true size, which its count of update sequence elements tells.
bool read_first_record_whole(ntfs_volume& volume, std::vector<std::uint8_t>& buffer)
{
    constexpr std::uint32_t update_unit = 512;
    if (!read_first_record(volume, buffer) || fix_up(buffer) != record_kind::file) {
        return false;
    }
    const std::uint32_t updates = file_record(buffer).update_count();
    const std::uint32_t true_size = updates > 1 ? (updates - 1) * update_unit : 0;
    if (true_size <= volume.record_size) {
        return true;
    }
    volume.record_size = true_size;
    return read_first_record(volume, buffer) && fix_up(buffer) == record_kind::file;
}

// Takes the extents of $MFT from record 0, then from the records that extend it, each of which the
// extents known so far must locate.
void find_mft_extents(ntfs_volume& volume, const std::vector<std::uint8_t>& first)
{
    // Each part that comes out of order costs a sorting.
    int left_out_of_order = 64;
    cluster_use use(most_clusters_again(volume));
    const auto take = [&](const attribute& found) {
        std::vector<extent>& known = volume.mft_extents;
        if (found.type() != attribute_type::data || found.is_named() || found.is_resident()) {
            return;
        }
        const bool in_order =
            known.empty() || found.first_vcn() >= known.back().vcn + known.back().length;
        if (!in_order && left_out_of_order-- <= 0) {
            return;
        }
        std::vector<byte_run> runs;
        std::vector<extent> part;
        decode_data_runs(found, runs);
        runs_to_extents(runs, part);
        const auto end = std::find_if_not(part.begin(), part.end(),
                                          [&use](const extent& each) { return use.add(each); });
        known.insert(known.end(), part.begin(), end);
        if (!in_order) {
            sort_extents(known);
        }
    };
    mft_entries_ctx context(volume);
    const std::uint32_t types[] = {attribute_type::data};
    visit_attributes(context, 0, file_record(first), volume.record_size, types, take);
}

// Where a record lies in $MFT; beyond what the volume can hold there is none.
bool place_of(const ntfs_volume& volume, std::uint64_t entry, std::uint64_t& position)
{
    const std::uint64_t size = volume.record_alloc_size;
    const std::uint64_t most = static_cast<std::uint64_t>(volume.reader->total_size()) / size;
    position = entry * size;
    return entry < most;
}

// Bytes of $MFT, read ahead.
bool read_through_window(ntfs_volume& volume, std::uint64_t position, std::span<std::uint8_t> out)
{
    record_window& window = volume.window;
    const std::uint64_t end = window.position + window.bytes.size();
    if (position < window.position || position + out.size() > end) {
        const bool goes_on =
            position >= window.position && position - window.position <= window.bytes.size() * 2;
        std::uint64_t size = goes_on ? window.bytes.size() * 2 : first_window;
        size = std::max<std::uint64_t>(out.size(), std::min(size, largest_window));
        window.position = position;
        window.bytes.resize(static_cast<std::size_t>(size));
        const std::uint64_t got = read_extents(volume, volume.mft_extents, position, window.bytes);
        window.bytes.resize(static_cast<std::size_t>(got));
    }
    if (position + out.size() > window.position + window.bytes.size()) {
        return false;
    }
    const auto from = static_cast<std::ptrdiff_t>(position - window.position);
    std::copy_n(window.bytes.begin() + from, out.size(), out.begin());
    return true;
}

// The bytes of a record as they are on the volume.
bool read_record_bytes(ntfs_volume& volume, std::uint64_t entry, std::vector<std::uint8_t>& buffer,
                       std::uint64_t size)
{
    if (entry == 0) {
        return read_first_record(volume, buffer);
    }
    std::uint64_t position = 0;
    if (volume.record_alloc_size == 0 || !place_of(volume, entry, position)) {
        return false;
    }
    const extent* const part = find_extent(volume.mft_extents, position / volume.cluster_size);
    if (part == nullptr || part->is_sparse) {
        return false;
    }
    buffer.resize(static_cast<std::size_t>(size));
    return read_through_window(volume, position, buffer);
}

// Where a cluster lies in what the reader reads; false for one beyond its end.
bool place_of_cluster(const ntfs_volume& volume, std::uint64_t lcn, std::uint64_t& place)
{
    const auto end =
        static_cast<std::uint64_t>(std::max<std::int64_t>(volume.reader->total_size(), 0));
    place = volume.volume_offset + lcn * volume.cluster_size;
    return lcn <= end / volume.cluster_size;
}

volume_state state_of(const ntfs_volume& volume)
{
    return !volume.reader          ? volume_state::closed
           : has_ntfs_mark(volume) ? volume_state::no_records
                                   : volume_state::not_ntfs;
}

std::unique_ptr<ntfs_volume> mounted(std::unique_ptr<RAW_DISK_IO> reader, volume_state& state)
{
    auto volume = std::make_unique<ntfs_volume>();
    if (reader->is_open()) {
        volume->reader = std::move(reader);
    }
    std::uint64_t mft_offset = 0;
    if (!mount_ntfs_volume(*volume, mft_offset)) {
        state = state_of(*volume);
        return nullptr;
    }
    state = volume_state::mounted;
    return volume;
}

} // namespace

void trace_line(const mft_entries_ctx& context, const char* format, ...)
{
    if (!context.trace) {
        return;
    }
    std::va_list values;
    va_start(values, format);
    std::va_list again;
    va_copy(again, values);
    const int length = std::vsnprintf(nullptr, 0, format, values);
    va_end(values);
    std::string line(static_cast<std::size_t>(std::max(length, 0)) + 1, '\0');
    std::vsnprintf(line.data(), line.size(), format, again);
    va_end(again);
    line.pop_back();
    context.trace(line);
}

std::unique_ptr<ntfs_volume> open_ntfs_volume(std::string_view text, volume_source source,
                                              const platform::device_opener& open_device,
                                              volume_state* state)
{
    volume_state ignored = volume_state::closed;
    volume_state& told = state != nullptr ? *state : ignored;
    told = volume_state::closed;
    if (text.empty()) {
        return nullptr;
    }
    return mounted(source == volume_source::letter
                       ? std::make_unique<RAW_DISK_IO>(std::string{text.front(), ':'},
                                                       disk_mode::volume, open_device)
                       : std::make_unique<RAW_DISK_IO>(text, disk_mode::device, open_device),
                   told);
}

std::unique_ptr<ntfs_volume> open_ntfs_volume(std::unique_ptr<io::byte_source> source,
                                              volume_state* state)
{
    volume_state ignored = volume_state::closed;
    return mounted(std::make_unique<RAW_DISK_IO>(std::move(source)),
                   state != nullptr ? *state : ignored);
}

bool mount_ntfs_volume(ntfs_volume& volume, std::uint64_t& mft_offset)
{
    if (!volume.mounted) {
        std::vector<std::uint8_t> first;
        if (!volume.reader || !read_boot_sector(volume) ||
            !read_first_record_whole(volume, first)) {
            return false;
        }
        volume.record_alloc_size = file_record(first).allocated_size();
        if (volume.record_alloc_size < smallest_record ||
            volume.record_alloc_size > largest_record) {
            return false;
        }
        find_mft_extents(volume, first);
        const std::uint64_t bytes =
            volume.mft_extents.empty()
                ? volume.cluster_size
                : extent_byte_length(volume.mft_extents, volume.cluster_size, false);
        volume.record_count = bytes / volume.record_alloc_size;
        volume.mounted = true;
        // The bitmap is no condition.
        mft_entries_ctx context(volume);
        std::vector<record_row> rows;
        if (list_record_attributes(context, bitmap_entry, rows)) {
            const auto bitmap = std::find_if(rows.begin(), rows.end(), is_main_content);
            if (bitmap != rows.end()) {
                volume.bitmap_extents = bitmap->extents;
                // It has a bit for each cluster, and so no holes.
                std::erase_if(volume.bitmap_extents,
                              [](const extent& part) { return part.is_sparse; });
            }
        }
    }
    mft_offset = volume.mft_offset;
    return true;
}

std::uint64_t most_clusters_again(const ntfs_volume& volume)
{
    constexpr std::uint64_t most = 16 << 20;
    return most / volume.cluster_size;
}

std::uint64_t largest_content(const ntfs_volume& volume)
{
    constexpr std::uint64_t room = std::uint64_t{64} << 20;
    constexpr std::uint64_t most = 0xffffffff;
    return std::min(most, static_cast<std::uint64_t>(volume.reader->total_size()) + room);
}

std::uint64_t read_clusters(ntfs_volume& volume, std::uint64_t lcn, std::span<std::uint8_t> out)
{
    std::uint64_t start = 0;
    if (!place_of_cluster(volume, lcn, start)) {
        return 0;
    }
    std::uint64_t done = volume.reader->read(out, start);
    if (done == out.size() || out.size() <= volume.cluster_size) {
        return done;
    }
    // A device may refuse the whole for one bad sector.
    for (done -= done % volume.cluster_size; done < out.size();) {
        const std::span<std::uint8_t> cluster =
            out.subspan(static_cast<std::size_t>(done),
                        std::min<std::size_t>(volume.cluster_size,
                                              out.size() - static_cast<std::size_t>(done)));
        const std::uint64_t got = volume.reader->read(cluster, start + done);
        done += got;
        if (got != cluster.size()) {
            break;
        }
    }
    return done;
}

std::uint64_t read_extents(ntfs_volume& volume, const std::vector<extent>& extents,
                           std::uint64_t byte_offset, std::span<std::uint8_t> out)
{
    const std::uint64_t cluster = volume.cluster_size;
    std::uint64_t done = 0;
    while (done < out.size()) {
        const std::uint64_t vcn = (byte_offset + done) / cluster;
        const std::uint64_t inner = (byte_offset + done) % cluster;
        const extent* const part = find_extent(extents, vcn);
        if (part == nullptr) {
            break;
        }
        const std::uint64_t skipped = vcn - part->vcn;
        const std::uint64_t count =
            std::min(out.size() - done, (part->length - skipped) * cluster - inner);
        const std::span<std::uint8_t> piece =
            out.subspan(static_cast<std::size_t>(done), static_cast<std::size_t>(count));
        std::uint64_t got = count;
        if (part->is_sparse) {
            std::fill(piece.begin(), piece.end(), std::uint8_t{0});
        } else if (inner == 0) {
            got = read_clusters(volume, part->lcn + skipped, piece);
        } else {
            std::uint64_t place = 0;
            const bool is_there = place_of_cluster(volume, part->lcn + skipped, place);
            got = is_there ? volume.reader->read(piece, place + inner) : 0;
        }
        done += got;
        if (got != count) {
            break;
        }
    }
    return done;
}

bool read_file_record(mft_entries_ctx& context, std::uint64_t entry,
                      std::vector<std::uint8_t>& buffer)
{
    context.bad = context.torn = false;
    if (read_record_bytes(context.volume, entry, buffer, context.volume.record_size)) {
        context.torn = !was_written_whole(uni::byte_view(buffer));
        const record_kind kind = fix_up(buffer);
        if (kind == record_kind::bad) {
            context.bad = true;
            trace_line(context, "err: fixup_mft type: BAAD");
        }
        if (kind != record_kind::unknown) {
            return true;
        }
    }
    buffer.clear();
    return false;
}

} // namespace ntfs
