#include "files/file_tree.h"

#include <algorithm>
#include <charconv>
#include <utility>

namespace files {

namespace {

constexpr std::string_view separators = "/\\";
constexpr std::size_t most_images = 8; // that are kept open

std::string without_end(const std::string& path)
{
    return path.substr(0, path.find_last_not_of(separators) + 1);
}

// Takes the number of a partition off the beginning of a path; 0 for what is none.
unsigned take_partition(std::string& path)
{
    const std::size_t end = std::min(path.find_first_of(separators), path.size());
    unsigned number = 0;
    const auto [last, error] = std::from_chars(path.data(), path.data() + end, number);
    if (error != std::errc{} || last != path.data() + end || path.starts_with('0')) {
        return 0;
    }
    path.erase(0, std::min(path.find_first_not_of(separators, end), path.size()));
    return number;
}

} // namespace

// Looks among the images that are open: a path that goes on behind one leads into it.
file_tree::location file_tree::locate_known(const std::string& path)
{
    const std::scoped_lock lock(mutex_);
    const auto known = std::ranges::find_if(images_, [&](const known_image& each) {
        return each.of->holds() != image::contents::other && path.size() > each.path.size() &&
               path.starts_with(each.path) &&
               separators.find(path[each.path.size()]) != std::string_view::npos;
    });
    if (known == images_.end()) {
        return {};
    }
    images_.splice(images_.begin(), images_, known);
    const std::size_t rest = path.find_first_not_of(separators, known->path.size());
    return rest == std::string::npos ? location{}
                                     : location{known->of, known->path, path.substr(rest)};
}

std::shared_ptr<image> file_tree::image_at(const std::string& path)
{
    {
        const std::scoped_lock lock(mutex_);
        const auto known = std::ranges::find(images_, path, &known_image::path);
        if (known != images_.end()) {
            return known->of;
        }
    }
    auto opened = image::open(path);
    const std::scoped_lock lock(mutex_);
    const auto known = std::ranges::find(images_, path, &known_image::path);
    if (known != images_.end()) { // by another thread, meanwhile
        return known->of;
    }
    images_.push_front({path, opened});
    if (images_.size() > most_images) {
        images_.pop_back();
    }
    return opened;
}

// Looks for the longest beginning of a path that is there; where that is a file, the rest leads into it.
file_tree::location file_tree::locate(const std::string& path)
{
    if (location known = locate_known(path); known.of) {
        return known;
    }
    const std::string whole = without_end(path);
    std::size_t end = whole.find_last_of(separators);
    while (end != std::string::npos && end != 0) {
        const std::size_t last = whole.find_last_not_of(separators, end);
        if (last == std::string::npos) {
            break;
        }
        const std::string front = whole.substr(0, last + 1);
        platform::file_facts facts;
        if (platform::read_file_facts(front, facts)) {
            if (facts.is_directory) {
                return {};
            }
            return {image_at(front), front,
                    whole.substr(whole.find_first_not_of(separators, last + 1))};
        }
        end = whole.find_last_of(separators, last);
    }
    return {};
}

bool file_tree::find(const location& where, found_place& found, std::string& reason)
{
    std::string rest = where.rest;
    unsigned partition = 0;
    found.root = platform::walkable_path(where.path);
    if (where.of->holds() == image::contents::disk) {
        partition = take_partition(rest);
        if (partition == 0) {
            reason = mounted_volume::no_such_file;
            return false;
        }
        found.root = platform::join_path(found.root, std::to_string(partition));
    }
    std::string why;
    found.volume = where.of->volume(partition, why);
    if (!found.volume) {
        reason = rest.empty() || why == mounted_volume::no_such_file ? why : found.root + " " + why;
        return false;
    }
    return found.volume->find(rest, found.place, reason);
}

std::unique_ptr<io::byte_source> file_tree::open(const std::string& path, std::string& reason)
{
    location where = locate_known(path);
    if (!where.of) {
        auto source = io::open_source(path, reason);
        if (source || !(where = locate(path)).of) {
            return source;
        }
    }
    if (where.of->holds() == image::contents::other) {
        reason = where.path + " " + where.of->reason();
        return nullptr;
    }
    found_place found;
    return find(where, found, reason) ? found.volume->open(found.place, reason) : nullptr;
}

bool file_tree::read_facts(const std::string& path, platform::file_facts& facts)
{
    location where = locate_known(path);
    if (!where.of && platform::read_file_facts(path, facts)) {
        return true;
    }
    where = where.of ? where : locate(path);
    facts = {};
    std::string reason;
    found_place found;
    return where.of && where.of->holds() != image::contents::other && find(where, found, reason) &&
           found.volume->read_facts(found.place, facts);
}

bool file_tree::is_missing(const std::string& path)
{
    const location where = locate(path);
    if (!where.of || where.of->holds() == image::contents::other) {
        return platform::is_missing(path);
    }
    std::string reason;
    found_place found;
    return !find(where, found, reason) && reason == mounted_volume::no_such_file;
}

// Nothing leads out of an image.
bool file_tree::lies_below(const std::string& path, const std::string& folder)
{
    return locate(path).of || platform::lies_below(path, folder);
}

platform::listing_result file_tree::list_in(const location& where,
                                            std::vector<platform::directory_entry>& entries)
{
    entries.clear();
    if (where.of->holds() == image::contents::other) {
        return {false, false, where.of->reason()};
    }
    if (where.rest.empty() && where.of->holds() == image::contents::disk) {
        for (const ntfs::disk_partition& each : where.of->table().partitions) {
            entries.push_back({std::to_string(each.number), platform::entry_kind::directory});
        }
        return where.of->table().state == ntfs::table_state::damaged
                   ? platform::listing_result{false, false, "its partition table is damaged"}
                   : platform::listing_result{true, false, {}};
    }
    found_place found;
    std::string reason;
    if (!find(where, found, reason)) {
        const bool is_missing = reason == mounted_volume::no_such_file;
        return {false, is_missing, is_missing ? "no such folder" : reason};
    }
    return found.volume->list(found.place, entries);
}

platform::listing_result file_tree::list(const std::string& folder,
                                         std::vector<platform::directory_entry>& entries)
{
    if (const location known = locate_known(folder); known.of) {
        return list_in(known, entries);
    }
    platform::listing_result result = platform::list_directory(folder, entries);
    if (result.is_whole || !entries.empty()) {
        return result;
    }
    std::string reason;
    const place_kind kind = kind_of(folder, reason);
    if (kind == place_kind::volume || kind == place_kind::disk) {
        const std::string path = without_end(folder);
        const location where = locate(path);
        return list_in(where.of ? where : location{image_at(path), path, {}}, entries);
    }
    const location where = locate(folder);
    return where.of ? list_in(where, entries) : result;
}

std::string file_tree::walkable_path(const std::string& path)
{
    const location where = locate(path);
    std::string reason;
    found_place found;
    if (!where.of || where.of->holds() == image::contents::other || !find(where, found, reason)) {
        return where.of ? path : platform::walkable_path(path);
    }
    std::string spelled = std::move(found.root);
    for (const std::string& name : found.place.names) {
        spelled = platform::join_path(spelled, name);
    }
    return found.place.stream.empty() ? spelled : spelled + ':' + found.place.stream;
}

bool file_tree::list_streams(const std::string& path, std::vector<std::string>& paths)
{
    const location where = locate(path);
    std::string reason;
    found_place found;
    if (!where.of || where.of->holds() == image::contents::other) {
        return true;
    }
    std::vector<std::string> names;
    const bool are_all =
        find(where, found, reason) && found.volume->list_streams(found.place, names);
    for (const std::string& name : names) {
        paths.push_back(path + ':' + name);
    }
    return are_all;
}

std::vector<platform::file_id> file_tree::identify(const std::string& path)
{
    if (const auto id = platform::identify_file(path)) {
        const std::scoped_lock lock(mutex_);
        const auto known = std::ranges::find(images_, without_end(path), &known_image::path);
        return known != images_.end() ? known->of->ids() : std::vector{*id};
    }
    const location where = locate(path);
    return where.of ? where.of->ids() : std::vector<platform::file_id>();
}

place_kind file_tree::kind_of(const std::string& path, std::string& reason)
{
    platform::file_facts facts;
    const std::string whole = without_end(path);
    if (!locate_known(path).of && platform::read_file_facts(whole.empty() ? path : whole, facts)) {
        if (facts.is_directory) {
            return place_kind::folder;
        }
        const auto of = image_at(whole);
        reason = of->reason();
        return of->holds() == image::contents::volume ? place_kind::volume
               : of->holds() == image::contents::disk ? place_kind::disk
                                                      : place_kind::file;
    }
    const location where = locate(path);
    found_place found;
    if (!where.of || where.of->holds() == image::contents::other) {
        reason = mounted_volume::no_such_file;
        return place_kind::nothing;
    }
    if (!find(where, found, reason)) {
        // A partition is there, whatever it holds.
        return found.root == platform::walkable_path(where.path) || found.volume
                   ? place_kind::nothing
                   : place_kind::file;
    }
    if (found.place.names.empty()) {
        return place_kind::volume;
    }
    if (!found.volume->read_facts(found.place, facts)) {
        return place_kind::nothing;
    }
    return facts.is_directory ? place_kind::folder : place_kind::file;
}

bool file_tree::is_folder(const std::string& path)
{
    std::string reason;
    const place_kind kind = kind_of(walkable_path(path), reason);
    return kind != place_kind::nothing && kind != place_kind::file;
}

bool file_tree::reads_copy_of_table(const std::string& disk)
{
    std::string reason;
    return kind_of(disk, reason) == place_kind::disk &&
           image_at(without_end(disk))->table().state == ntfs::table_state::copy;
}

std::vector<std::string> file_tree::volumes_at(const std::string& path)
{
    std::string reason;
    std::vector<std::string> roots;
    if (const location where = locate(path); where.of) {
        found_place found;
        if (find(where, found, reason)) {
            roots.push_back(std::move(found.root));
        }
    } else if (kind_of(path, reason) == place_kind::volume) {
        roots.push_back(walkable_path(without_end(path)));
    } else if (kind_of(path, reason) == place_kind::disk) {
        const std::string disk = walkable_path(without_end(path));
        for (const ntfs::disk_partition& each : image_at(without_end(path))->table().partitions) {
            std::string volume = platform::join_path(disk, std::to_string(each.number));
            if (kind_of(volume, reason) == place_kind::volume) {
                roots.push_back(std::move(volume));
            }
        }
    }
    return roots;
}

} // namespace files
