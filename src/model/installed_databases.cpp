#include "model/installed_databases.h"

#include <algorithm>
#include <array>
#include <memory>
#include <new>
#include <set>
#include <string_view>
#include <utility>

#include "hive/hive_image.h"
#include "ntfs/locked_file.h"
#include "platform/directories.h"
#include "platform/files.h"
#include "uni/byte_view.h"
#include "uni/paths.h"
#include "uni/text.h"
#include "uni/utf.h"

namespace model {

namespace {

constexpr std::size_t drive_letter_and_colon = 2;

std::string text_of(uni::byte_view data)
{
    std::string text;
    uni::utf16_to_text(data, text);
    return text;
}

// What the name of a value tells of its meaning: the first of these words that it has.
struct meaning {
    std::string_view word;
    hive::data_need need;
    void (*take)(installed_database& to, uni::byte_view data);
};
using entry = installed_database;
constexpr auto meanings = std::to_array<meaning>({
    {"description", hive::data_need::text,
     [](entry& to, uni::byte_view data) { to.description = text_of(data); }},
    {"type", hive::data_need::number,
     [](entry& to, uni::byte_view data) { to.database_type = data.u32(0); }},
    {"timestamp", hive::data_need::number,
     [](entry& to, uni::byte_view data) { to.install_time = data.u64(0); }},
    {"path", hive::data_need::text,
     [](entry& to, uni::byte_view data) { to.database_path = text_of(data); }},
});

const meaning* meaning_of(std::string_view value_name)
{
    const std::string name = uni::lowered(value_name);
    const auto found = std::find_if(meanings.begin(), meanings.end(), [&](const meaning& one) {
        return name.find(one.word) != name.npos;
    });
    return found == meanings.end() ? nullptr : &*found;
}

std::string lower_file_name(const std::string& path)
{
    const std::string lower = uni::lowered(path);
    std::string folder;
    std::string name;
    return uni::split_path(lower, folder, name) ? name : lower;
}

// A stored path on the run's volume: the volume stands for the drive letter. Names are joined one by
// one, so that the path can be used where the stored separators are none, and none leads out of the
// volume.
std::string path_on_volume(const std::string& volume, const std::string& stored)
{
    std::string rest = stored.substr(drive_letter_and_colon);
    uni::replace_char(rest, '/', '\\');
    std::vector<std::string> names;
    for (std::string& name : uni::split(rest, '\\', false)) {
        if (name == "..") {
            names.resize(names.empty() ? 0 : names.size() - 1);
        } else if (name != ".") {
            names.push_back(std::move(name));
        }
    }
    std::string path = volume;
    for (const std::string& name : names) {
        path = platform::join_path(path, name);
    }
    path = platform::walkable_path(path);
    return rest.ends_with('\\') ? platform::join_path(path, {}) : path;
}

// Where this run finds a database; empty where the stored path leads nowhere.
std::string local_path(const request::sdb_opts& options, const std::string& stored)
{
    if (!options.vss_given && !options.volume_given) {
        return stored;
    }
    return stored.size() < drive_letter_and_colon ? std::string()
                                                  : path_on_volume(options.volume_text, stored);
}

// Of two databases with one file name the one whose key sorts first stays.
installed_table by_file_name(const request::sdb_opts& options, installed_table by_key)
{
    installed_table installed;
    while (!by_key.empty()) { // one by one, so that none is held twice
        const auto node = by_key.extract(by_key.begin());
        installed_database& database = node.mapped();
        database.local_path = local_path(options, database.database_path);
        std::string name = lower_file_name(database.local_path.empty() ? database.database_path
                                                                       : database.local_path);
        installed.try_emplace(std::move(name), std::move(database));
    }
    return installed;
}

void add_files(run_targets& targets)
{
    std::set<std::string> names;
    for (const std::string& path : targets.files) {
        names.insert(lower_file_name(path));
    }
    for (const auto& [name, database] : targets.installed) {
        if (!database.local_path.empty() && names.insert(name).second) {
            targets.files.push_back(database.local_path);
        }
    }
}

// Snapshots and images of a volume are opened by their whole text, volumes by their letter. Without
// a volume that is the first character of the database's path, whatever it is, as a path of this
// machine has its drive there.
ntfs::volume_source source_of(const request::sdb_opts& options)
{
    const bool is_image =
        options.partition_given && platform::volume_at(options.volume_text).has_value();
    return options.vss_given || is_image ? ntfs::volume_source::device
                                         : ntfs::volume_source::letter;
}

hive::hive_bytes locked_hive(const request::sdb_opts& options, const ntfs::trace_text& trace,
                             const platform::device_opener& open_device)
{
    hive::hive_bytes bytes;
    bytes.open(ntfs::open_locked_file(
        ntfs::open_ntfs_volume(options.volume_text, source_of(options), open_device),
        "\\windows\\system32\\config\\software", trace));
    return bytes;
}

} // namespace

void fold_installed_row(installed_table& table, const hive::hive_value_record& row)
{
    constexpr std::size_t database_segment = 6;
    if (row.path_segments->size() <= database_segment) {
        return;
    }
    const std::string key = uni::lowered((*row.path_segments)[database_segment]);
    const auto [place, is_new] = table.try_emplace(key);
    if (is_new) {
        place->second.key_path = key;
        place->second.key_modtime = row.last_write;
    }
    // Of several values that mean the same the last counts.
    if (const meaning* const value = meaning_of(row.value_name)) {
        value->take(place->second, uni::byte_view(row.data));
    }
}

hive::registry_cmd_parameters installed_query()
{
    hive::registry_cmd_parameters query = hive::query_installed_databases();
    query.need = [](std::string_view value_name) {
        const meaning* const value = meaning_of(value_name);
        return value ? value->need : hive::data_need::existence;
    };
    return query;
}

hive::hive_bytes load_software_hive(const request::sdb_opts& options, const ntfs::trace_text& trace,
                                    const platform::device_opener& open_device)
{
    try {
        hive::hive_bytes bytes;
        if (bytes.open(io::open_source(options.software_hive_path))) {
            return bytes;
        }
        return locked_hive(options, trace, open_device);
    } catch (const std::bad_alloc&) {
        // The run goes on without what does not fit.
    }
    return {};
}

const installed_database* find_installed(const installed_table& installed, const std::string& path)
{
    const std::string name = lower_file_name(path);
    const auto found = installed.find(name);
    // An empty name is that of the installed databases without a path, not of a file.
    return name.empty() || found == installed.end() ? nullptr : &found->second;
}

void gather_installed_databases(run_targets& targets, const request::sdb_opts& options,
                                const ntfs::trace_text& trace)
{
    if (!options.hive_given || options.software_hive_path.empty()) {
        return;
    }
    const hive::hive_image image(load_software_hive(options, trace));
    installed_table table;
    hive::hive_query(installed_query(), image,
                     [&table](hive::hive_value_record&& row) { fold_installed_row(table, row); });
    if (!table.empty()) {
        targets.installed = by_file_name(options, std::move(table));
        add_files(targets);
    }
}

} // namespace model
