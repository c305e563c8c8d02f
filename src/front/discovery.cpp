#include "front/discovery.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <set>
#include <string_view>
#include <utility>

#include "io/byte_source.h"
#include "model/stored_path.h"
#include "platform/files.h"
#include "sdb/database.h"
#include "uni/byte_view.h"
#include "uni/text.h"

namespace front {

namespace {

constexpr std::uint32_t default_depth = 8;

bool comes_before(const platform::directory_entry& a, const platform::directory_entry& b)
{
    const auto folded_before = [](char x, char y) {
        return static_cast<unsigned char>(uni::lower_ascii(x)) <
               static_cast<unsigned char>(uni::lower_ascii(y));
    };
    if (uni::equal_ignoring_case(a.name, b.name)) {
        return a.name < b.name;
    }
    return std::lexicographical_compare(a.name.begin(), a.name.end(), b.name.begin(), b.name.end(),
                                        folded_before);
}

bool is_sdb_name(std::string_view name)
{
    constexpr std::string_view extension = ".sdb";
    return name.size() >= extension.size() &&
           uni::equal_ignoring_case(name.substr(name.size() - extension.size()), extension);
}

// The folders on a volume under these names, in every spelling that is there: where letter case
// counts, one may be hidden beside another. The path as it is where there is none.
std::vector<std::string> folders_on_volume(const std::string& volume,
                                           std::initializer_list<const char*> names)
{
    std::vector<std::string> found = {volume};
    for (const char* const name : names) {
        std::vector<std::string> below;
        for (const std::string& folder : found) {
            std::vector<platform::directory_entry> entries;
            platform::list_directory(platform::join_path(folder, {}), entries);
            std::sort(entries.begin(), entries.end(), comes_before);
            for (const platform::directory_entry& entry : entries) {
                if (entry.kind == platform::entry_kind::directory &&
                    uni::equal_ignoring_case(entry.name, name)) {
                    below.push_back(platform::join_path(folder, entry.name));
                }
            }
        }
        if (below.empty()) {
            return {path_on_volume(volume, names)};
        }
        found = std::move(below);
    }
    return found;
}

} // namespace

std::vector<platform::directory_entry> list_in_order(const std::string& folder,
                                                     io::notices& notices, bool may_be_missing)
{
    std::vector<platform::directory_entry> entries;
    const platform::listing_result result = platform::list_directory(folder, entries);
    if (!result.is_whole && !(result.is_missing && may_be_missing)) {
        notices.fail("Prob reading folder %s: %s\n", folder.c_str(), result.reason.c_str());
    }
    std::sort(entries.begin(), entries.end(), comes_before);
    return entries;
}

void walk_sdb_files(const std::string& root, std::vector<std::string>& results, std::uint32_t depth,
                    io::notices& notices)
{
    if (depth == 0 || root == "." || root == "..") {
        return;
    }
    const std::string folder = platform::walkable_path(root);
    const std::vector<platform::directory_entry> entries = list_in_order(folder, notices, true);
    for (const platform::directory_entry& entry : entries) {
        // Folders of such a name come along, so that nothing named like a database is left out.
        if (is_sdb_name(entry.name)) {
            results.push_back(platform::join_path(folder, entry.name));
        }
    }
    for (const platform::directory_entry& entry : entries) {
        const std::string path = platform::join_path(folder, entry.name);
        if (entry.kind == platform::entry_kind::directory) {
            walk_sdb_files(path, results, depth - 1, notices);
        } else if (entry.kind == platform::entry_kind::directory_link) {
            say_linked_folder(path, notices);
        }
    }
}

void say_linked_folder(const std::string& path, io::notices& notices)
{
    notices.say("%s is a link to a folder, not entered\n", path.c_str());
}

void add_default_targets(std::vector<std::string>& files, const std::string& volume,
                         io::notices& notices)
{
    const std::initializer_list<const char*> folders[] = {
        {"Windows", "AppPatch"},
        {"Windows", "System32", "CompatTel"},
        {"Windows", "System32", "appraiser"},
    };
    for (const std::initializer_list<const char*>& names : folders) {
        for (const std::string& folder : folders_on_volume(volume, names)) {
            walk_sdb_files(folder, files, default_depth, notices);
        }
    }
}

std::optional<bool> begins_as_database(const std::string& path)
{
    const auto source = io::open_source(path);
    if (!source) {
        // What is no regular file is none.
        platform::file_facts facts;
        return platform::read_file_facts(path, facts) && facts.size == 0 ? std::optional(false)
                                                                         : std::nullopt;
    }
    std::array<std::uint8_t, sdb::header_size> head{};
    if (source->read(head, 0) != head.size()) {
        return source->has_failed() ? std::nullopt : std::optional(false);
    }
    const std::uint32_t magic = uni::byte_view(head).u32(8);
    return magic == sdb::plain_magic || magic == sdb::compressed_magic;
}

void add_targets_by_content(std::vector<std::string>& files, const std::string& volume,
                            io::notices& notices)
{
    std::set<std::string> known;
    for (const std::string& path : files) {
        known.insert(model::folded(model::parts_of(path)));
    }
    std::uint64_t unread = 0;
    std::vector<std::string> folders = {platform::walkable_path(platform::join_path(volume, {}))};
    while (!folders.empty()) {
        const std::string folder = std::move(folders.back());
        folders.pop_back();
        std::vector<std::string> below;
        for (const platform::directory_entry& entry : list_in_order(folder, notices)) {
            std::string path = platform::join_path(folder, entry.name);
            if (entry.kind == platform::entry_kind::directory) {
                below.push_back(std::move(path));
            } else if (entry.kind == platform::entry_kind::file) {
                const auto is_database = begins_as_database(path);
                unread += is_database ? 0 : 1;
                if (is_database.value_or(false) &&
                    known.insert(model::folded(model::parts_of(path))).second) {
                    files.push_back(std::move(path));
                }
            }
        }
        // The first comes next.
        folders.insert(folders.end(), below.rbegin(), below.rend());
    }
    if (unread != 0) {
        notices.fail("%llu files of %s could not be opened, and may be databases\n",
                     static_cast<unsigned long long>(unread), volume.c_str());
    }
}

std::string path_on_volume(const std::string& volume, std::initializer_list<const char*> names)
{
    std::string path = volume;
    for (const char* const name : names) {
        path = platform::walkable_path(platform::join_path(path, name));
    }
    return path;
}

} // namespace front
