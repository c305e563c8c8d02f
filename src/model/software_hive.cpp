#include "model/software_hive.h"

#include <memory>
#include <new>
#include <optional>
#include <utility>

#include "model/stored_path.h"
#include "ntfs/locked_file.h"
#include "platform/files.h"
#include "platform/host.h"

namespace model {

namespace {

// Where a hive lies below its file system.
struct raw_place {
    std::string volume;
    ntfs::volume_source source;
    std::string path;
};

// A path below the volume, or else one with a drive letter, lies on a volume that can be told.
// Snapshots are opened by their whole text, volumes by their letter.
std::optional<raw_place> place_of_hive(const request::sdb_opts& options,
                                       const registry_place& place)
{
    const path_parts hive = parts_of(place.hive);
    const auto below = place.volume.empty() ? std::nullopt : place_below(hive, place.volume);
    using enum ntfs::volume_source;
    if (below) {
        return raw_place{place.volume, options.vss_given ? device : letter, *below};
    }
    if (!hive.drive.empty()) {
        return raw_place{hive.drive, letter, folded(hive.names)};
    }
    return std::nullopt;
}

// Reads the hive off its volume. What was learnt of the ordinary file stays where that gives
// nothing.
void read_off_volume(software_hive& hive, const raw_place& place, const ntfs::trace_text& trace,
                     const platform::device_opener& open_device)
{
    auto source = ntfs::open_locked_file(
        ntfs::open_ntfs_volume(place.volume, place.source, open_device), place.path, trace);
    if (!source) {
        return;
    }
    if (hive.bytes.open(std::move(source))) {
        hive.state = hive_state::opened;
    } else {
        hive.state = hive_state::unreadable;
        hive.reason = hive.bytes.has_failed() ? "reading failed" : "is no hive";
    }
}

void take_bytes(software_hive& hive, std::unique_ptr<io::byte_source> source)
{
    hive.state = hive_state::unreadable;
    if (hive.bytes.open(std::move(source))) {
        hive.state = hive_state::opened;
    } else {
        hive.reason = hive.bytes.has_failed() ? "reading failed" : "is no hive";
    }
}

// The logs beside a hive; false if one is there and does not open.
bool open_logs(std::vector<std::unique_ptr<io::byte_source>>& logs, files::file_tree& tree,
               const std::string& path)
{
    for (const char* const ending : log_endings) {
        auto log = tree.open(path + ending);
        if (!log && !tree.is_missing(path + ending)) {
            return false;
        }
        logs.push_back(std::move(log));
    }
    return true;
}

// Opens the file; one that was not closed is brought up to date.
void open_file(software_hive& hive, const request::sdb_opts& options, files::file_tree& tree,
               const std::string& path)
{
    auto source = tree.open(path, hive.reason);
    if (!source) {
        hive.state = tree.is_missing(path) ? hive_state::missing : hive_state::unreadable;
        return;
    }
    hive.is_doubtful = source->history() != nullptr && source->history()->is_damaged;
    if (!hive::is_unclosed(*source)) {
        take_bytes(hive, std::move(source));
        return;
    }
    if (options.no_logs) {
        hive.logs = hive_logs::left_out;
        take_bytes(hive, std::move(source));
        return;
    }
    std::vector<std::unique_ptr<io::byte_source>> logs;
    const bool are_open = open_logs(logs, tree, path);
    auto before = tree.open(path, hive.reason);
    if (!before) {
        hive.state = hive_state::unreadable;
        return;
    }
    take_bytes(hive, hive::with_logs(std::move(source), std::move(logs), hive.log_outcome));
    hive.log_outcome.has_failed |= !are_open;
    hive.logs = hive.log_outcome.entries != 0 ? hive_logs::taken : hive_logs::none;
    if (hive.logs == hive_logs::taken) {
        hive.bytes_before.open(std::move(before));
    }
}

} // namespace

software_hive load_software_hive(const request::sdb_opts& options, const registry_place& place,
                                 files::file_tree& tree, const ntfs::trace_text& trace,
                                 const platform::device_opener& open_device)
{
    software_hive hive;
    try {
        if (!options.hive_named && leads_out_of_volume(options, place.volume, tree, place.hive)) {
            hive.state = hive_state::unreadable;
            hive.reason = "leads out of the volume";
            return hive;
        }
        open_file(hive, options, tree, place.hive);
        const bool may_be_elsewhere = hive.state == hive_state::unreadable ||
                                      (hive.state == hive_state::missing && !options.hive_named);
        const auto raw = place_of_hive(options, place);
        if (may_be_elsewhere && raw && !tree.is_in_image(place.hive)) {
            read_off_volume(hive, *raw, trace, open_device);
        }
    } catch (const std::bad_alloc&) {
        hive = {};
        hive.state = hive_state::no_memory;
    }
    return hive;
}

software_hive load_named_hive(const request::sdb_opts& options, const std::string& path,
                              files::file_tree& tree)
{
    software_hive hive;
    open_file(hive, options, tree, path);
    return hive;
}

bool leads_out_of_volume(const request::sdb_opts& options, const std::string& volume,
                         files::file_tree& tree, const std::string& path)
{
    return (options.volume_given || options.vss_given) && !tree.lies_below(path, volume);
}

// cppcheck-suppress unusedFunction ; called by a constructor
bool is_own_hive(const std::string& path)
{
    const std::optional<std::string> own = platform::own_software_hive();
    if (!own) {
        return false;
    }
    const auto id = platform::identify_file(path);
    return folded(parts_of(path)) == folded(parts_of(*own)) ||
           (id && id == platform::identify_file(*own));
}

} // namespace model
