#include "hive/cells.h"

#include <algorithm>

namespace hive {

std::string bytes_as_text(uni::byte_view bytes)
{
    return {bytes.bytes().begin(), bytes.bytes().end()};
}

uni::byte_view key_at(const hive_image& image, std::uint64_t offset)
{
    const uni::byte_view head = image.cell_at(offset, key_head);
    return image.cell_at(offset, key_head + head.u16(key_field::name_length));
}

std::optional<uni::byte_view> good_key_name(uni::byte_view key)
{
    const std::uint16_t length = key.u16(key_field::name_length);
    if (!key.contains(key_field::name, length) || key.u16(mark_at) != key_mark || length == 0 ||
        key.u32(key_field::parent) == 0 || key.u64(key_field::last_write) == 0) {
        return std::nullopt;
    }
    return key.slice(key_field::name, length);
}

uni::byte_view entries_at(const hive_image& image, std::uint64_t offset, std::uint64_t head,
                          std::uint64_t most)
{
    const std::uint64_t size = hive_image::cell_size(image.cell_at(offset, sizeof(std::uint32_t)));
    return image.cell_at(offset, std::min(size, head + most)).from(head);
}

} // namespace hive
