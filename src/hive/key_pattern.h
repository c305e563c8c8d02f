// Keys and values by patterns such as HKLM\Software\Vendor\?*
//
// A pattern is cut into segments. The first names the hive and stands for its root key; the others
// are names of keys, ASCII case aside, the last perhaps that of a value. `?*` stands for any one key;
// it means that in a pattern alone, never in a name that a hive holds. "CurrentControlSet" near the
// root is the control set in use.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "hive/key_reader.h"

namespace hive {

using key_path = std::vector<std::string>;
using shared_path = std::shared_ptr<const key_path>; // many records lie under one path

struct hive_key_record {
    shared_path path_segments; // of the key above it, the hive's name first
    hive_key_item key;
};

// One value, or a key whose list of values cannot be read: that is a row without a name, of type
// no_value.
struct hive_value_record {
    static constexpr std::int64_t no_value = -1;

    shared_path path_segments;    // of the value's key, the hive's name first
    std::uint64_t last_write = 0; // of the key, FILETIME ticks
    std::string value_name;
    std::int64_t value_type = no_value;
    std::vector<std::uint8_t> data; // what is needed of it; empty for data of 16 MiB and more
    bool is_big = false;            // the data came in segments
    std::uint64_t value_cell = 0;   // offset in the image
};

// What is needed of the data of a value, by its name.
using data_need_of = std::function<data_need(std::string_view)>;
using row_taker = std::function<void(hive_value_record&&)>;

// Cuts a path at its backslashes or, if it has none, at its slashes; HKLM and HKCR in front of the
// hive's name are left out. False for a path that names nothing else.
bool parse_key_path(std::string_view text, key_path& segments);

// Whether the keys in front of the first `?*` of a pattern are all there.
bool has_beginning(key_reader& reader, const key_path& segments);

// Appends a record for each key that lies up to `level` levels below the key of the pattern or, of a
// pattern with `?*`, for each that matches its beginning and lies at the pattern's depth or up to
// `level` levels below. False if the keys in front of the first `?*` are not all there.
bool walk_key_pattern(key_reader& reader, const key_path& segments, std::uint32_t level,
                      std::vector<hive_key_record>& records);

// Gives a record for each value of the keys that match a pattern and lie at its depth or up to
// `level` levels below, one by one, so that they need not all be kept. Where no key does, the last
// segment is taken as a value's name. Answers whether there is any record.
bool collect_values(key_reader& reader, const key_path& segments, std::uint32_t level,
                    const data_need_of& need, const row_taker& take);

} // namespace hive
