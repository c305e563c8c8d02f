#pragma once

#include <string>

#include "files/file_tree.h"
#include "form/writer.h"
#include "io/byte_source.h"
#include "io/notice.h"
#include "model/image_digests.h"
#include "model/installed_databases.h"
#include "model/pe_properties.h"
#include "model/search.h"
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
    model::search* search = nullptr; // in this database
    const model::installed_database* installed =
        nullptr; // what the registry says of it, if it does
    const model::pe_list* program = nullptr;
    const io::file_history* program_file = nullptr; // what is kept of its file, if anything is
    const model::run_targets* targets = nullptr;
};

} // namespace report
