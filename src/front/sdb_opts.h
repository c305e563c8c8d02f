#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "front/cmd_params.h"

namespace front {

// What the registry says of an installed database.
struct installed_database {
    std::string key_path;           // lower-cased path of the database's registry key
    std::uint64_t key_modtime = 0;  // last write time of the key, FILETIME ticks
    std::uint64_t install_time = 0; // FILETIME ticks
    std::uint32_t database_type = 0;
    std::string database_path; // as stored
    std::string local_path;    // where this run finds the file
    std::string description;
};

// What one run was asked for, and, behind the options, the state that a report keeps about the
// database in work; reset_per_database wipes the latter.
struct sdb_opts : cmd_params {
    // What to do.
    bool stats = false;
    bool list_sdb = false;
    bool list_apps = false;
    bool list_fixes = false;
    bool exes_only = false;
    bool shims_only = false;
    bool patches_only = false;
    bool tag_filter_on = false;
    std::uint32_t tag_filter = 0;
    bool list_700b = false; // no option sets these two; their place in the order is kept
    bool list_7013 = false;
    bool list_guids = false;
    bool list_stringtable = false;
    bool match_mode = false;
    bool pe_stats = false;

    // What to look for.
    std::vector<std::string> find_strings_list; // lower-case
    std::string find_guid_text;                 // lower-case GUID text
    std::vector<std::uint32_t> find_tagids_list;
    std::vector<std::uint8_t> patch_pattern;

    // Where to look.
    std::string pe_path;
    bool is_admin = false;
    bool partition_given = false;
    bool vss_given = false;
    std::uint32_t vss_index = 0;
    std::string vss_text; // index of -vss as typed
    bool volume_given = false;
    std::string volume_text; // root of the volume, such as "c:" or a snapshot's device path
    std::vector<std::string> target_files;
    bool hive_given = false;
    std::string software_hive_path;

    // Installed databases by their lower-cased file name.
    std::map<std::string, installed_database> installed_databases;

    // The header of XML reports, line by line; no option fills it.
    std::string header_info_text;

    // Kept because runs have always carried them; no report reads them.
    std::uint32_t byte_dump_limit = 256;
    bool short_byte_dumps = true;
    std::uint16_t last_index_key = 0;

    // State of the output stream: once a plain record line is written, depths are hexadecimal.
    bool depths_in_hexadecimal = false;

    // State of the database in work.
    std::string current_path;
    std::uint64_t file_write_time = 0;    // FILETIME ticks
    std::uint64_t file_access_time = 0;   // the same
    std::uint64_t file_creation_time = 0; // the same
    // What the searches found: ascending tag offsets, each once; empty while none has run.
    std::vector<std::uint32_t> found_offsets;
    bool no_results = false; // a search ran and found nothing
    std::string record_name; // name of the record in work, for the XML form
    // Items gathered by the listing in work, which bounds what references may add.
    std::uint64_t listed_items = 0;
};

// Forgets the database in work; leaves every option alone.
void reset_per_database(sdb_opts& options);

} // namespace front
