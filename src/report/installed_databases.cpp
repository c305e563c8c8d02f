#include "report/installed_databases.h"

#include <new>
#include <set>
#include <string_view>
#include <utility>

#include "hive/hive_image.h"
#include "hive/hive_query.h"
#include "platform/directories.h"
#include "uni/byte_view.h"
#include "uni/paths.h"
#include "uni/text.h"
#include "uni/utf.h"

namespace report {

namespace {

constexpr std::size_t drive_letter_and_colon = 2;

std::string text_of(uni::byte_view data)
{
    std::string text;
    uni::utf16_to_text(data, text);
    return text;
}

// The names of values are what tells their meaning; of several that tell the same the last counts.
void take_value(front::installed_database& database, const hive::hive_value_record& row)
{
    const std::string name = uni::lowered(row.value_name);
    const auto says = [&name](std::string_view word) { return name.find(word) != name.npos; };
    const uni::byte_view data(row.data);
    if (says("description")) {
        database.description = text_of(data);
    } else if (says("type")) {
        database.database_type = data.u32(0);
    } else if (says("timestamp")) {
        database.install_time = data.u64(0);
    } else if (says("path")) {
        database.database_path = text_of(data);
    }
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
std::string local_path(const front::sdb_opts& options, const std::string& stored)
{
    if (!options.vss_given && !options.volume_given) {
        return stored;
    }
    return stored.size() < drive_letter_and_colon ? std::string()
                                                  : path_on_volume(options.volume_text, stored);
}

// Of two databases with one file name the one whose key sorts first stays.
void keep_by_file_name(front::sdb_opts& options, installed_table table)
{
    for (auto& [key, database] : table) {
        database.local_path = local_path(options, database.database_path);
        std::string name = lower_file_name(database.local_path.empty() ? database.database_path
                                                                       : database.local_path);
        options.installed_databases.try_emplace(std::move(name), std::move(database));
    }
}

void add_targets(front::sdb_opts& options)
{
    std::set<std::string> names;
    for (const std::string& path : options.target_files) {
        names.insert(lower_file_name(path));
    }
    for (const auto& [name, database] : options.installed_databases) {
        if (!database.local_path.empty() && names.insert(name).second) {
            options.target_files.push_back(database.local_path);
        }
    }
}

} // namespace

bool fold_installed_rows(installed_table& table, const std::vector<hive::hive_value_record>& rows)
{
    constexpr std::size_t database_segment = 6;
    for (const hive::hive_value_record& row : rows) {
        if (row.path_segments->size() <= database_segment) {
            continue;
        }
        const std::string key = uni::lowered((*row.path_segments)[database_segment]);
        const auto [place, is_new] = table.try_emplace(key);
        front::installed_database& database = place->second;
        if (is_new) {
            database.key_path = key;
            database.key_modtime = row.last_write;
        }
        take_value(database, row);
    }
    return !table.empty();
}

hive::hive_bytes load_software_hive(const front::sdb_opts& options)
{
    try {
        hive::hive_bytes bytes;
        if (bytes.open(options.software_hive_path)) {
            return bytes;
        }
    } catch (const std::bad_alloc&) {
        // The run goes on without what does not fit.
    }
    return {};
}

void gather_installed_databases(front::sdb_opts& options)
{
    if (!options.hive_given || options.software_hive_path.empty()) {
        return;
    }
    const hive::hive_image image(load_software_hive(options));
    std::vector<hive::hive_value_record> rows;
    installed_table table;
    if (!hive::hive_query(hive::query_installed_databases(), image, rows) ||
        !fold_installed_rows(table, rows)) {
        return;
    }
    keep_by_file_name(options, std::move(table));
    add_targets(options);
}

} // namespace report
