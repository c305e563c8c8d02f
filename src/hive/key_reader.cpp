#include "hive/key_reader.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "hive/cells.h"
#include "uni/text.h"

namespace hive {

namespace {

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
      long_keys_(shares_of(image, 0)), values_(image)
{}

bool key_reader::take_key(std::uint64_t name_length) noexcept
{
    return (name_length > longest_usual_name ? long_keys_ : keys_).take(key_head + name_length);
}

std::optional<key_reader::subkey_list> key_reader::list_at(std::uint32_t reference) const
{
    const uni::byte_view cell = referred(image_, reference, list_entries_at);
    if (!cell.contains(0, list_entries_at)) {
        return std::nullopt;
    }
    subkey_list list;
    list.kind = cell.u16(mark_at);
    list.count = cell.u16(list_count_at);
    list.stride = list.kind == lf_list || list.kind == lh_list ? 8 : 4;
    list.entries =
        entries_at(image_, image_.offset_of(reference), list_entries_at, list.count * list.stride);
    return list;
}

bool key_reader::has_sound_security(uni::byte_view key) const
{
    constexpr std::uint64_t security_head = 24;
    const std::uint32_t reference = key.u32(key_field::security);
    if (reference == 0) {
        return true;
    }
    const uni::byte_view cell = referred(image_, reference, security_head);
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
// These differences decide how much of a damaged list survives, and reports of such hives show it:
// they must not change.
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
        const uni::byte_view key = key_at(image_, image_.offset_of(reference));
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
    const bool done = take_subkeys(cell, items);
    is_damaged_ |= !done || items.size() != cell.u32(key_field::subkey_count);
    return done;
}

bool key_reader::take_subkeys(uni::byte_view key, std::vector<hive_key_item>& items)
{
    if (!key.contains(key_field::subkey_list, sizeof(std::uint32_t))) {
        return false;
    }
    const std::uint32_t count = key.u32(key_field::subkey_count);
    if (count == 0) {
        return true;
    }
    const auto list = list_at(key.u32(key_field::subkey_list));
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

std::optional<std::string> key_reader::resolve_current_control_set()
{
    const auto select = find_subkey(image_.root_cell(), "Select");
    std::uint64_t current = 0;
    if (select) {
        values_.enum_values(*select, [&current](const hive_value_item& value) {
            current = value.name == "Current" ? value.cell : 0; // no other spelling counts
            return current == 0;
        });
    }
    hive_value_data data;
    if (current == 0 || !values_.read_value_data(current, data) || !data.is_inline ||
        data.offset == 0) {
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
