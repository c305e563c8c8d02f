// Keys and values of a hive.
//
// Offsets from the start of a cell; every reference is counted from the first bin.
//
//   key "nk"                        value "vk"                      lists
//   8   u64    last write time      6   u16    length of the name   "lf" "lh" "li" "ri"
//   20  u32    parent               8   u32    size of the data; top  6  u16  number of entries
//   24  u32    number of subkeys               bit: data stands next  8  entries: a reference,
//   32  u32    subkey list          12  u32    data or its cell            in "lf" and "lh" with
//   40  u32    number of values     16  u32    type                        a u32 hash behind it
//   44  u32    value list           24  name                        value list
//   48  u32    security "sk"                                          4  references
//   52  u32    class name           big value "db"                  list of a big value
//   76  u16    length of the name   6   u16    number of segments     4  references
//   80  name                        8   u32    list
//
// Names of keys are the bytes that stand there. A value's name whose second byte is zero is UTF-16.
#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "hive/hive_image.h"
#include "uni/byte_view.h"

namespace hive {

// A hive may have very many of these, so that they do not hold what key_reader can tell of them.
struct hive_key_item {
    std::uint32_t cell = 0; // offset in the image
    std::uint16_t name_length = 0;
};

struct hive_value_item {
    std::uint64_t cell = 0; // offset in the image; 0 for a cell that is no value
    std::uint64_t cell_size = 0;
    std::string name;
};

// Where the data of a value stands in the image.
struct hive_value_data {
    std::uint32_t type = 0;
    std::uint64_t size = 0;              // bytes, as the value tells
    bool is_inline = false;              // the data stands in the value's cell
    bool is_big = false;                 // the data stands in the segments
    std::uint64_t offset = 0;            // in the image; 0 for no data
    std::vector<std::uint64_t> segments; // cells
};

// How much of a value's data is of use.
enum class data_need {
    existence, // a byte, if there is one
    number,    // up to 8 bytes
    text,      // up to the first zero unit of two bytes
    whole,
};

// Bytes that may still be taken: some by each list or key in any case, further ones by each as long
// as all of them together leave any.
class allowance {
public:
    allowance(std::uint64_t granted, std::uint64_t each, std::uint64_t all) noexcept
        : granted_(granted), each_(each), all_left_(all)
    {
        renew();
    }

    void renew() noexcept // for the next list or key
    {
        granted_left_ = granted_;
        each_left_ = each_;
    }
    void exhaust() noexcept { each_left_ = 0; }
    std::uint64_t left() const noexcept { return std::min(each_left_, all_left_); }
    bool take(std::uint64_t bytes) noexcept
    {
        const bool is_granted = bytes <= granted_left_;
        if (!is_granted && bytes > left()) {
            return false; // what needs less may still have it
        }
        granted_left_ -= is_granted ? bytes : 0;
        each_left_ -= is_granted ? 0 : bytes;
        all_left_ -= is_granted ? 0 : bytes;
        return true;
    }

private:
    std::uint64_t granted_;
    std::uint64_t each_;
    std::uint64_t granted_left_ = 0;
    std::uint64_t each_left_ = 0;
    std::uint64_t all_left_;
};

// Reads one hive for one query. The subkeys of a key are read once and kept.
//
// Time and memory are bounded, for cells of a hostile hive may lie over each other and be listed
// again and again. Everything has a price, about the bytes that it takes in the image. No sound hive
// comes near the bounds; what is refused counts as unreadable and takes nothing else along:
//
//   entries of subkey lists   an image for a list, eight for all
//   keys that they list       the same; keys with a name that no registry would take by themselves
//   entries of value lists    512 entries for each key; then as entries of subkey lists
//   values                    4 KiB for each key; then the same
//   keys with values, data    4 KiB for a key out of an image and 8 MiB for all; beyond that items of
//                             up to 64 KiB, and larger ones, by themselves
//
// The image must outlive the reader.
class key_reader {
public:
    explicit key_reader(const hive_image& image);

    const hive_image& image() const noexcept { return image_; }

    // False for a closed image. Else gives the hive's name or, where it has none, the one that a
    // subkey of the root key gives away; it may stay empty.
    bool open(std::string& name);

    // The subkeys in the order of the list, each cell once. False, and `items` empty, if the key or
    // its list cannot be read, the list's count is not the key's, or an "li" part of an "ri" list
    // cannot be read. How much of a damaged list is given depends on its kind: see take_entries.
    bool enum_subkeys(std::uint64_t key, std::vector<hive_key_item>& items);

    // The same, kept by the reader; empty on failure.
    const std::vector<hive_key_item>& subkeys_of(std::uint64_t key);

    std::string name_of(const hive_key_item& item) const;

    // The cell of the first subkey of that name, ASCII case aside.
    std::optional<std::uint64_t> find_subkey(std::uint64_t key, std::string_view name);

    // Gives the values in the order of the list, until `take` answers false. False for a key that is
    // damaged or has none. A list that cannot be read gives no items.
    bool enum_values(std::uint64_t key, const std::function<bool(const hive_value_item&)>& take);

    bool read_value_data(std::uint64_t value, hive_value_data& data);

    // Copies of at most `count` bytes of the data, fewer where fewer exist, those that are needed.
    std::vector<std::uint8_t> copy_data(const hive_value_data& data, std::uint64_t count,
                                        data_need need);

    // The name of the root's subkey that is the control set in use.
    std::optional<std::string> resolve_current_control_set();

    std::uint64_t last_write_of(std::uint64_t key) const;

private:
    struct subkey_list {
        std::uint16_t kind = 0;
        std::uint16_t count = 0;
        std::uint64_t stride = 4;
        uni::byte_view entries;
    };
    enum class list_end { reached, entry_unreadable };
    using reference_set = std::unordered_set<std::uint32_t>;
    struct known_subkeys {
        std::vector<hive_key_item> items;
        std::vector<std::uint32_t> by_name; // their numbers; made when a name is first asked for
    };

    uni::byte_view referred(std::uint32_t reference, std::uint64_t count) const
    {
        return image_.cell_at(image_.offset_of(reference), count);
    }
    uni::byte_view key_at(std::uint64_t offset) const;
    uni::byte_view value_at(std::uint64_t offset) const;
    uni::byte_view entries_at(std::uint64_t offset, std::uint64_t head, std::uint64_t most) const;
    uni::byte_view stored_name(const hive_key_item& item) const;
    bool take_key(std::uint64_t name_length) noexcept;
    bool take_data(std::uint64_t bytes) noexcept;
    uni::byte_view text_in(uni::byte_view data) const noexcept;
    std::optional<subkey_list> list_at(std::uint32_t reference) const;
    bool has_sound_security(uni::byte_view key) const;
    bool has_sound_list(uni::byte_view key) const;
    list_end take_entries(const subkey_list& list, bool is_part, reference_set& seen,
                          std::vector<hive_key_item>& items);
    bool take_parts(const subkey_list& list, reference_set& seen,
                    std::vector<hive_key_item>& items);
    known_subkeys& known(std::uint64_t key);
    bool find_segments(std::uint64_t data_cell, hive_value_data& data);

    const hive_image& image_;
    allowance entries_;
    allowance keys_;
    allowance long_keys_;
    allowance value_entries_;
    allowance values_;
    allowance small_;
    allowance medium_;
    allowance large_;
    bool is_refused_ = false; // whether the key whose values are read asked for too much
    std::unordered_map<std::uint64_t, known_subkeys> known_;
};

} // namespace hive
