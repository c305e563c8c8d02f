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

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "hive/hive_image.h"
#include "uni/byte_view.h"

namespace hive {

struct hive_key_item {
    std::uint64_t cell = 0; // offset in the image
    std::string name;
    std::uint64_t last_write = 0; // FILETIME ticks
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

// Reads one hive for one query. The subkeys of a key are read once and kept. The work is bounded, so
// that lists that share what they list come to an end: keys, values and data that together would
// take more bytes than the image has count as unreadable. The image must outlive the reader.
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

    // The cell of the first subkey of that name, ASCII case aside.
    std::optional<std::uint64_t> find_subkey(std::uint64_t key, std::string_view name);

    // The values in the order of the list. False for a key that is damaged or has none. A list that
    // cannot be read gives no items.
    bool enum_values(std::uint64_t key, std::vector<hive_value_item>& items);

    bool read_value_data(std::uint64_t value, hive_value_data& data);

    // Copies at most `count` bytes of the data, fewer where fewer exist.
    std::vector<std::uint8_t> copy_data(const hive_value_data& data, std::uint64_t count);

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
        // Of those of one lower-cased name the first; made when a name is first asked for.
        std::unordered_map<std::string, std::uint64_t> cells_by_name;
    };

    uni::byte_view referred(std::uint32_t reference, std::uint64_t count) const
    {
        return image_.cell_at(image_.offset_of(reference), count);
    }
    uni::byte_view key_at(std::uint64_t offset) const;
    uni::byte_view value_at(std::uint64_t offset) const;
    uni::byte_view entries_at(std::uint64_t offset, std::uint64_t head, std::uint64_t most) const;
    static bool take_from(std::uint64_t& allowance, std::uint64_t bytes) noexcept;
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
    std::uint64_t keys_left_; // bytes that lists and keys may still take, and so on
    std::uint64_t values_left_;
    std::uint64_t data_left_;
    std::unordered_map<std::uint64_t, known_subkeys> known_;
};

} // namespace hive
