#pragma once

#include "front/arguments.h"
#include "front/sdb_opts.h"
#include "io/output_sink.h"

namespace front {

// Takes all options out of `args`, the common ones first, and settles the databases to work on.
// False when a message has been written and the run is to end. Two of the messages go to
// `standard_output`, all others to the error stream.
bool parse_sdb_options(sdb_opts& options, argument_list& args, io::output_sink& standard_output);

} // namespace front
