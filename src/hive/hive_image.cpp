#include "hive/hive_image.h"

#include <optional>
#include <utility>

namespace hive {

namespace {

constexpr std::uint64_t base_block_size = 4096;
constexpr std::uint64_t smallest_hive = 4496;
constexpr std::uint64_t inner_bin = 560;
constexpr std::uint64_t log_mark_at = 512;
constexpr std::uint64_t largest_offset = 0x7fffffff;

// The first "hbin" where a bin may begin or up to three bytes behind such a place; the last four
// bytes are none.
std::optional<std::uint64_t> find_bin(const hive_bytes& bytes, std::uint64_t step)
{
    constexpr std::uint64_t part = 0x100000;
    constexpr std::uint64_t overlap = 8;
    io::byte_vector room;
    for (std::uint64_t begin = 0; begin < bytes.size() && begin <= largest_offset; begin += part) {
        const uni::byte_view here = bytes.pass(begin, part + overlap, room);
        for (std::uint64_t place = 0; place < part && place + 4 < here.size(); place += step) {
            for (std::uint64_t at = place; at < place + 4 && at + 4 < here.size(); ++at) {
                if (here.u32(at) == bin_mark) {
                    return begin + at;
                }
            }
        }
        if (here.size() < part) {
            break; // the end, or what cannot be read
        }
    }
    return std::nullopt;
}

// Where the bins begin; nothing for a file without any. The whole file is looked at only where no bin
// stands at its place, as far as cells may lie.
std::optional<std::uint64_t> find_bins_base(const hive_bytes& bytes)
{
    const uni::byte_view head = bytes.at(0, smallest_hive);
    if (head.u32(base_block_size) == bin_mark || head.u32(inner_bin) == bin_mark) {
        return base_block_size;
    }
    const std::uint32_t mark = head.u32(log_mark_at);
    const auto found = find_bin(bytes, mark == entry_mark ? 8 : 512);
    if (!found) {
        return std::nullopt;
    }
    const uni::byte_view bin = bytes.at(*found, smallest_hive + 1);
    const bool is_first_bin = bin.size() > smallest_hive && bin.u32(4) == 0;
    return is_first_bin && mark != old_log_mark && mark != entry_mark ? *found : base_block_size;
}

} // namespace

hive_image::hive_image(hive_bytes bytes) : bytes_(std::move(bytes))
{
    constexpr std::uint64_t root_at = 36;
    const uni::byte_view image = bytes_.at(0, smallest_hive);
    if (image.size() < smallest_hive || image.u32(0) != hive_mark) {
        return;
    }
    const auto base = find_bins_base(bytes_);
    if (!base) {
        return;
    }
    hive_bins_base_ = *base;
    root_cell_ = offset_of(image.u32(root_at));
    is_open_ = true;
}

uni::byte_view hive_image::cell_at(std::uint64_t offset, std::uint64_t count) const
{
    return offset > largest_offset ? uni::byte_view() : bytes_.at(offset, count);
}

std::uint64_t hive_image::cell_size(uni::byte_view cell) noexcept
{
    const std::uint32_t size = cell.u32(0);
    return size > largest_offset ? std::uint64_t{0x100000000} - size : size;
}

} // namespace hive
