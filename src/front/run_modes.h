#pragma once

#include "front/sdb_opts.h"
#include "io/output_sink.h"

namespace front {

// Picks what the run is to do by its options and does it to the end: statistics of PE files, the
// list of databases, database reports or database statistics, over the targets found or over the
// entries of a list. Gives the exit value: 0 if anything worked, else -1.
int run_mode(io::output_sink& out, io::output_sink& standard_output, sdb_opts& options);

} // namespace front
