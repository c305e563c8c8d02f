#include "hive/key_reader.h"

#include <algorithm>
#include <array>
#include <numeric>
#include <utility>

#include "uni/text.h"
#include "uni/utf.h"

namespace hive {

namespace {

constexpr std::uint16_t letters(char first, char second)
{
    return static_cast<std::uint16_t>(static_cast<std::uint8_t>(first) |
                                      static_cast<std::uint8_t>(second) << 8);
}

constexpr std::uint16_t key_mark = letters('n', 'k');
constexpr std::uint16_t value_mark = letters('v', 'k');
constexpr std::uint16_t security_mark = letters('s', 'k');
constexpr std::uint16_t big_mark = letters('d', 'b');
constexpr std::uint16_t lf_list = letters('l', 'f');
constexpr std::uint16_t lh_list = letters('l', 'h');
constexpr std::uint16_t li_list = letters('l', 'i');
constexpr std::uint16_t ri_list = letters('r', 'i');

constexpr std::uint64_t mark_at = 4;
constexpr std::uint64_t contents_at = 4;
constexpr std::uint64_t list_count_at = 6;
constexpr std::uint64_t list_entries_at = 8;

namespace key_field {
constexpr std::uint64_t last_write = 8;
constexpr std::uint64_t parent = 20;
constexpr std::uint64_t subkey_count = 24;
constexpr std::uint64_t subkey_list = 32;
constexpr std::uint64_t value_count = 40;
constexpr std::uint64_t value_list = 44;
constexpr std::uint64_t security = 48;
constexpr std::uint64_t name_length = 76;
constexpr std::uint64_t name = 80;
} // namespace key_field

namespace value_field {
constexpr std::uint64_t name_length = 6;
constexpr std::uint64_t data_size = 8;
constexpr std::uint64_t data = 12;
constexpr std::uint64_t type = 16;
constexpr std::uint64_t name = 24;
} // namespace value_field

constexpr std::uint32_t inline_bit = 0x80000000;
constexpr std::uint64_t largest_inline = 4;
constexpr std::uint64_t largest_plain = 16351; // a longer value may be a big one

constexpr std::uint64_t key_head = key_field::name;
constexpr std::uint64_t value_head = value_field::name;
constexpr std::uint64_t longest_value_name = 4095;          // in bytes; a longer one reads as none
constexpr std::uint64_t entry_size = sizeof(std::uint32_t); // of a list but "lf" and "lh"

// Bounds of the work on an image: see the header.
constexpr std::uint64_t mebibyte = 0x100000;
constexpr std::uint64_t least_share = 0x10000;
constexpr std::uint64_t shares = 8;
constexpr std::uint64_t longest_usual_name = 512; // a registry takes 255 characters
constexpr std::uint64_t granted_values = 0x1000;
constexpr std::uint64_t small_part = 0x1000;
constexpr std::uint64_t largest_medium = 0x10000;
constexpr std::uint64_t granted_entries = 512 * entry_size; // of a list of values

std::string bytes_as_text(uni::byte_view bytes)
{
    return {bytes.bytes().begin(), bytes.bytes().end()};
}

// The name of a good key: one with its mark, a name, a parent and a time, whole in the image.
std::optional<uni::byte_view> good_key_name(uni::byte_view key)
{
    const std::uint16_t length = key.u16(key_field::name_length);
    if (!key.contains(key_field::name, length) || key.u16(mark_at) != key_mark || length == 0 ||
        key.u32(key_field::parent) == 0 || key.u64(key_field::last_write) == 0) {
        return std::nullopt;
    }
    return key.slice(key_field::name, length);
}

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
        name += bytes_as_text(stored); // what stands behind a zero shows too: meant
    }
    return name;
}

allowance shares_of(const hive_image& image, std::uint64_t granted)
{
    const std::uint64_t share = image.size() + least_share;
    return {granted, share, shares * share};
}

allowance quarter_of(const hive_image& image)
{
    const std::uint64_t all = image.size() / 4 + 4 * mebibyte;
    return {0, all, all};
}

// The order of names without regard to case.
bool comes_before(uni::byte_view a, uni::byte_view b)
{
    return std::lexicographical_compare(a.bytes().begin(), a.bytes().end(), b.bytes().begin(),
                                        b.bytes().end(), [](std::uint8_t one, std::uint8_t other) {
                                            return uni::lower_ascii(static_cast<char>(one)) <
                                                   uni::lower_ascii(static_cast<char>(other));
                                        });
}

} // namespace

key_reader::key_reader(const hive_image& image)
    : image_(image), entries_(shares_of(image, 0)), keys_(shares_of(image, 0)),
      long_keys_(shares_of(image, 0)), value_entries_(shares_of(image, granted_entries)),
      values_(shares_of(image, granted_values)), small_(0, small_part, image.size() + 8 * mebibyte),
      medium_(quarter_of(image)), large_(quarter_of(image))
{}

bool key_reader::take_key(std::uint64_t name_length) noexcept
{
    return (name_length > longest_usual_name ? long_keys_ : keys_).take(key_head + name_length);
}

// A refusal is the last for its key, so that it does not go on asking.
bool key_reader::take_data(std::uint64_t bytes) noexcept
{
    allowance& beyond = bytes > largest_medium ? large_ : medium_;
    if (small_.take(bytes) || beyond.take(bytes)) {
        return true;
    }
    is_refused_ = true;
    beyond.exhaust();
    return false;
}

bool key_reader::open(std::string& name)
{
    struct clue {
        std::string_view subkey;
        std::string_view hive;
    };
    static constexpr auto clues = std::to_array<clue>({
        {"Select", "System"},
        {"control panel", "ntuser.dat"},
        {"Classes", "Software"},
        {"local settings", "usrclass.dat"},
        {"sam", "SAM"},
        {"RXACT", "Security"},
        {"root", "AmCache.bin"},
    });
    name = image_.hive_name();
    if (name.empty() && image_.is_open()) {
        const auto found = std::find_if(clues.begin(), clues.end(), [this](const clue& one) {
            return find_subkey(image_.root_cell(), one.subkey).has_value();
        });
        name = found == clues.end() ? "" : found->hive;
    }
    return image_.is_open();
}

uni::byte_view key_reader::key_at(std::uint64_t offset) const
{
    const uni::byte_view head = image_.cell_at(offset, key_head);
    return image_.cell_at(offset, key_head + head.u16(key_field::name_length));
}

uni::byte_view key_reader::value_at(std::uint64_t offset) const
{
    const uni::byte_view head = image_.cell_at(offset, value_head);
    return image_.cell_at(offset, value_head + head.u16(value_field::name_length));
}

// The entries of a list, which stand behind its head: at most `most` bytes, and no more than the
// cell says that it has.
uni::byte_view key_reader::entries_at(std::uint64_t offset, std::uint64_t head,
                                      std::uint64_t most) const
{
    const std::uint64_t size = hive_image::cell_size(image_.cell_at(offset, sizeof(std::uint32_t)));
    return image_.cell_at(offset, std::min(size, head + most)).from(head);
}

std::optional<key_reader::subkey_list> key_reader::list_at(std::uint32_t reference) const
{
    const uni::byte_view cell = referred(reference, list_entries_at);
    if (!cell.contains(0, list_entries_at)) {
        return std::nullopt;
    }
    subkey_list list;
    list.kind = cell.u16(mark_at);
    list.count = cell.u16(list_count_at);
    list.stride = list.kind == lf_list || list.kind == lh_list ? 8 : 4;
    list.entries =
        entries_at(image_.offset_of(reference), list_entries_at, list.count * list.stride);
    return list;
}

bool key_reader::has_sound_security(uni::byte_view key) const
{
    constexpr std::uint64_t security_head = 24;
    const std::uint32_t reference = key.u32(key_field::security);
    if (reference == 0) {
        return true;
    }
    const uni::byte_view cell = referred(reference, security_head);
    return cell.contains(0, security_head) && cell.u16(mark_at) == security_mark;
}

bool key_reader::has_sound_list(uni::byte_view key) const
{
    if (key.u32(key_field::subkey_count) == 0) {
        return true;
    }
    const auto list = list_at(key.u32(key_field::subkey_list));
    return list && (list->kind == lf_list || list->kind == lh_list || list->kind == li_list ||
                    list->kind == ri_list);
}

// Takes the keys of a list, or of a part of an "ri" list. Where it ends early:
//
//                            "lf", "lh"   "li"        part "lf", "lh"   part "li"
//   entry unreadable         ends         ends        ends              all of "ri" fails
//   child is no good key     goes on      ends        ends              ends
//   child's list is unsound  goes on      ends        goes on           ends
//   child's security is bad  ends         ends        ends              ends
//
// These differences are meant: they decide how much of a damaged list survives.
key_reader::list_end key_reader::take_entries(const subkey_list& list, bool is_part,
                                              reference_set& seen,
                                              std::vector<hive_key_item>& items)
{
    const bool is_li = list.kind == li_list;
    for (std::uint64_t i = 0; i < list.count; ++i) {
        if (!list.entries.contains(i * list.stride, sizeof(std::uint32_t))) {
            return list_end::entry_unreadable;
        }
        if (!entries_.take(list.stride)) {
            return list_end::reached;
        }
        const std::uint32_t reference = list.entries.u32(i * list.stride);
        const uni::byte_view key = key_at(image_.offset_of(reference));
        const auto name = good_key_name(key);
        if (!name && !is_li && !is_part) {
            continue;
        }
        if (!name || (is_part && !is_li && reference == 0) || (is_li && !has_sound_list(key)) ||
            !has_sound_security(key)) {
            return list_end::reached;
        }
        if (!seen.contains(reference) && take_key(name->size())) {
            seen.insert(reference);
            items.push_back({static_cast<std::uint32_t>(image_.offset_of(reference)),
                             static_cast<std::uint16_t>(name->size())});
        }
    }
    return list_end::reached;
}

// Takes the keys of an "ri" list, whose parts have counts of their own.
bool key_reader::take_parts(const subkey_list& list, reference_set& seen,
                            std::vector<hive_key_item>& items)
{
    reference_set seen_parts;
    for (std::uint64_t i = 0; i < list.count; ++i) {
        if (!list.entries.contains(i * list.stride, sizeof(std::uint32_t)) ||
            !entries_.take(list.stride)) {
            break;
        }
        const std::uint32_t reference = list.entries.u32(i * list.stride);
        const auto part = list_at(reference);
        if (!part || !seen_parts.insert(reference).second ||
            (part->kind != lf_list && part->kind != lh_list && part->kind != li_list)) {
            continue;
        }
        if (take_entries(*part, true, seen, items) == list_end::entry_unreadable &&
            part->kind == li_list) {
            return false;
        }
    }
    return true;
}

bool key_reader::enum_subkeys(std::uint64_t key, std::vector<hive_key_item>& items)
{
    items.clear();
    const uni::byte_view cell = image_.cell_at(key, key_head);
    if (!cell.contains(key_field::subkey_list, sizeof(std::uint32_t))) {
        return false;
    }
    const std::uint32_t count = cell.u32(key_field::subkey_count);
    if (count == 0) {
        return true;
    }
    const auto list = list_at(cell.u32(key_field::subkey_list));
    if (!list) {
        return false;
    }
    reference_set seen;
    entries_.renew();
    keys_.renew();
    long_keys_.renew();
    if (list->kind == ri_list) {
        const bool done = take_parts(*list, seen, items);
        if (!done) {
            items.clear();
        }
        return done;
    }
    if (list->count != count) {
        return false;
    }
    if (list->kind == lf_list || list->kind == lh_list || list->kind == li_list) {
        take_entries(*list, false, seen, items);
    }
    return true;
}

key_reader::known_subkeys& key_reader::known(std::uint64_t key)
{
    const auto [place, is_new] = known_.try_emplace(key);
    if (is_new) {
        enum_subkeys(key, place->second.items);
        place->second.items.shrink_to_fit();
    }
    return place->second;
}

const std::vector<hive_key_item>& key_reader::subkeys_of(std::uint64_t key)
{
    return known(key).items;
}

uni::byte_view key_reader::stored_name(const hive_key_item& item) const
{
    return image_.cell_at(std::uint64_t{item.cell} + key_field::name, item.name_length);
}

std::string key_reader::name_of(const hive_key_item& item) const
{
    return bytes_as_text(stored_name(item));
}

std::optional<std::uint64_t> key_reader::find_subkey(std::uint64_t key, std::string_view name)
{
    known_subkeys& subkeys = known(key);
    const auto name_at = [&](std::uint32_t number) { return stored_name(subkeys.items[number]); };
    if (subkeys.by_name.size() != subkeys.items.size()) {
        subkeys.by_name.resize(subkeys.items.size());
        std::iota(subkeys.by_name.begin(), subkeys.by_name.end(), 0u);
        std::stable_sort(
            subkeys.by_name.begin(), subkeys.by_name.end(),
            [&](std::uint32_t a, std::uint32_t b) { return comes_before(name_at(a), name_at(b)); });
    }
    const std::vector<std::uint8_t> letters_of_name(name.begin(), name.end());
    const uni::byte_view wanted(letters_of_name);
    const auto found = std::lower_bound(
        subkeys.by_name.begin(), subkeys.by_name.end(), wanted,
        [&](std::uint32_t a, uni::byte_view b) { return comes_before(name_at(a), b); });
    if (found == subkeys.by_name.end() || comes_before(wanted, name_at(*found))) {
        return std::nullopt;
    }
    return subkeys.items[*found].cell;
}

bool key_reader::enum_values(std::uint64_t key,
                             const std::function<bool(const hive_value_item&)>& take)
{
    const uni::byte_view cell = key_at(key);
    const std::uint32_t count = cell.u32(key_field::value_count);
    const std::uint32_t list_reference = cell.u32(key_field::value_list);
    const auto key_name = good_key_name(cell);
    small_.renew();
    value_entries_.renew();
    values_.renew();
    is_refused_ = false;
    if (!key_name || count == 0 || list_reference == 0 || !take_data(key_head + key_name->size())) {
        return false;
    }
    // Whoever takes a value takes its path with it.
    const std::uint64_t long_name = key_name->size() > longest_usual_name ? key_name->size() : 0;
    const uni::byte_view entries =
        entries_at(image_.offset_of(list_reference), contents_at, count * entry_size);
    for (std::uint64_t at = 0; entries.contains(at, entry_size) && value_entries_.take(entry_size);
         at += entry_size) {
        const uni::byte_view value = value_at(image_.offset_of(entries.u32(at)));
        const std::uint16_t name_length = value.u16(value_field::name_length);
        const bool is_value = value.u16(mark_at) == value_mark;
        if (!value.contains(0, sizeof(std::uint32_t)) ||
            (is_value && !value.contains(value_field::name, name_length))) {
            continue;
        }
        hive_value_item item;
        if (is_value) {
            const uni::byte_view name = value.slice(value_field::name, name_length);
            const std::uint64_t shown = name.size() > longest_value_name ? 0 : name.size();
            if (!values_.take(value_head + entry_size + shown + long_name)) {
                continue;
            }
            item = {image_.offset_of(entries.u32(at)), hive_image::cell_size(value),
                    value_name(name)};
        }
        if (!take(item)) {
            break;
        }
    }
    return true;
}

// Whether a cell holds a big value; notes those of its segments that can be read.
bool key_reader::find_segments(std::uint64_t data_cell, hive_value_data& data)
{
    constexpr std::uint64_t big_head = 12;
    const uni::byte_view head = image_.cell_at(data_cell, big_head);
    const std::uint32_t list = head.u32(list_entries_at);
    if (!head.contains(0, big_head) || head.u16(mark_at) != big_mark ||
        !referred(list, contents_at).contains(0, contents_at)) {
        return false;
    }
    const uni::byte_view entries =
        entries_at(image_.offset_of(list), contents_at, head.u16(list_count_at) * entry_size);
    const bool is_refused = !values_.take(entries.size());
    for (std::uint64_t at = 0; !is_refused && entries.contains(at, entry_size); at += entry_size) {
        if (referred(entries.u32(at), contents_at).contains(0, contents_at)) {
            data.segments.push_back(image_.offset_of(entries.u32(at)));
        }
    }
    return true;
}

bool key_reader::read_value_data(std::uint64_t value, hive_value_data& data)
{
    data = {};
    const uni::byte_view cell = image_.cell_at(value, value_head);
    if (cell.u16(mark_at) != value_mark || !cell.contains(0, value_head)) {
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
        return false;
    }
    data.offset = data_cell + contents_at;
    data.is_big = data.size > largest_plain && find_segments(data_cell, data);
    const std::uint64_t stored =
        hive_image::cell_size(image_.cell_at(data_cell, contents_at)) & 0x0fffffff;
    return stored <= image_.size() - data_cell;
}

// The text at the beginning of data, with its zero unit. It is not looked for where it could not be
// taken.
uni::byte_view key_reader::text_in(uni::byte_view data) const noexcept
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

std::vector<std::uint8_t> key_reader::copy_data(const hive_value_data& data, std::uint64_t count,
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

std::optional<std::string> key_reader::resolve_current_control_set()
{
    const auto select = find_subkey(image_.root_cell(), "Select");
    std::uint64_t current = 0;
    if (select) {
        enum_values(*select, [&current](const hive_value_item& value) {
            current = value.name == "Current" ? value.cell : 0; // in this spelling alone: meant
            return current == 0;
        });
    }
    hive_value_data data;
    if (current == 0 || !read_value_data(current, data) || !data.is_inline || data.offset == 0) {
        return std::nullopt;
    }
    const auto number = static_cast<std::int32_t>(image_.cell_at(data.offset, data.size).u32(0));
    std::string name = "ControlSet00" + std::to_string(number);
    if (!find_subkey(image_.root_cell(), name)) {
        return std::nullopt;
    }
    return name;
}

std::uint64_t key_reader::last_write_of(std::uint64_t key) const
{
    return image_.cell_at(key, key_head).u64(key_field::last_write);
}

} // namespace hive
