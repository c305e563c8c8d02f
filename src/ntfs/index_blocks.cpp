#include "ntfs/index_blocks.h"

#include <algorithm>

#include "ntfs/record.h"

namespace ntfs {

namespace {

constexpr std::uint64_t largest_piece = 0x100000;
constexpr std::uint32_t block_mark = 0x58444e49; // "INDX"

// Extents of an index in their order, up to where they use clusters over and over.
void settle_extents(const ntfs_volume& volume, std::vector<extent>& extents)
{
    sort_extents(extents);
    cluster_use use(most_clusters_again(volume));
    extents.erase(std::find_if_not(extents.begin(), extents.end(),
                                   [&use](const extent& part) { return use.add(part); }),
                  extents.end());
}

// Where the first block begins that is not all sparse.
std::uint64_t behind_sparse(const ntfs_volume& volume, const std::vector<extent>& extents,
                            std::uint64_t from)
{
    const extent* const part = find_extent(extents, from / volume.cluster_size);
    if (part == nullptr || !part->is_sparse) {
        return from;
    }
    const std::uint64_t end = (part->vcn + part->length) * volume.cluster_size;
    return std::max(from, end / index_block_size * index_block_size);
}

} // namespace

bool visit_index_blocks(ntfs_volume& volume, std::vector<extent>& extents,
                        const index_block_visitor& visit)
{
    settle_extents(volume, extents);
    const std::uint64_t size =
        std::min(extent_byte_length(extents, volume.cluster_size, false), largest_content(volume));
    std::vector<std::uint8_t> piece;
    std::uint64_t done = 0;
    while ((done = behind_sparse(volume, extents, done)) < size) {
        piece.resize(static_cast<std::size_t>(std::min(size - done, largest_piece)));
        const std::uint64_t got = read_extents(volume, extents, done, piece);
        const std::span<std::uint8_t> blocks(piece);
        for (std::size_t at = 0; at + index_block_size <= got; at += index_block_size) {
            const std::span<std::uint8_t> bytes = blocks.subspan(at, index_block_size);
            const uni::byte_view block(bytes);
            if (block.u32(0) == block_mark) {
                const bool is_whole = was_written_whole(block);
                fix_up(bytes);
                visit((done + at) / index_block_size, block, is_whole);
            }
        }
        done += got;
        if (got != piece.size()) {
            break;
        }
    }
    return done != 0;
}

} // namespace ntfs
