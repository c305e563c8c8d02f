#include "hive/value_reader.h"

#include <algorithm>
#include <utility>

#include "uni/utf.h"

namespace hive {

namespace {

constexpr std::uint32_t inline_bit = 0x80000000;
constexpr std::uint64_t largest_inline = 4;
constexpr std::uint64_t largest_plain = 16351;     // a longer value may be a big one
constexpr std::uint64_t longest_value_name = 4095; // in bytes; a longer one reads as none

// Bounds of the work on an image: see the header.
constexpr std::uint64_t mebibyte = 0x100000;
constexpr std::uint64_t granted_values = 0x1000;
constexpr std::uint64_t small_part = 0x1000;
constexpr std::uint64_t largest_medium = 0x10000;
constexpr std::uint64_t granted_entries = 512 * entry_size; // of a list of values

// Which of the two forms a name has is seen from its second byte, not from a flag.
std::string value_name(uni::byte_view stored)
{
    if (stored.empty() || stored.size() > longest_value_name) {
        return {};
    }
    if (stored.size() == 1 || stored.u8(1) != 0) {
        return bytes_as_text(stored);
    }
    std::string name;
    const std::uint64_t taken = uni::utf16_to_text(stored, name);
    if (stored.size() - taken > 2) {
        name += bytes_as_text(stored); // text behind a zero may be hidden there: it shows too
    }
    return name;
}

allowance quarter_of(const hive_image& image)
{
    const std::uint64_t all = image.size() / 4 + 4 * mebibyte;
    return {0, all, all};
}

} // namespace

value_reader::value_reader(const hive_image& image)
    : image_(image), entries_(shares_of(image, granted_entries)),
      values_(shares_of(image, granted_values)), small_(0, small_part, image.size() + 8 * mebibyte),
      medium_(quarter_of(image)), large_(quarter_of(image))
{}

// A refusal is the last for its key, so that it does not go on asking.
bool value_reader::take_data(std::uint64_t bytes) noexcept
{
    allowance& beyond = bytes > largest_medium ? large_ : medium_;
    if (small_.take(bytes) || beyond.take(bytes)) {
        return true;
    }
    is_refused_ = true;
    is_damaged_ = true;
    beyond.exhaust();
    return false;
}

uni::byte_view value_reader::value_at(std::uint64_t offset) const
{
    const uni::byte_view head = image_.cell_at(offset, value_head);
    return image_.cell_at(offset, value_head + head.u16(value_field::name_length));
}

bool value_reader::enum_values(std::uint64_t key,
                               const std::function<bool(const hive_value_item&)>& take)
{
    const uni::byte_view cell = key_at(image_, key);
    const std::uint32_t count = cell.u32(key_field::value_count);
    const std::uint32_t list_reference = cell.u32(key_field::value_list);
    const auto key_name = good_key_name(cell);
    small_.renew();
    entries_.renew();
    values_.renew();
    is_refused_ = false;
    if (key_name && count == 0) {
        return false;
    }
    if (!key_name || list_reference == 0 || !take_data(key_head + key_name->size())) {
        is_damaged_ = true;
        return false;
    }
    // Whoever takes a value takes its path with it.
    const std::uint64_t long_name = key_name->size() > longest_usual_name ? key_name->size() : 0;
    const uni::byte_view entries =
        entries_at(image_, image_.offset_of(list_reference), contents_at, count * entry_size);
    std::uint64_t at = 0;
    for (; entries.contains(at, entry_size) && entries_.take(entry_size); at += entry_size) {
        const std::uint64_t offset = image_.offset_of(entries.u32(at));
        hive_value_item item;
        if (!take_value(value_at(offset), offset, long_name, item)) {
            is_damaged_ = true;
        } else if (!take(item)) {
            return true;
        }
    }
    is_damaged_ |= at < count * entry_size;
    return true;
}

// A value as an item; one that is none is an empty item. False for one that is passed over.
bool value_reader::take_value(const uni::byte_view& value, std::uint64_t offset,
                              std::uint64_t long_name, hive_value_item& item)
{
    if (!value.contains(0, sizeof(std::uint32_t))) {
        return false;
    }
    if (value.u16(mark_at) != value_mark) {
        is_damaged_ = true;
        return true;
    }
    const std::uint16_t name_length = value.u16(value_field::name_length);
    const std::uint64_t shown = name_length > longest_value_name ? 0 : name_length;
    if (!value.contains(value_field::name, name_length) ||
        !values_.take(value_head + entry_size + shown + long_name)) {
        return false;
    }
    item = {offset, hive_image::cell_size(value),
            value_name(value.slice(value_field::name, name_length))};
    return true;
}

// Whether a cell holds a big value; notes those of its segments that can be read.
bool value_reader::find_segments(std::uint64_t data_cell, hive_value_data& data)
{
    constexpr std::uint64_t big_head = 12;
    const uni::byte_view head = image_.cell_at(data_cell, big_head);
    const std::uint32_t list = head.u32(list_entries_at);
    if (!head.contains(0, big_head) || head.u16(mark_at) != big_mark ||
        !referred(image_, list, contents_at).contains(0, contents_at)) {
        return false;
    }
    const uni::byte_view entries = entries_at(image_, image_.offset_of(list), contents_at,
                                              head.u16(list_count_at) * entry_size);
    const bool is_refused = !values_.take(entries.size());
    for (std::uint64_t at = 0; !is_refused && entries.contains(at, entry_size); at += entry_size) {
        if (referred(image_, entries.u32(at), contents_at).contains(0, contents_at)) {
            data.segments.push_back(image_.offset_of(entries.u32(at)));
        }
    }
    is_damaged_ |= data.segments.size() != head.u16(list_count_at);
    return true;
}

bool value_reader::read_value_data(std::uint64_t value, hive_value_data& data)
{
    data = {};
    const uni::byte_view cell = image_.cell_at(value, value_head);
    if (cell.u16(mark_at) != value_mark || !cell.contains(0, value_head)) {
        is_damaged_ = true;
        return false;
    }
    data.type = cell.u32(value_field::type);
    data.size = cell.u32(value_field::data_size);
    if ((data.size & inline_bit) != 0) {
        data.size -= inline_bit;
        data.is_inline = true;
        data.offset = data.size > largest_inline ? 0 : value + value_field::data;
        return true;
    }
    const std::uint64_t data_cell = image_.offset_of(cell.u32(value_field::data));
    if (!image_.cell_at(data_cell, contents_at + 1).contains(contents_at, 1)) {
        is_damaged_ |= data.size != 0; // what has no data needs no cell
        return false;
    }
    data.offset = data_cell + contents_at;
    data.is_big = data.size > largest_plain && find_segments(data_cell, data);
    const std::uint64_t stored =
        hive_image::cell_size(image_.cell_at(data_cell, contents_at)) & 0x0fffffff;
    const bool fits = stored <= image_.size() - data_cell;
    is_damaged_ |= data.size != 0 && (!fits || (!data.is_big && contents_at + data.size > stored));
    return fits;
}

// The text at the beginning of data, with its zero unit. It is not looked for where it could not be
// taken.
uni::byte_view value_reader::text_in(uni::byte_view data) const noexcept
{
    const std::uint64_t most =
        std::max({small_.left(), std::min(medium_.left(), largest_medium), large_.left()});
    const auto looked_at = data.slice(0, most).bytes();
    for (std::size_t at = 1; at < looked_at.size(); at += 2) {
        if ((looked_at[at - 1] | looked_at[at]) == 0) {
            return data.slice(0, at + 1);
        }
    }
    return data;
}

std::vector<std::uint8_t> value_reader::copy_data(const hive_value_data& data, std::uint64_t count,
                                                  data_need need)
{
    constexpr std::uint64_t segment_overhead = 8;
    const bool is_small = need == data_need::existence || need == data_need::number;
    std::vector<uni::byte_view> pieces;
    std::uint64_t total = 0;
    const auto add = [&](std::uint64_t offset, std::uint64_t size) {
        pieces.push_back(image_.cell_at(offset, std::min(size, count - total)));
        total += pieces.back().size();
    };
    if (!is_small && is_refused_) {
        return {};
    }
    if (is_small) {
        count = std::min<std::uint64_t>(count, need == data_need::number ? 8 : 1);
    }
    if (!data.is_big && data.offset != 0) {
        add(data.offset, count);
        if (need == data_need::text) {
            pieces[0] = text_in(pieces[0]);
            total = pieces[0].size();
        }
    }
    for (const std::uint64_t segment : data.segments) {
        const std::uint64_t size = hive_image::cell_size(image_.cell_at(segment, contents_at));
        add(segment + contents_at, size > segment_overhead ? size - segment_overhead : 0);
    }
    const bool is_whole_text = need == data_need::text && total < count && total >= 2 &&
                               pieces.size() == 1 && pieces[0].u16(total - 2) == 0;
    is_damaged_ |= total < count && !is_whole_text;
    std::vector<std::uint8_t> copy;
    if (!is_small && !take_data(total)) {
        return copy; // a part of a text would be another text
    }
    copy.reserve(static_cast<std::size_t>(total));
    for (const uni::byte_view piece : pieces) {
        copy.insert(copy.end(), piece.bytes().begin(), piece.bytes().end());
    }
    return copy;
}

} // namespace hive
