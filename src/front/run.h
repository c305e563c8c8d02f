#pragma once

#include "files/file_tree.h"
#include "form/facts.h"
#include "front/diag_log.h"
#include "front/outputs.h"
#include "io/notice.h"
#include "model/installed_databases.h"
#include "request/sdb_opts.h"
#include "uni/text_buffer.h"

namespace front {

// What the run works on, as far as it is known before it begins: the database that was named, those
// in the folders where a volume keeps them, and those that the registry knows.
model::run_targets find_targets(const request::sdb_opts& options, files::file_tree& tree,
                                diag_log& log, io::notices& notices);

// The files that the run reads, as far as they are known: its targets and what was named beside
// them.
std::vector<std::string> examined_files(const request::sdb_opts& options,
                                        const model::run_targets& targets);

// Does what the options ask for to the end: statistics of PE files, the list of databases, database
// reports or database statistics, over the targets or over the entries of a list. What was not done
// whole is said, and noted as a failure.
void run(uni::text_buffer& out, uni::text_buffer& standard_output, const request::sdb_opts& options,
         const form::run_facts& facts, files::file_tree& tree, const model::run_targets& targets,
         outputs& files, diag_log& log, io::notices& notices);

// Writes what a stream says of a run that does not begin, in a form that begins its streams itself.
void tell_refusal(uni::text_buffer& out, const request::sdb_opts& options,
                  const form::run_facts& facts, files::file_tree& tree, bool has_failed);

} // namespace front
