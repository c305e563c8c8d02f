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

// Snapshots and images of a volume are opened by their whole text, volumes by their letter.
ntfs::volume_source source_of(const request::sdb_opts& options)
{
    return options.vss_given || is_volume_image(options) ? ntfs::volume_source::device
                                                         : ntfs::volume_source::letter;
}

// A path below the run's volume, or else one with a drive letter, lies on a volume that can be told.
std::optional<raw_place> place_of_hive(const request::sdb_opts& options)
{
    const path_parts hive = parts_of(options.software_hive_path);
    const auto below =
        options.volume_text.empty() ? std::nullopt : place_below(hive, options.volume_text);
    if (below) {
        return raw_place{options.volume_text, source_of(options), *below};
    }
    if (!hive.drive.empty()) {
        return raw_place{hive.drive, ntfs::volume_source::letter, folded(hive.names)};
    }
    return std::nullopt;
}

std::string words_of(ntfs::volume_state state, const std::string& volume)
{
    std::string reason = "cannot be opened";
    switch (state) {
    case ntfs::volume_state::no_records:
        return "is a damaged NTFS volume";
    case ntfs::volume_state::not_ntfs:
        return "is no NTFS volume";
    default:
        io::open_source(volume, reason);
        return reason;
    }
}

// Reads the hive off its volume. What was learnt of the ordinary file stays where that gives
// nothing.
void read_off_volume(software_hive& hive, const request::sdb_opts& options,
                     const ntfs::trace_text& trace, const platform::device_opener& open_device)
{
    const std::optional<raw_place> place = place_of_hive(options);
    if (!place) {
        return;
    }
    ntfs::volume_state state = ntfs::volume_state::closed;
    auto volume = ntfs::open_ntfs_volume(place->volume, place->source, open_device, &state);
    if (!volume) {
        if (is_volume_image(options)) {
            hive.state = hive_state::no_volume;
            hive.reason = words_of(state, place->volume);
        }
        return;
    }
    auto source = ntfs::open_locked_file(std::move(volume), place->path, trace);
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

void open_ordinary_file(software_hive& hive, const std::string& path)
{
    auto source = io::open_source(path, hive.reason);
    if (!source) {
        hive.state = platform::is_missing(path) ? hive_state::missing : hive_state::unreadable;
        return;
    }
    hive.state = hive_state::unreadable;
    if (hive.bytes.open(std::move(source))) {
        hive.state = hive_state::opened;
    } else {
        hive.reason = hive.bytes.has_failed() ? "reading failed" : "is no hive";
    }
}

} // namespace

software_hive load_software_hive(const request::sdb_opts& options, const ntfs::trace_text& trace,
                                 const platform::device_opener& open_device)
{
    software_hive hive;
    try {
        if (!options.hive_named && leads_out_of_volume(options, options.software_hive_path)) {
            hive.state = hive_state::unreadable;
            hive.reason = "leads out of the volume";
            return hive;
        }
        open_ordinary_file(hive, options.software_hive_path);
        const bool may_be_elsewhere = hive.state == hive_state::unreadable ||
                                      (hive.state == hive_state::missing && !options.hive_named);
        if (may_be_elsewhere) {
            read_off_volume(hive, options, trace, open_device);
        }
    } catch (const std::bad_alloc&) {
        hive = {};
        hive.state = hive_state::no_memory;
    }
    return hive;
}

software_hive load_named_hive(const std::string& path)
{
    software_hive hive;
    open_ordinary_file(hive, path);
    return hive;
}

bool is_volume_image(const request::sdb_opts& options)
{
    platform::file_facts facts;
    return (options.volume_given || options.vss_given) &&
           platform::volume_at(options.volume_text).has_value() &&
           platform::read_file_facts(options.volume_text, facts) && !facts.is_directory;
}

bool leads_out_of_volume(const request::sdb_opts& options, const std::string& path)
{
    return (options.volume_given || options.vss_given) && !is_volume_image(options) &&
           !platform::lies_below(path, options.volume_text);
}

// cppcheck-suppress unusedFunction ; called by a constructor
bool is_own_hive(const request::sdb_opts& options)
{
    const std::optional<std::string> own = platform::own_software_hive();
    if (!own) {
        return false;
    }
    const std::string& path = options.software_hive_path;
    const auto id = platform::identify_file(path);
    return folded(parts_of(path)) == folded(parts_of(*own)) ||
           (id && id == platform::identify_file(*own));
}

} // namespace model
