#include "model/place.h"

#include <algorithm>

#include "model/stored_path.h"
#include "model/suspect_paths.h"
#include "platform/directories.h"
#include "platform/files.h"
#include "uni/guid.h"
#include "uni/text.h"

namespace model {

namespace {

constexpr std::string_view system_folder = "windows";

bool is_folder(const std::string& path)
{
    platform::file_facts facts;
    return platform::read_file_facts(platform::walkable_path(path), facts) && facts.is_directory;
}

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
    for (std::size_t i = 0; i + 2 < path.names.size(); ++i) {
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

std::string root_of_run(const request::sdb_opts& options)
{
    if (options.volume_given || options.vss_given) {
        return options.volume_text;
    }
    const bool looks_like_volume =
        options.enumdir && !options.enumdir_path.empty() &&
        is_folder(platform::join_path(options.enumdir_path, std::string(system_folder)));
    return looks_like_volume ? options.enumdir_path : std::string();
}

std::optional<std::string> place_of(const std::string& path, const std::string& root)
{
    const path_parts file = parts_of(path);
    if (!root.empty()) {
        if (!place_below(file, root)) {
            return std::nullopt;
        }
        return joined(file.names, parts_of(root).names.size());
    }
    const auto depth = depth_of_system_folder(file);
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

bool is_vendors_own(const knowledge& known, const std::optional<std::string>& place,
                    const database_identity& identity)
{
    if (!place || kind_of_place(known, *place) != place_kind::vendors_by_name) {
        return false;
    }
    const std::string* const id = known.note_of(name_list::vendor_database, file_name_of(*place));
    return id != nullptr && (id->empty() || uni::equal_ignoring_case(*id, identity.identifier));
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
        add(findings, examined, signal::place_outside, finding_part(folder_of(*place)));
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

} // namespace model
