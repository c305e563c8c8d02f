#include "front/discovery.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <set>
#include <string_view>
#include <utility>

#include "files/mounted_volume.h"
#include "model/stored_path.h"
#include "platform/files.h"
#include "sdb/database.h"
#include "uni/byte_view.h"
#include "uni/text.h"

namespace front {

namespace {

constexpr std::uint32_t default_depth = 8;

// Brings entries into the order of walks. Their names are folded once, not for each comparison.
void sort_entries(std::vector<platform::directory_entry>& entries)
{
    std::vector<std::pair<std::string, std::size_t>> keys;
    keys.reserve(entries.size());
    for (const platform::directory_entry& entry : entries) {
        keys.emplace_back(uni::lowered(entry.name), keys.size());
    }
    std::sort(keys.begin(), keys.end(), [&](const auto& a, const auto& b) {
        const int order = a.first.compare(b.first);
        return order != 0 ? order < 0 : entries[a.second].name < entries[b.second].name;
    });
    std::vector<platform::directory_entry> sorted;
    sorted.reserve(entries.size());
    for (const auto& [folded, number] : keys) {
        sorted.push_back(std::move(entries[number]));
    }
    entries = std::move(sorted);
}

bool is_sdb_name(std::string_view name)
{
    constexpr std::string_view extension = ".sdb";
    return name.size() >= extension.size() &&
           uni::equal_ignoring_case(name.substr(name.size() - extension.size()), extension);
}

// The folders on a volume under these names, in every spelling that is there: where letter case
// counts, one may be hidden beside another. The path as it is where there is none.
std::vector<std::string> folders_on_volume(files::file_tree& tree, const std::string& volume,
                                           std::initializer_list<const char*> names)
{
    std::vector<std::string> found = {volume};
    for (const char* const name : names) {
        std::vector<std::string> below;
        for (const std::string& folder : found) {
            std::vector<platform::directory_entry> entries;
            tree.list(platform::join_path(folder, {}), entries);
            sort_entries(entries);
            for (const platform::directory_entry& entry : entries) {
                if (entry.kind == platform::entry_kind::directory &&
                    uni::equal_ignoring_case(entry.name, name)) {
                    below.push_back(platform::join_path(folder, entry.name));
                }
            }
        }
        if (below.empty()) {
            return {path_on_volume(tree, volume, names)};
        }
        found = std::move(below);
    }
    return found;
}

} // namespace

std::vector<platform::directory_entry> list_in_order(files::file_tree& tree,
                                                     const std::string& folder,
                                                     io::notices& notices, bool may_be_missing)
{
    std::vector<platform::directory_entry> entries;
    const platform::listing_result result = tree.list(folder, entries);
    if (!result.is_whole && !(result.is_missing && may_be_missing)) {
        notices.fail("Prob reading folder %s: %s\n", folder.c_str(), result.reason.c_str());
    }
    sort_entries(entries);
    return entries;
}

void walk_sdb_files(files::file_tree& tree, const std::string& root,
                    std::vector<std::string>& results, std::uint32_t depth, io::notices& notices)
{
    if (depth == 0 || root == "." || root == "..") {
        return;
    }
    const std::string folder = tree.walkable_path(root);
    const std::vector<platform::directory_entry> entries =
        list_in_order(tree, folder, notices, true);
    for (const platform::directory_entry& entry : entries) {
        // Folders of such a name come along, so that nothing named like a database is left out.
        if (is_sdb_name(entry.name)) {
            results.push_back(platform::join_path(folder, entry.name));
        }
    }
    for (const platform::directory_entry& entry : entries) {
        const std::string path = platform::join_path(folder, entry.name);
        if (entry.kind == platform::entry_kind::directory) {
            walk_sdb_files(tree, path, results, depth - 1, notices);
        } else if (entry.kind == platform::entry_kind::directory_link) {
            say_linked_folder(path, notices);
        }
    }
}

void say_linked_folder(const std::string& path, io::notices& notices)
{
    notices.say("%s is a link to a folder, not entered\n", path.c_str());
}

void say_copies(files::file_tree& tree, const std::string& path, io::notices& notices)
{
    if (tree.reads_copy_of_table(path)) {
        notices.say(
            "%s: its partition table is damaged, its copy at the end of the disk was read\n",
            path.c_str());
    }
}

void say_linked_file(const std::string& path, io::notices& notices)
{
    notices.say("%s is a link to a file, not followed\n", path.c_str());
}

void add_default_targets(files::file_tree& tree, std::vector<std::string>& targets,
                         const std::string& volume, io::notices& notices)
{
    const std::initializer_list<const char*> folders[] = {
        {"Windows", "AppPatch"},
        {"Windows", "System32", "CompatTel"},
        {"Windows", "System32", "appraiser"},
    };
    for (const std::initializer_list<const char*>& names : folders) {
        for (const std::string& folder : folders_on_volume(tree, volume, names)) {
            walk_sdb_files(tree, folder, targets, default_depth, notices);
        }
    }
}

std::string folder_of_deleted(const std::string& volume)
{
    return platform::join_path(volume, std::string(files::deleted_folder));
}

void add_deleted_targets(files::file_tree& tree, std::vector<std::string>& targets,
                         const std::string& volume, bool by_content)
{
    std::vector<platform::directory_entry> records;
    std::vector<platform::directory_entry> found;
    const std::string folder = folder_of_deleted(volume);
    tree.list(folder, records);
    for (const platform::directory_entry& record : records) {
        const std::string path = platform::join_path(folder, record.name);
        tree.list(path, found);
        for (const platform::directory_entry& file : found) {
            std::string name = platform::join_path(path, file.name);
            if (by_content ? begins_as_database(tree, name).value_or(true)
                           : is_sdb_name(file.name)) {
                targets.push_back(std::move(name));
            }
        }
    }
}

std::optional<bool> begins_as_database(files::file_tree& tree, const std::string& path)
{
    const auto source = tree.open(path);
    if (!source) {
        // What is no regular file is none.
        platform::file_facts facts;
        const bool is_empty =
            tree.read_facts(path, facts) && facts.size == 0 && !facts.is_directory;
        return is_empty ? std::optional(false) : std::nullopt;
    }
    std::array<std::uint8_t, sdb::header_size> head{};
    if (source->read(head, 0) != head.size()) {
        return source->has_failed() ? std::nullopt : std::optional(false);
    }
    const std::uint32_t magic = uni::byte_view(head).u32(8);
    return magic == sdb::plain_magic || magic == sdb::compressed_magic;
}

void add_targets_by_content(files::file_tree& tree, std::vector<std::string>& files,
                            const std::string& volume, io::notices& notices)
{
    std::set<std::string> known;
    for (const std::string& path : files) {
        known.insert(model::folded(model::parts_of(path)));
    }
    std::uint64_t unread = 0;
    // Whether it could be read.
    const auto take = [&](const std::string& path) {
        const auto is_database = begins_as_database(tree, path);
        if (is_database.value_or(false) &&
            known.insert(model::folded(model::parts_of(path))).second) {
            files.push_back(path);
        }
        return is_database.has_value();
    };
    std::vector<std::string> folders = {tree.walkable_path(platform::join_path(volume, {}))};
    while (!folders.empty()) {
        const std::string folder = std::move(folders.back());
        folders.pop_back();
        std::vector<std::string> below;
        for (const platform::directory_entry& entry : list_in_order(tree, folder, notices)) {
            std::string path = platform::join_path(folder, entry.name);
            const bool is_folder = entry.kind == platform::entry_kind::directory;
            bool is_read = entry.kind != platform::entry_kind::file || take(path);
            if (entry.kind == platform::entry_kind::file || is_folder) {
                std::vector<std::string> streams;
                is_read = tree.list_streams(path, streams) && is_read;
                for (const std::string& stream : streams) {
                    is_read = take(stream) && is_read;
                }
            }
            unread += is_read ? 0 : 1;
            if (is_folder) {
                below.push_back(std::move(path));
            }
        }
        // The first comes next.
        folders.insert(folders.end(), below.rbegin(), below.rend());
    }
    if (unread != 0) {
        notices.fail("%llu files of %s could not be read, and may be databases\n",
                     static_cast<unsigned long long>(unread), volume.c_str());
    }
}

std::string path_on_volume(files::file_tree& tree, const std::string& volume,
                           std::initializer_list<const char*> names)
{
    std::string path = volume;
    for (const char* const name : names) {
        path = tree.walkable_path(platform::join_path(path, name));
    }
    return path;
}

std::vector<std::string> windows_partitions(files::file_tree& tree, const std::string& disk,
                                            io::notices& notices)
{
    std::vector<std::string> volumes;
    const std::string path = tree.walkable_path(disk);
    say_copies(tree, path, notices);
    for (const platform::directory_entry& entry : list_in_order(tree, path, notices)) {
        std::string volume = platform::join_path(path, entry.name);
        std::string reason;
        platform::file_facts facts;
        const bool is_volume = tree.kind_of(volume, reason) == files::place_kind::volume;
        bool is_damaged = reason == files::mounted_volume::damaged ||
                          reason == files::mounted_volume::beyond_image;
        if (is_volume && !(tree.read_facts(path_on_volume(tree, volume, {"Windows"}), facts) &&
                           facts.is_directory)) {
            std::vector<platform::directory_entry> entries;
            const platform::listing_result root = tree.list(volume, entries);
            is_damaged = !root.is_whole;
            reason = is_damaged ? root.reason : "has no Windows folder";
        }
        if (is_damaged) {
            notices.fail("Prob reading volume %s: %s\n", volume.c_str(), reason.c_str());
        } else if (reason.empty()) {
            volumes.push_back(std::move(volume));
        } else {
            notices.say("%s passed over: %s\n", volume.c_str(), reason.c_str());
        }
    }
    return volumes;
}

} // namespace front
