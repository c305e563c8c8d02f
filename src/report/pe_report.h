#pragma once

#include "front/sdb_opts.h"
#include "report/pe_properties.h"
#include "io/output_sink.h"

namespace report {

// Writes the properties of the PE file at options.pe_path: labelled lines in order of the names,
// or one delimited row under -csv, with the header in front of the run's first row. Nothing under
// -csvl2t.
void print_pe_stats(io::output_sink& out, const pe_list& list, front::sdb_opts& options);

} // namespace report
