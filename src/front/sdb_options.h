#pragma once

#include <vector>

#include "files/file_tree.h"
#include "front/arguments.h"
#include "front/diag_log.h"
#include "front/option_rows.h"
#include "io/notice.h"
#include "io/output_sink.h"
#include "request/sdb_opts.h"

namespace front {

// Every option, in the order in which they are looked up.
std::vector<option_row> all_options();

// Takes all options out of `args`, the common ones first, and says what is left over. Files that they
// name are looked for in the tree. False when a message has been written and the run is to end. Two of
// the messages go to `standard_output`, all others are notices.
bool parse_sdb_options(request::sdb_opts& options, argument_list& args, files::file_tree& tree,
                       diag_log& log, io::notices& notices, io::output_sink& standard_output);

} // namespace front
