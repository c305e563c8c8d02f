// What the registry tells of compatibility beside the databases that are installed.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace model {

struct installed_database;

// A program for which the registry names a database.
struct custom_entry {
    std::string program;        // as it stands
    std::string id;             // lower-case, in braces; empty for a key that names no database
    std::uint64_t time = 0;     // the number beside it, FILETIME ticks
    std::uint64_t key_time = 0; // last write of the program's key
};

struct layers_entry {
    std::string program; // its path
    std::string layers;
    std::string hive; // the path of the one that says so; empty where it is not known
};

struct driver_entry {
    std::string driver;
    std::string shims;
    std::string hive;
};

struct registry_lists {
    bool has_installed_key = false;       // where databases are registered
    std::set<std::string> installed_keys; // their names there, lower-case, those without values too
    std::vector<custom_entry> customs;
    std::set<std::string> uninstalls; // names of keys, lower-case
    bool has_uninstall_key = false;
    std::vector<layers_entry> layers;
    std::vector<driver_entry> drivers;
    bool is_damaged = false;
    // Databases whose files were told about, their places too.
    std::set<const installed_database*> told;
};

} // namespace model
