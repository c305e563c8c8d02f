#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "sdb/database.h"

// Finders turn what a user looks for into tag offsets. They work on what the scan left, never on
// the file, and word nothing. A result is ascending, each offset once.
namespace sdb {

using found_tags = std::vector<std::uint32_t>;

// Adds the tags that refer to a string of the string table whose text holds `pattern`, ASCII case
// aside; an empty pattern is in every text. The table's last string is never searched. Answers
// whether `result` holds anything.
bool find_strings(const sdb_database& database, found_tags& result, std::string_view pattern);

// The 16-byte binaries whose GUID text is `guid`, whatever their tags. Answers whether there are
// any.
bool find_guid(const sdb_database& database, found_tags& result, std::string_view guid);

// The patch values of which one operation's data hold `pattern`; a pattern that begins in one
// operation and ends in the next is not found. Answers whether there are any.
bool find_patch_bytes(const sdb_database& database, found_tags& result,
                      std::span<const std::uint8_t> pattern);

} // namespace sdb
