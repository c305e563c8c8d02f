#include "ntfs/compression.h"

#include <algorithm>
#include <bit>

#include "ntfs/volume.h"

namespace ntfs {

namespace {

constexpr std::size_t chunk_size = 4096;
constexpr std::uint16_t chunk_is_compressed = 0x8000;
constexpr std::uint16_t chunk_size_mask = 0x0fff;

// Repeats what begins `distance` before `at`; the two may overlap. False if it does not fit.
bool copy_back(std::span<std::uint8_t> out, std::size_t& at, std::size_t distance,
               std::size_t length)
{
    if (distance > at || length > out.size() - at) {
        return false;
    }
    for (; length != 0; --length, ++at) {
        out[at] = out[at - distance];
    }
    return true;
}

// Expands one chunk to at most `out`; gives the bytes made, or nothing for a damaged one.
bool expand_chunk(uni::byte_view from, std::span<std::uint8_t> out, std::size_t& made)
{
    made = 0;
    for (std::uint64_t position = 0; position < from.size();) {
        unsigned tokens = from.u8(position++);
        for (int i = 0; i < 8 && position < from.size(); ++i, tokens >>= 1) {
            if ((tokens & 1) == 0) {
                if (made == out.size()) {
                    return false;
                }
                out[made++] = from.u8(position++);
                continue;
            }
            if (!from.contains(position, 2) || made == 0) {
                return false;
            }
            const unsigned word = from.u16(position);
            position += 2;
            const unsigned place = static_cast<unsigned>(made - 1) | 15;
            const unsigned length_bits = 16 - static_cast<unsigned>(std::bit_width(place));
            if (!copy_back(out, made, (word >> length_bits) + 1,
                           (word & ((1u << length_bits) - 1)) + 3)) {
                return false;
            }
        }
    }
    return true;
}

// The clusters that a unit has, which precede the sparse ones that fill it up.
std::uint64_t clusters_of_unit(const std::vector<extent>& extents, std::uint64_t vcn)
{
    std::uint64_t count = 0;
    while (count < compression_unit) {
        const extent* const part = find_extent(extents, vcn + count);
        if (part == nullptr || part->is_sparse) {
            break;
        }
        count += part->length - (vcn + count - part->vcn);
    }
    return std::min(count, compression_unit);
}

// Expands the unit from its clusters, of which there are `stored`.
void expand_unit(ntfs_volume& volume, const std::vector<extent>& extents, std::uint64_t vcn,
                 std::uint64_t stored, expanded_unit& unit)
{
    const auto cluster = static_cast<std::size_t>(volume.cluster_size);
    std::vector<std::uint8_t> packed(static_cast<std::size_t>(stored) * cluster);
    unit.vcn = vcn;
    unit.bytes.resize(compression_unit * cluster);
    unit.sound = 0;
    if (read_extents(volume, extents, vcn * cluster, packed) == packed.size()) {
        unit.sound = decompress(uni::byte_view(packed), unit.bytes);
    }
}

} // namespace

std::uint64_t decompress(uni::byte_view from, std::span<std::uint8_t> out)
{
    std::size_t done = 0;
    std::uint64_t position = 0;
    while (done < out.size()) {
        const std::span<std::uint8_t> chunk =
            out.subspan(done, std::min(chunk_size, out.size() - done));
        const std::uint16_t head = from.u16(position);
        if (head == 0) {
            std::fill(out.begin() + static_cast<std::ptrdiff_t>(done), out.end(), std::uint8_t{0});
            return out.size();
        }
        const std::uint64_t size = (head & chunk_size_mask) + std::uint64_t{1};
        if (!from.contains(position + 2, size)) {
            return done;
        }
        const uni::byte_view body = from.slice(position + 2, size);
        std::size_t made = 0;
        if ((head & chunk_is_compressed) == 0) {
            made = std::min<std::size_t>(chunk.size(), static_cast<std::size_t>(size));
            std::copy_n(body.bytes().begin(), made, chunk.begin());
        } else if (!expand_chunk(body, chunk, made)) {
            return done;
        }
        std::fill(chunk.begin() + static_cast<std::ptrdiff_t>(made), chunk.end(), std::uint8_t{0});
        done += chunk.size();
        position += 2 + size;
    }
    return done;
}

std::uint64_t read_compressed(ntfs_volume& volume, const std::vector<extent>& extents,
                              std::uint64_t offset, std::span<std::uint8_t> out,
                              expanded_unit& last)
{
    const std::uint64_t unit = compression_unit * volume.cluster_size;
    std::uint64_t done = 0;
    while (done < out.size()) {
        const std::uint64_t vcn = (offset + done) / unit * compression_unit;
        const std::uint64_t inner = (offset + done) % unit;
        const std::span<std::uint8_t> piece =
            out.subspan(static_cast<std::size_t>(done),
                        static_cast<std::size_t>(std::min(out.size() - done, unit - inner)));
        const std::uint64_t stored = clusters_of_unit(extents, vcn);
        std::uint64_t got = 0;
        if (stored == 0 || stored == compression_unit) {
            got = read_extents(volume, extents, offset + done, piece);
        } else {
            if (last.vcn != vcn) {
                expand_unit(volume, extents, vcn, stored, last);
            }
            got = std::min<std::uint64_t>(piece.size(), last.sound - std::min(last.sound, inner));
            std::copy_n(last.bytes.begin() + static_cast<std::ptrdiff_t>(inner), got,
                        piece.begin());
        }
        done += got;
        if (got != piece.size()) {
            break;
        }
    }
    return done;
}

} // namespace ntfs
