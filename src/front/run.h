#pragma once

#include "front/diag_log.h"
#include "request/sdb_opts.h"
#include "uni/text_buffer.h"

namespace front {

// Does what the options ask for to the end: statistics of PE files, the list of databases, database
// reports or database statistics, over the targets found or over the entries of a list. Gives the
// exit value: 0 if anything worked, else -1.
int run(uni::text_buffer& out, uni::text_buffer& standard_output, const request::sdb_opts& options,
        diag_log& log);

} // namespace front
