#pragma once

#include <string>

#include "hive/hive_bytes.h"
#include "ntfs/volume.h"
#include "platform/devices.h"
#include "request/sdb_opts.h"

namespace model {

// What became of the run's hive.
enum class hive_state {
    opened,
    missing,
    unreadable, // it is there, or something else is in its place
    no_volume,  // the image that should hold it is none of a volume that can be read
    no_memory,
};

struct software_hive {
    hive_state state = hive_state::missing;
    hive::hive_bytes bytes; // of one that was opened
    std::string reason;     // in words, of any other
};

// The bytes of the run's hive: of the ordinary file, or, where that is there and cannot be read, as
// one cannot that the running system keeps locked, those read off its volume; of a volume in an
// image always those. A hive that was named and is missing has no other in its place. What is met on
// the volume goes to `trace`, where one is given.
software_hive
load_software_hive(const request::sdb_opts& options, const ntfs::trace_text& trace = {},
                   const platform::device_opener& open_device = platform::open_device);

// The bytes of a hive that was named beside the first: of the ordinary file.
software_hive load_named_hive(const std::string& path);

// Whether the run's volume is an image: a file or a device in which folders cannot be listed.
bool is_volume_image(const request::sdb_opts& options);

// Whether a path, which is made below the run's volume, leads elsewhere by its links: onto the machine
// that examines it.
bool leads_out_of_volume(const request::sdb_opts& options, const std::string& path);

// Whether the run's hive is that of the system which runs here, so that the paths in it are those of
// this machine.
bool is_own_hive(const request::sdb_opts& options);

} // namespace model
