#pragma once

#include <string>
#include <vector>

#include "files/file_tree.h"
#include "hive/hive_bytes.h"
#include "hive/logs.h"
#include "ntfs/volume.h"
#include "platform/devices.h"
#include "request/sdb_opts.h"

namespace model {

// What became of the run's hive.
enum class hive_state {
    opened,
    missing,
    unreadable, // it is there, or something else is in its place
    no_memory,
};

// What stands behind the name of a hive in those of its logs.
inline constexpr const char* log_endings[] = {".LOG1", ".LOG2", ".LOG"};

// What is known of the logs of a hive that was opened.
enum class hive_logs {
    closed,   // it was closed, and they do not count
    taken,    // its bytes are those that they bring it to
    none,     // it was not closed, and there is none that counts
    left_out, // the same, as was asked for
};

struct software_hive {
    hive_state state = hive_state::missing;
    hive::hive_bytes bytes;   // of one that was opened
    std::string reason;       // in words, of any other
    bool is_doubtful = false; // its file's record is damaged, so that bytes may be missing or old
    hive_logs logs = hive_logs::closed;
    hive::log_outcome log_outcome; // of those that were taken
    hive::hive_bytes bytes_before; // without them
};

// Where a registry lies, and the volume whose databases it knows.
struct registry_place {
    std::string volume; // its root; may be empty where the hive was named
    std::string hive;   // path of its hive of software
    // Where no volume was named: the root from which paths of files are counted, as far as it is known.
    std::string root = {};
    // Other volumes beside the first, of whose databases a hive that was named may tell.
    std::vector<std::string> more_volumes = {};
};

// The bytes of a hive: of the file, or, where that is there and cannot be read, as one cannot that the
// running system keeps locked, those read off its volume. A hive that was named and is missing has no
// other in its place. One that was not closed is brought up to date by the logs beside it. What is met
// on the volume goes to `trace`, where one is given.
software_hive
load_software_hive(const request::sdb_opts& options, const registry_place& place,
                   files::file_tree& tree, const ntfs::trace_text& trace = {},
                   const platform::device_opener& open_device = platform::open_device);

// The bytes of a hive that was named beside the first: of the file, and of the logs beside it.
software_hive load_named_hive(const request::sdb_opts& options, const std::string& path,
                              files::file_tree& tree);

// Whether a path, which is made below the root of a volume that was named, leads elsewhere by its
// links: onto the machine that examines it.
bool leads_out_of_volume(const request::sdb_opts& options, const std::string& volume,
                         files::file_tree& tree, const std::string& path);

// Whether a hive is that of the system which runs here, so that the paths in it are those of this
// machine.
bool is_own_hive(const std::string& path);

} // namespace model
