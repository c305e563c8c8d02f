#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "hive/hive_query.h"
#include "model/registry_entries.h"
#include "model/software_hive.h"
#include "ntfs/volume.h"
#include "request/sdb_opts.h"

namespace model {

// What the registry says of an installed database.
struct installed_database {
    std::string key_path;           // lower-cased path of the database's registry key
    std::uint64_t key_modtime = 0;  // last write time of the key, FILETIME ticks
    std::uint64_t install_time = 0; // FILETIME ticks
    std::uint32_t database_type = 0;
    std::string database_path; // as stored
    std::string description;

    friend bool operator==(const installed_database&, const installed_database&) = default;
};

// Installed databases by the lower-cased name of the registry key.
using installed_table = std::map<std::string, installed_database>;

// How a file and what the registry says were brought together.
enum class joining {
    unknown,    // the registry knows nothing of that name
    joined,     // one is the other
    ambiguous,  // several keys have the file's path; the first of them counts
    not_joined, // the registry knows its name, but not its path
};

struct registry_facts {
    joining how = joining::unknown;
    const installed_database* facts = nullptr; // lasts as long as the table
};

// All that are installed, and how files are found among them: by their path below the volume, letter
// case and the kind of separators aside.
class installed_databases {
public:
    // `volume` is the root of the volume that was named, from which paths of files are counted;
    // without one they are counted from the root that they tell themselves. With `joins_by_name` a
    // name does where it is that of one database alone, and no path agrees.
    installed_databases() = default;
    explicit installed_databases(installed_table by_key, std::string volume = {},
                                 bool joins_by_name = true);
    installed_databases(const installed_databases&) = delete;
    installed_databases(installed_databases&&) = default;
    installed_databases& operator=(installed_databases&&) = default;

    registry_facts find(const std::string& path) const;
    // Whether a path lies on the volume; any does where there is none.
    bool is_for(const std::string& path) const;
    const std::string& volume() const noexcept { return volume_; }

    // By lower-cased file name, those of one name by key.
    using name_table = std::map<std::string, std::vector<const installed_database*>>;
    const name_table& by_name() const noexcept { return by_name_; }
    const installed_table& by_key() const noexcept { return by_key_; }

private:
    installed_table by_key_;
    name_table by_name_; // leads into the other table
    std::string volume_;
    bool joins_by_name_ = true;
};

// What a run was to read and could not, and why.
struct unread_input {
    std::string path;
    std::string reason;
};

// What a run works on, and what the registry of each of its volumes says of it.
struct run_targets {
    std::vector<std::string> files;
    std::vector<unread_input> unread; // hives, and databases that lead out of the volume
    std::vector<std::string> volumes; // that were named, by their roots
    std::vector<std::string> roots;   // from which places are counted; none where nothing tells
    std::vector<installed_databases> installed;
    std::vector<registry_lists> lists; // beside each of these, of a run that explains
    bool is_one_registry =
        false;              // it was named, lies on none of the volumes and tells of all of them
    bool has_volume = true; // false where what was named as one proved to be none

    registry_facts find_installed(const std::string& path) const;
    // What else the registry has that knows of a path; null for none.
    const registry_lists* lists_for(const std::string& path) const;
};

// Something about the registry that its user should know.
enum class registry_finding_kind {
    hive_missing,  // that of a volume; nothing is known
    hive_unread,   // with a reason
    no_memory,     // for what the hive holds
    no_key,        // the hive has no place for installed databases
    damaged,       // some of the hive could not be read
    changed,       // the hive did while it was read
    logs_taken,    // the hive was not closed, and brought up to date
    logs_missing,  // the same, and no log counts
    logs_left_out, // the same, as was asked for
    not_opened,    // a path of another machine than this
    leaves_volume, // a path that leads out of its volume, not opened either
    names_no_file, // a path
};
// What the logs of a hive changed.
struct log_findings {
    hive::log_outcome outcome;
    // Installed databases that are in the hive with them alone, or without them alone, or are others.
    std::uint64_t added = 0;
    std::uint64_t removed = 0;
    std::uint64_t changed = 0;
};
struct registry_finding {
    registry_finding_kind kind;
    std::string subject; // a path
    std::string reason = {};
    log_findings logs = {};
};

// Enters a row of a query into the table, by key: a value of a database's key, which is the seventh
// segment of its path. A value tells its meaning by a word in its name.
void fold_installed_row(installed_table& table, const hive::hive_value_record& row);

// The query whose rows are folded. It asks for no more of a value's data than its meaning needs.
hive::registry_cmd_parameters installed_query();

// Reads the installed databases from the run's hives, if it has any, and appends to the files those that
// the run does not have yet, by path. A stored path is opened, and so is a file of the run,
// below the volume that was named or where the hive is this machine's own; others are only listed,
// where the run lists databases. Gives back what should be said.
std::vector<registry_finding> gather_installed_databases(run_targets& targets,
                                                         const request::sdb_opts& options,
                                                         const registry_place& place,
                                                         files::file_tree& tree,
                                                         const ntfs::trace_text& trace = {});

} // namespace model
