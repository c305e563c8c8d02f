#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "hive/allowance.h"
#include "hive/cells.h"
#include "hive/hive_image.h"
#include "uni/byte_view.h"

namespace hive {

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

// Reads the values of keys, for one query. What may be taken is bounded as key_reader tells:
//
//   entries of value lists    512 entries for each key; then an image for a list, eight for all
//   values                    4 KiB for each key; then the same
//   keys with values, data    4 KiB for a key out of an image and 8 MiB for all; beyond that items of
//                             up to 64 KiB, and larger ones, by themselves
//
// The image must outlive the reader.
//
// What a sound hive could not hold, and what the bounds cut, is passed over and noted.
class value_reader {
public:
    explicit value_reader(const hive_image& image);

    // Gives the values in the order of the list, until `take` answers false. False for a key that is
    // damaged or has none. A list that cannot be read gives no items.
    bool enum_values(std::uint64_t key, const std::function<bool(const hive_value_item&)>& take);

    bool read_value_data(std::uint64_t value, hive_value_data& data);

    // Copies of at most `count` bytes of the data, fewer where fewer exist, those that are needed.
    std::vector<std::uint8_t> copy_data(const hive_value_data& data, std::uint64_t count,
                                        data_need need);

    // Whether anything was passed over.
    bool is_damaged() const noexcept { return is_damaged_; }
    void note_damage() noexcept { is_damaged_ = true; }

private:
    uni::byte_view value_at(std::uint64_t offset) const;
    bool take_data(std::uint64_t bytes) noexcept;
    bool take_value(const uni::byte_view& value, std::uint64_t offset, std::uint64_t long_name,
                    hive_value_item& item);
    uni::byte_view text_in(uni::byte_view data) const noexcept;
    bool find_segments(std::uint64_t data_cell, hive_value_data& data);

    const hive_image& image_;
    allowance entries_;
    allowance values_;
    allowance small_;
    allowance medium_;
    allowance large_;
    bool is_refused_ = false; // whether the key whose values are read asked for too much
    bool is_damaged_ = false;
};

} // namespace hive
