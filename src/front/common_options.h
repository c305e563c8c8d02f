#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "front/option_rows.h"

namespace front {

// Appends the options that all tools of the family share, in the order in which they are looked up,
// which settles every conflict. Options that this tool does not act on are taken all the same,
// without a word. The command line goes to the log.
void add_common_options(std::vector<option_row>& rows);

// The name of the form that the arguments ask for, which stay as they are; nothing where they ask for none.
std::optional<std::string_view> form_asked_for(const argument_list& args);

// Keeps what later texts say of the command line: the program's name and all that was typed.
void note_command_line(request::cmd_params& params, const argument_list& args);

// Whether dates can be written by a format of -dateformat, in any case.
bool is_date_format(const std::string& text);

} // namespace front
