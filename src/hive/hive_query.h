// The one question that is asked of a hive: which databases are installed, and what does the
// registry say of them?
#pragma once

#include <cstdint>
#include <string>

#include "hive/key_pattern.h"

namespace hive {

struct registry_cmd_parameters {
    std::string key;               // a pattern
    std::uint32_t level = 0;       // further levels of keys below those that match it
    bool keeps_empty_rows = false; // rows without data count too
    data_need_of need = {};        // of a value, by its name; the whole data without
};

// The sentence that asks for the installed databases. It gives all values of their keys; whoever
// asked picks those that it knows by their names.
registry_cmd_parameters query_installed_databases();

// What came of a query.
struct query_outcome {
    bool any = false;        // rows
    bool has_keys = false;   // those in front of the pattern's first `?*`
    bool is_damaged = false; // less was read than a sound hive would have held
};

// Gives the rows one by one, in the order in which the hive lists keys and then values. A closed
// image has none. Does not word anything.
query_outcome hive_query(const registry_cmd_parameters& parameters, const hive_image& image,
                         const row_taker& take);

} // namespace hive
