#include "model/place.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "model/stored_path.h"
#include "model/suspect_paths.h"
#include "platform/directories.h"
#include "uni/guid.h"
#include "uni/text.h"

namespace model {

namespace {

constexpr std::string_view system_folder = "windows";

std::string joined(const std::vector<std::string>& names, std::size_t from)
{
    std::string text;
    for (std::size_t i = from; i < names.size(); ++i) {
        text += '\\';
        text += names[i];
    }
    return text;
}

// A path by itself tells its root where it leads into the system's folder.
std::optional<std::size_t> depth_of_system_folder(const path_parts& path)
{
    constexpr std::string_view below[] = {"apppatch",  "system32", "syswow64", "winsxs",
                                          "servicing", "temp",     "tasks",    "tracing"};
    // Folders in which users may make one that is called like the system's.
    constexpr std::string_view of_users[] = {
        "users", "documents and settings", "programdata", "temp", "perflogs", "$recycle.bin"};
    for (std::size_t i = 0; i + 2 < path.names.size(); ++i) {
        if (std::ranges::any_of(of_users, [&](std::string_view one) {
                return uni::equal_ignoring_case(path.names[i], one);
            })) {
            return std::nullopt;
        }
        if (uni::equal_ignoring_case(path.names[i], system_folder) &&
            std::ranges::any_of(below, [&](std::string_view one) {
                return uni::equal_ignoring_case(path.names[i + 1], one);
            })) {
            return i;
        }
    }
    return std::nullopt;
}

std::string_view folder_of(std::string_view place)
{
    return place.substr(0, std::min(place.find_last_of('\\'), place.size()));
}

bool lies_in_or_below(std::string_view folder, std::string_view wanted)
{
    return folder.starts_with(wanted) &&
           (folder.size() == wanted.size() || folder[wanted.size()] == '\\' ||
            folder[wanted.size()] == '_' || folder[wanted.size()] == '.'); // of a package
}

void add(finding_list& findings, const examined_database& examined, signal what,
         finding_part first = {}, finding_part second = {})
{
    if (std::optional<finding> made = found(examined, what, 0)) {
        made->first = std::move(first);
        made->second = std::move(second);
        findings.add(*std::move(made));
    }
}

} // namespace

std::vector<std::string> roots_of_run(const request::sdb_opts& options, files::file_tree& tree,
                                      const std::vector<std::string>& volumes)
{
    if (options.volume_given || options.vss_given) {
        return volumes;
    }
    const std::string& path = options.enumdir ? options.enumdir_path : options.sdb_path;
    if (path.empty()) {
        return {};
    }
    std::vector<std::string> roots = tree.volumes_at(path);
    if (options.enumdir && roots.empty() &&
        tree.is_folder(platform::join_path(path, std::string(system_folder)))) {
        roots.push_back(path);
    }
    return roots;
}

std::optional<std::string> place_of(const std::string& path, const std::vector<std::string>& roots)
{
    const path_parts file = parts_of(path);
    for (const std::string& root : roots) {
        if (place_below(file, root)) {
            return joined(file.names, parts_of(root).names.size());
        }
    }
    const auto depth = roots.empty() ? depth_of_system_folder(file) : std::nullopt;
    return depth ? std::optional(joined(file.names, *depth)) : std::nullopt;
}

std::string_view file_name_of(std::string_view path)
{
    return path.substr(path.find_last_of("\\/") + 1);
}

place_kind kind_of_place(const knowledge& known, std::string_view place)
{
    const std::string folder = uni::lowered(folder_of(place));
    if (known.holds(name_list::custom_folder, folder)) {
        return place_kind::custom_folder;
    }
    for (const auto& [entry, note] : known.entries(name_list::vendor_folder)) {
        if (!note.empty() && folder == entry &&
            known.holds(name_list::vendor_database, file_name_of(place))) {
            return place_kind::vendors_by_name;
        }
        if (note.empty() && lies_in_or_below(folder, entry)) {
            return place_kind::vendors;
        }
    }
    return place_kind::elsewhere;
}

bool has_known_identifier(const knowledge& known, std::string_view place)
{
    const std::string* const id = known.note_of(name_list::vendor_database, file_name_of(place));
    return id != nullptr && !id->empty();
}

bool is_vendors_own(const knowledge& known, const std::optional<std::string>& place,
                    const database_identity& identity)
{
    if (!place || kind_of_place(known, *place) != place_kind::vendors_by_name) {
        return false;
    }
    const std::string* const id = known.note_of(name_list::vendor_database, file_name_of(*place));
    return id != nullptr && !identity.has_several_identifiers &&
           (id->empty() || uni::equal_ignoring_case(*id, identity.identifier));
}

void judge_place(finding_list& findings, const examined_database& examined,
                 const std::optional<std::string>& place, std::string_view path,
                 const database_identity& identity)
{
    const std::string_view name = file_name_of(path);
    if (!uni::lowered(name).ends_with(".sdb")) {
        add(findings, examined, signal::place_extension, finding_part(name));
    }
    if (!place) {
        return;
    }
    const place_kind kind = kind_of_place(examined.known, *place);
    if (kind == place_kind::elsewhere) {
        const std::string_view folder = folder_of(*place);
        add(findings, examined, signal::place_outside,
            finding_part(folder.empty() ? std::string_view("the root of its volume") : folder));
    }
    if (is_writable_place(examined.known, *place)) {
        add(findings, examined, signal::place_writable, finding_part(*place));
    }
    if (kind != place_kind::custom_folder) {
        return;
    }
    const std::string wanted = "{" + identity.identifier + "}.sdb";
    if (identity.identifier.empty() || !uni::equal_ignoring_case(name, wanted)) {
        add(findings, examined, signal::place_name, finding_part(name),
            finding_part(identity.identifier.empty() ? std::string("none") : identity.identifier));
    }
    const bool is_folder_of_64 = uni::lowered(*place).find("64\\") != std::string::npos;
    const bool is_one_kind = identity.platform == 1 || identity.platform == 2;
    if (is_one_kind && is_folder_of_64 != (identity.platform == 2)) {
        if (std::optional<finding> made = found(examined, signal::who_platform, 0)) {
            made->variant = is_folder_of_64 ? 0 : 1;
            findings.add(*std::move(made));
        }
    }
}

void judge_file(finding_list& findings, const examined_database& examined,
                const io::file_history& kept, const database_identity& identity)
{
    const auto note = [&](signal what, std::size_t variant, finding_part first = {},
                          finding_part second = {}, std::uint64_t number = 0) {
        if (std::optional<finding> made = found(examined, what, 0)) {
            made->variant = variant;
            made->first = std::move(first);
            made->second = std::move(second);
            made->number = number;
            findings.add(*std::move(made));
        }
    };
    if (kept.is_hidden) {
        note(signal::place_hidden, 0);
    }
    if (kept.is_system) {
        note(signal::place_hidden, 1);
    }
    for (const std::string& stream : kept.other_streams) {
        note(signal::place_hidden, 2, finding_part(stream));
    }
    if (!kept.stream.empty()) {
        note(signal::place_hidden, 3, finding_part(kept.stream));
    }
    if (kept.reparse_kind != 0) {
        note(signal::place_hidden, 4, {}, {}, kept.reparse_kind);
    }

    constexpr std::uint64_t a_second = 10'000'000;
    constexpr std::uint64_t a_minute = 60 * a_second;
    const std::uint64_t made_at = kept.times.creation;
    const std::uint64_t written_at = kept.times.write;
    if (!kept.names.empty()) {
        const std::uint64_t named_at =
            std::ranges::min(kept.names, {}, [](const io::kept_times& name) {
                return name.times.creation;
            }).times.creation;
        if (made_at < named_at) {
            note(signal::time_file, 0, finding_part::moment(made_at),
                 finding_part::moment(named_at));
        }
    }
    if (made_at != 0 && made_at % a_second == 0 && written_at % a_second == 0) {
        note(signal::time_file, 1);
    }
    const std::uint64_t own = identity.time.value_or(0);
    for (const auto& [variant, when] : {std::pair(2, made_at), std::pair(3, written_at)}) {
        if (own > a_minute && when < own - a_minute) {
            note(signal::time_file, static_cast<std::size_t>(variant), finding_part::moment(when),
                 finding_part::moment(own));
        }
    }
}

} // namespace model
