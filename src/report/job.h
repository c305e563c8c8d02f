#pragma once

#include <deque>
#include <string>
#include <vector>

#include "files/file_tree.h"
#include "form/writer.h"
#include "io/byte_source.h"
#include "io/notice.h"
#include "model/explain_context.h"
#include "model/image_digests.h"
#include "model/installed_databases.h"
#include "model/known_records.h"
#include "model/matchable_database.h"
#include "model/pe_properties.h"
#include "model/search.h"
#include "report/program_digests.h"
#include "request/sdb_opts.h"
#include "sdb/database.h"
#include "uni/text_buffer.h"
#include "uni/thread_allowance.h"

namespace report {

// What one report is made from, and where it goes.
struct job {
    const request::sdb_opts& options;
    form::writer& form;
    uni::text_buffer& console; // standard output, wherever the report goes
    io::notices& notices;
    uni::thread_allowance* threads = nullptr; // of which some may help; null where none may
    model::image_digests* digests = nullptr;  // of the database's image, where they were started

    files::file_tree* files = nullptr; // where a program is looked for, which some reports read

    // The file that is told about.
    std::string path = {};
    io::file_times times = {};
    io::byte_source* source = nullptr; // null for what is no file

    // What the kind of report calls for; the others are null.
    const sdb::sdb_database* database = nullptr;
    model::search* search = nullptr;            // in this database
    const model::known_filter* known = nullptr; // what of it is to be left out; null for nothing
    const model::installed_database* installed =
        nullptr; // what the registry says of it, if it does
    const model::pe_list* program = nullptr;
    const std::deque<model::matchable_database>* candidates = nullptr; // to catch the program
    program_digests* digests_of_program = nullptr;
    const model::run_targets* targets = nullptr;
    const model::explain_context* explained = nullptr;
    const sdb::sdb_database* other = nullptr; // that the database is compared with
    std::string other_path = {};
    bool is_named = false;                         // the database, on the command line
    std::vector<model::file_probe> are_there = {}; // of each of the run's registries

    // The same work in another writer of the form, on a thread that has no others to help it.
    job with_form(form::writer& to, uni::text_buffer& to_console, io::notices& to_notices) const
    {
        job made{options, to, to_console, to_notices};
        made.path = path;
        made.database = database;
        made.installed = installed;
        made.known = known;
        made.explained = explained;
        made.is_named = is_named;
        return made;
    }
};

} // namespace report
