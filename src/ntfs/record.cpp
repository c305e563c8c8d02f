#include "ntfs/record.h"

#include <algorithm>

namespace ntfs {

namespace {

constexpr std::uint64_t sector_size = 512; // of the update sequence, whatever the device's
constexpr std::uint16_t update_offset = 48;
constexpr std::uint16_t most_updates = 9;
constexpr std::uint16_t last_first_attribute = 72;
constexpr std::uint64_t attribute_head = 16;

bool begins_with(uni::byte_view bytes, std::string_view mark)
{
    return bytes.size() >= mark.size() &&
           std::equal(mark.begin(), mark.end(), bytes.bytes().begin(),
                      [](char a, std::uint8_t b) { return static_cast<std::uint8_t>(a) == b; });
}

record_kind kind_of(uni::byte_view bytes)
{
    if (begins_with(bytes, "INDX")) {
        return record_kind::index;
    }
    if (begins_with(bytes, "FILE") && bytes.u16(4) == update_offset &&
        bytes.u16(6) <= most_updates && bytes.u16(20) <= last_first_attribute) {
        return record_kind::file;
    }
    return begins_with(bytes, "BAAD") ? record_kind::bad : record_kind::unknown;
}

// The elements of an update sequence that are there and have a place, its check value the first.
std::uint64_t count_updates(uni::byte_view view)
{
    const std::uint64_t count = std::min<std::uint64_t>(view.u16(6), view.size() / sector_size + 1);
    const std::uint64_t sequence = view.u16(4);
    const std::uint64_t held = (view.size() - std::min<std::uint64_t>(view.size(), sequence)) / 2;
    return std::min(count, held);
}

} // namespace

bool was_written_whole(uni::byte_view bytes)
{
    const std::uint64_t sequence = bytes.u16(4);
    const std::uint64_t count = bytes.size() / sector_size + 1;
    if (bytes.u16(6) != count || count_updates(bytes) != count) {
        return false;
    }
    for (std::uint64_t i = 1; i < count; ++i) {
        if (bytes.u16(i * sector_size - 2) != bytes.u16(sequence)) {
            return false;
        }
    }
    return true;
}

record_kind fix_up(std::span<std::uint8_t> bytes)
{
    const uni::byte_view view(bytes);
    const record_kind kind = kind_of(view);
    if (kind != record_kind::file && kind != record_kind::index) {
        return kind;
    }
    const std::uint64_t sequence = view.u16(4);
    const std::uint64_t count = count_updates(view);
    for (std::uint64_t i = 1; i < count; ++i) {
        const auto place = static_cast<std::size_t>(i * sector_size - 2);
        const std::uint16_t kept = view.u16(sequence + i * 2);
        bytes[place] = static_cast<std::uint8_t>(kept & 0xff);
        bytes[place + 1] = static_cast<std::uint8_t>(kept >> 8);
    }
    return kind;
}

void fix_up_index_blocks(std::span<std::uint8_t> bytes)
{
    for (; bytes.size() >= index_block_size; bytes = bytes.subspan(index_block_size)) {
        if (begins_with(uni::byte_view(bytes), "INDX")) {
            fix_up(bytes.first(index_block_size));
        }
    }
}

uni::byte_view attribute::name() const noexcept
{
    const std::uint64_t offset = bytes_.u16(10);
    const std::uint64_t length = bytes_.u8(9) * std::uint64_t{2};
    return offset != 0 && bytes_.contains(offset, length) ? bytes_.slice(offset, length)
                                                          : uni::byte_view();
}

bool attribute::has_name(std::u16string_view wanted) const noexcept
{
    const uni::byte_view units = name();
    if (units.empty() || units.size() != wanted.size() * 2) {
        return false;
    }
    for (std::size_t i = 0; i < wanted.size(); ++i) {
        if (units.u16(i * 2) != wanted[i]) {
            return false;
        }
    }
    return true;
}

uni::byte_view attribute::value() const noexcept
{
    const std::uint64_t length = bytes_.u32(16);
    const std::uint64_t offset = bytes_.u16(20);
    return is_resident() && bytes_.contains(offset, length) ? bytes_.slice(offset, length)
                                                            : uni::byte_view();
}

uni::byte_view attribute::run_list() const noexcept
{
    constexpr std::uint16_t head = 64;
    const std::uint16_t offset = bytes_.u16(32);
    return offset >= head ? bytes_.from(offset) : uni::byte_view();
}

std::uint64_t attribute::compressed_size() const noexcept
{
    constexpr std::uint64_t place = 64;
    // Where it is missing, names and runs begin at its place.
    const std::uint16_t runs = bytes_.u16(32);
    return runs >= place + 8 ? bytes_.u64(place) : 0;
}

bool attribute_walk::next(attribute& out)
{
    const attribute found(record_.from(position_));
    const std::uint64_t length = found.bytes().u32(4);
    if (found.type() == attribute_type::end) {
        constexpr std::uint64_t end_mark = 8;
        is_damaged_ = position_ + end_mark < header_.used_size();
        return false;
    }
    if (found.bytes().size() < attribute_head || length < attribute_head || length > longest_ ||
        length > found.bytes().size()) {
        is_damaged_ = true;
        return false;
    }
    out = attribute(found.bytes().slice(0, length));
    position_ += length;
    return true;
}

} // namespace ntfs
