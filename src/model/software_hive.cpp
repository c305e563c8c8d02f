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

void open_file(software_hive& hive, files::file_tree& tree, const std::string& path)
{
    auto source = tree.open(path, hive.reason);
    if (!source) {
        hive.state = tree.is_missing(path) ? hive_state::missing : hive_state::unreadable;
        return;
    }
    hive.state = hive_state::unreadable;
    if (hive.bytes.open(std::move(source))) {
        hive.state = hive_state::opened;
    } else {
        hive.reason = hive.bytes.has_failed() ? "reading failed" : "is no hive";
    }
}

// Brings a hive up to date that was not closed.
void take_logs(software_hive& hive, const request::sdb_opts& options, files::file_tree& tree,
               const std::string& path)
{
    auto source = tree.open(path);
    if (!source || !hive::is_unclosed(*source)) {
        return;
    }
    if (options.no_logs) {
        hive.logs = hive_logs::left_out;
        return;
    }
    std::vector<std::unique_ptr<io::byte_source>> logs;
    for (const char* const ending : {".LOG1", ".LOG2", ".LOG"}) {
        logs.push_back(tree.open(path + ending));
    }
    source = hive::with_logs(std::move(source), std::move(logs), hive.log_outcome);
    hive.logs = hive.log_outcome.entries != 0 ? hive_logs::taken : hive_logs::none;
    if (hive.logs == hive_logs::taken) {
        hive.bytes_before = std::move(hive.bytes);
        hive.bytes = {};
        hive.bytes.open(std::move(source));
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
        open_file(hive, tree, place.hive);
        const bool may_be_elsewhere = hive.state == hive_state::unreadable ||
                                      (hive.state == hive_state::missing && !options.hive_named);
        const auto raw = place_of_hive(options, place);
        if (may_be_elsewhere && raw && !tree.is_in_image(place.hive)) {
            read_off_volume(hive, *raw, trace, open_device);
        } else if (hive.state == hive_state::opened) {
            take_logs(hive, options, tree, place.hive);
        }
    } catch (const std::bad_alloc&) {
        hive = {};
        hive.state = hive_state::no_memory;
    }
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
