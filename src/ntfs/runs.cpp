#include "ntfs/runs.h"

#include <algorithm>
#include <iterator>

namespace ntfs {

namespace {

constexpr std::uint64_t most_clusters = 0xffffffff; // in one run
constexpr std::uint64_t last_cluster = std::uint64_t{1} << 48;
constexpr unsigned widest_number = 8;

std::uint64_t read_unsigned(uni::byte_view bytes)
{
    std::uint64_t value = 0;
    for (std::uint64_t i = 0; i < bytes.size(); ++i) {
        value |= std::uint64_t{bytes.u8(i)} << (i * 8);
    }
    return value;
}

std::int64_t read_signed(uni::byte_view bytes)
{
    std::uint64_t value = read_unsigned(bytes);
    const std::uint64_t bits = bytes.size() * 8;
    if (bits != 0 && bits < 64 && (value >> (bits - 1)) != 0) {
        value |= ~std::uint64_t{0} << bits;
    }
    return static_cast<std::int64_t>(value);
}

} // namespace

void decode_data_runs(const attribute& of, std::vector<byte_run>& runs)
{
    const uni::byte_view list = of.run_list();
    std::uint64_t lcn = 0;
    std::uint64_t vcn = of.first_vcn();
    for (std::uint64_t position = 0; position < list.size() && list.u8(position) != 0;) {
        const unsigned length_size = list.u8(position) & 15;
        const unsigned offset_size = list.u8(position) >> 4;
        const std::uint64_t size = 1 + length_size + offset_size;
        if (length_size > widest_number || offset_size > widest_number ||
            !list.contains(position, size)) {
            return;
        }
        byte_run run;
        run.raw = list.slice(position, size);
        run.position = position;
        run.length = read_unsigned(run.raw.slice(1, length_size));
        run.offset = read_signed(run.raw.from(1 + length_size));
        run.is_sparse = offset_size == 0;
        // A step out of the volume, also one below its first cluster, wraps to beyond the last.
        lcn += static_cast<std::uint64_t>(run.offset);
        if (run.length > most_clusters || lcn > last_cluster || vcn > last_cluster) {
            return;
        }
        run.lcn = lcn;
        run.vcn = vcn;
        position += size;
        if (list.size() - position >= 2) {
            for (std::uint64_t i = 0; i < run.behind.size(); ++i) {
                run.behind[i] = list.u8(position + i);
            }
        }
        vcn += run.length;
        runs.push_back(run);
    }
}

void runs_to_extents(const std::vector<byte_run>& runs, std::vector<extent>& extents)
{
    for (const byte_run& run : runs) {
        const bool is_first = &run == &runs.front();
        const bool is_sparse = run.is_sparse || (run.offset == 0 && !is_first);
        if (run.length != 0) {
            extents.push_back({run.lcn, run.vcn, is_sparse, run.length});
        }
    }
}

std::uint64_t extent_byte_length(const std::vector<extent>& extents, std::uint64_t cluster_size,
                                 bool skip_sparse)
{
    constexpr std::uint64_t most = std::uint64_t{1} << 63;
    std::uint64_t bytes = 0;
    for (const extent& part : extents) {
        if (!part.is_sparse || !skip_sparse) {
            // Below 2^32 clusters of less than 2^24 bytes each.
            bytes = std::min(most, bytes + part.length * cluster_size);
        }
    }
    return bytes;
}

const extent* find_extent(const std::vector<extent>& extents, std::uint64_t vcn)
{
    const auto behind = std::upper_bound(
        extents.begin(), extents.end(), vcn,
        [](std::uint64_t wanted, const extent& part) { return wanted < part.vcn; });
    if (behind == extents.begin()) {
        return nullptr;
    }
    const extent& found = *std::prev(behind);
    return vcn - found.vcn < found.length ? &found : nullptr;
}

bool cluster_use::add(const extent& part)
{
    if (part.is_sparse) {
        return true;
    }
    std::uint64_t first = part.lcn;
    std::uint64_t end = part.lcn + part.length;
    std::uint64_t again = 0;
    auto span = used_.upper_bound(first);
    if (span != used_.begin() && std::prev(span)->second >= first) {
        --span;
    }
    while (span != used_.end() && span->first <= part.lcn + part.length) {
        again += std::min(part.lcn + part.length, span->second) - std::max(part.lcn, span->first);
        first = std::min(first, span->first);
        end = std::max(end, span->second);
        span = used_.erase(span);
    }
    used_.emplace(first, end);
    const bool fits = again <= left_;
    left_ -= std::min(again, left_);
    return fits;
}

void sort_extents(std::vector<extent>& extents)
{
    std::stable_sort(extents.begin(), extents.end(),
                     [](const extent& a, const extent& b) { return a.vcn < b.vcn; });
}

} // namespace ntfs
