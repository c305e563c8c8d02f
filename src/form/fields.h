#pragma once

#include <string>

#include "request/cmd_params.h"

namespace form {

// A text as it can stand in a field of a delimited row: free of the separator, and on one line.
std::string field_text(std::string text, const request::cmd_params& style);

} // namespace form
