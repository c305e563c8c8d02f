// Rows of a timeline: an item with four timestamps becomes one row for each distinct moment, in
// order of time. A row's MACB text says which timestamps fell on its moment: modified, accessed,
// changed, born, each by its letter, or by "." where it did not.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "uni/time.h"

namespace form {

// A timestamp in FILETIME ticks and what it means; one that is no valid moment counts as absent.
struct timeline_stamp {
    std::uint64_t time = 0;
    std::string_view meaning;
};

// An item, its timestamps, and what its rows show beside the moments.
struct timeline_item {
    std::array<timeline_stamp, 4> stamps; // modified, accessed, changed, born
    std::string_view source;
    std::string_view source_type;
    std::string short_text;
    std::string description;
    std::string file_name;
    std::string notes;
    std::string extra;
};

struct timeline_row {
    std::string macb; // four characters
    std::string meaning;
    uni::time_value moment;
};

// The rows of an item, ascending by moment. Each timestamp that no earlier one has taken in opens a
// row and takes in the later ones of its moment, whose meanings are joined to its own by "; ".
std::vector<timeline_row> expand_stamps(const std::array<timeline_stamp, 4>& stamps);

} // namespace form
