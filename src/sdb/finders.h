#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "sdb/database.h"

// Finders turn what a user looks for into tag offsets. They work on what the scan left, never on
// the file, and word nothing. A result is ascending, each offset once.
namespace sdb {

using found_tags = std::vector<std::uint32_t>;

// The tags that refer to a string of the string table whose text holds one of these texts, ASCII case
// aside, in one pass for all; an empty text is in every text. The table's last string is never
// searched. Answers whether there are any.
bool find_strings(const sdb_database& database, found_tags& result,
                  std::span<const std::string> wanted);

// The 16-byte binaries whose GUID text is `guid`, whatever their tags. Answers whether there are
// any.
bool find_guid(const sdb_database& database, found_tags& result, std::string_view guid);

// The patch values of which one operation's data hold `pattern`; a pattern that begins in one
// operation and ends in the next is not found. Operations may share bytes: these are searched once.
// Answers whether there are any.
bool find_patch_bytes(const sdb_database& database, found_tags& result,
                      std::span<const std::uint8_t> pattern);

} // namespace sdb
