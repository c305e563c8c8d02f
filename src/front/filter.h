#pragma once

#include <string_view>
#include <vector>

#include "front/cmd_params.h"

namespace front {

// Makes one entry for each item of a -filter text, whose items are parted by "|", else by ",". An
// item "*" accepts everything and stands alone. Answers whether there is any entry.
bool parse_filter(std::vector<filter_entry>& entries, std::string_view text);

// Makes the entry of a -filter_sig text: blank-separated hexadecimal bytes, then "|" or "," and the
// offset at which a file must hold them.
filter_entry parse_signature_filter(std::string_view text);

} // namespace front
