#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "request/cmd_params.h"

namespace request {

// What is looked for in each database. Of several the first counts that is not empty.
struct search_request {
    std::vector<std::string> strings; // lower-case
    std::string guid;                 // lower-case GUID text
    std::vector<std::uint32_t> tagids;

    bool is_empty() const noexcept { return strings.empty() && guid.empty() && tagids.empty(); }
};

// What one run was asked for.
struct sdb_opts : cmd_params {
    // What to do. Listings by their names in the table of reports.
    std::vector<std::string_view> listings;
    std::uint16_t tag_filter = 0; // of the listing "tag"
    bool stats = false;
    bool list_sdb = false;
    bool match_mode = false;
    bool pe_stats = false;
    bool explain = false;

    // Of explanations.
    std::vector<std::string> only_weights; // of findings; all if there are none
    std::vector<std::string> families;     // the same
    std::vector<std::string> knowledge_paths;
    // Of comparisons.
    std::string diff_path;                // with which database, folder or volume
    std::vector<std::string> known_paths; // of databases whose records are left out

    // What to look for.
    search_request search;
    std::vector<std::uint8_t> patch_pattern;

    // Where to look.
    std::string sdb_path;
    std::vector<std::string> more_sdb_paths; // of further -sdb
    bool programs_in_list = false;           // a list is one of programs
    std::string pe_path;
    std::string missing_path; // one of the two, which is not to be had
    bool partition_given = false;
    bool vss_given = false;
    bool volume_given = false;
    std::string volume_text; // root of the volume, such as "c:" or a snapshot's device path
    bool searches_default_places = false; // the folders in which a volume keeps its databases
    bool hive_given = false;
    bool hive_named = false; // by -reg, and not by the volume
    std::string software_hive_path;
    bool no_logs = false;                     // those of a hive are left out
    std::vector<std::string> more_hive_paths; // of further -reg

    // Whether programs are held against databases for a row each: beyond one against one.
    bool matches_many() const noexcept
    {
        return match_mode && !stats && !list_sdb &&
               (is_list_form() ? programs_in_list
                               : !more_sdb_paths.empty() || volume_given || vss_given || explain);
    }
    // Whether the run compares databases.
    bool compares() const noexcept
    {
        return !diff_path.empty() && !stats && !list_sdb && !match_mode;
    }
    // Whether records that stand in other databases are left out.
    bool leaves_known_out() const noexcept
    {
        return !known_paths.empty() && !compares() && !list_sdb && !pe_stats && !match_mode;
    }
    // Whether nothing is explained but what hives say.
    bool explains_hives_alone() const noexcept
    {
        return explain && hive_named && sdb_path.empty() && !searches_default_places &&
               !is_list_form() && !stats && !list_sdb && !compares() && !match_mode;
    }
    // Whether it matters to the run what the registry says.
    bool asks_registry() const noexcept { return stats || list_sdb || (explain && !compares()); }
    bool wants(std::string_view listing) const
    {
        return std::ranges::find(listings, listing) != listings.end();
    }
};

} // namespace request
