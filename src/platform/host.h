#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace platform {

std::optional<std::string> environment_variable(const std::string& name);

// What the machine says of itself, in the pieces that the run header shows.
struct host_facts {
    bool is_64bit = false;
    bool known_version = false;  // the version numbers below are to be trusted
    std::string os_name;         // "Windows", or the system's own name
    std::string os_version_text; // major.minor, role, service pack
    std::string os_build_text;   // major.minor.build
    std::string host_name;       // "<unk>" where the system gives none
    bool runs_remote = false;    // the program runs from a remote location
    bool runs_removable = false; // the program runs from a removable drive
};

host_facts read_host_facts();

// The path of the hive "software" of the system that runs here; nothing where systems have none.
std::optional<std::string> own_software_hive();

// The machine's name alone, which costs less than all facts; "<unk>" on failure.
std::string host_name();

// Whether the process has full administrator rights.
bool is_process_admin();

// Raises the named event `name`, so that a second process that waits on it goes on. Failure is
// ignored.
void raise_named_event(const std::string& name);

} // namespace platform
