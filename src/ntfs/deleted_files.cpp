#include "ntfs/deleted_files.h"

#include <algorithm>
#include <vector>

namespace ntfs {

namespace {

constexpr std::uint64_t first_user_entry = 16;

bool has_content(const stored_file& file)
{
    return std::ranges::any_of(file.streams, [](const record_row& stream) {
        return stream.is_resident ? !stream.value.empty()
                                  : std::ranges::any_of(stream.extents, [](const extent& part) {
                                        return !part.is_sparse;
                                    });
    });
}

// Clusters of a stretch of the volume that its bitmap has as free; none if it cannot be read.
std::optional<std::uint64_t> free_clusters(ntfs_volume& volume, std::uint64_t first,
                                           std::uint64_t count)
{
    constexpr std::uint64_t piece_size = 0x10000;
    std::vector<std::uint8_t> bits;
    std::uint64_t free = 0;
    for (std::uint64_t at = first; at < first + count;) {
        bits.resize(
            static_cast<std::size_t>(std::min(piece_size, (first + count + 7) / 8 - at / 8)));
        if (read_extents(volume, volume.bitmap_extents, at / 8, bits) != bits.size()) {
            return std::nullopt;
        }
        const std::uint64_t end = std::min(first + count, (at / 8 + bits.size()) * 8);
        for (const std::uint64_t base = at / 8 * 8; at < end; ++at) {
            const std::uint64_t bit = at - base;
            free += ((bits[static_cast<std::size_t>(bit / 8)] >> (bit % 8)) & 1) == 0 ? 1 : 0;
        }
    }
    return free;
}

} // namespace

void visit_deleted_files(ntfs_volume& volume, const deleted_visitor& visit)
{
    const std::uint64_t most =
        volume.record_alloc_size == 0
            ? 0
            : static_cast<std::uint64_t>(volume.reader->total_size()) / volume.record_alloc_size;
    std::vector<std::uint8_t> buffer;
    stored_file file;
    for (std::uint64_t entry = first_user_entry; entry < std::min(volume.record_count, most);
         ++entry) {
        mft_entries_ctx context(volume);
        if (!read_file_record(context, entry, buffer) || context.bad ||
            file_record(buffer).is_in_use() || file_record(buffer).is_directory() ||
            file_record(buffer).base_reference() != 0) {
            continue;
        }
        if (read_stored_file(context, entry, file) == record_state::read && !file.names.empty() &&
            has_content(file)) {
            visit(file);
        }
    }
}

cluster_counts count_clusters(ntfs_volume& volume, const record_row& stream)
{
    // What a stream may have at the most that lies on the volume, whatever its runs say.
    std::uint64_t left = volume.total_clusters;
    cluster_counts counts;
    for (const extent& part : stream.extents) {
        const std::uint64_t count =
            part.is_sparse || part.lcn >= volume.total_clusters
                ? 0
                : std::min({part.length, volume.total_clusters - part.lcn, left});
        const auto free = free_clusters(volume, part.lcn, count);
        counts.free = counts.free && free ? std::optional(*counts.free + *free) : std::nullopt;
        counts.all += part.is_sparse ? 0 : part.length;
        left -= count;
    }
    return counts;
}

} // namespace ntfs
