#pragma once

#include "front/arguments.h"
#include "front/diag_log.h"
#include "io/notice.h"
#include "request/cmd_params.h"

namespace front {

// Takes the options that all tools of the family share out of `args`. False when the run is to end:
// a refusal has been worded, or there are no arguments. Options that this tool does not act on are
// taken all the same, without a word. The command line goes to the log.
bool parse_common_options(request::cmd_params& params, argument_list& args, diag_log& log,
                          io::notices& notices);

} // namespace front
