#include "model/installed_databases.h"

#include <algorithm>
#include <array>
#include <new>
#include <optional>
#include <set>
#include <string_view>
#include <utility>

#include "hive/hive_image.h"
#include "model/registry_lists.h"
#include "model/stored_path.h"
#include "platform/directories.h"
#include "platform/files.h"
#include "uni/byte_view.h"
#include "uni/text.h"
#include "uni/utf.h"

namespace model {

namespace {

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
constexpr auto meanings = std::to_array<meaning>({
    {"description", hive::data_need::text,
     [](installed_database& to, uni::byte_view data) { to.description = text_of(data); }},
    {"type", hive::data_need::number,
     [](installed_database& to, uni::byte_view data) { to.database_type = data.u32(0); }},
    {"timestamp", hive::data_need::number,
     [](installed_database& to, uni::byte_view data) { to.install_time = data.u64(0); }},
    {"path", hive::data_need::text,
     [](installed_database& to, uni::byte_view data) { to.database_path = text_of(data); }},
});

const meaning* meaning_of(std::string_view value_name)
{
    const std::string name = uni::lowered(value_name);
    const auto found = std::find_if(meanings.begin(), meanings.end(), [&](const meaning& one) {
        return name.find(one.word) != name.npos;
    });
    return found == meanings.end() ? nullptr : &*found;
}

bool is_volume_named(const request::sdb_opts& options)
{
    return options.volume_given || options.vss_given;
}

// Whether the files come from a list alone, to which the registry adds none.
bool is_list_alone(const request::sdb_opts& options)
{
    return options.is_list_form() && !options.list_sdb;
}

// Adds the files that the registry knows to those of the run.
class file_adder {
public:
    file_adder(run_targets& targets, const request::sdb_opts& options, const registry_place& place,
               const std::string& volume, files::file_tree& tree,
               std::vector<registry_finding>& findings)
        : targets_(targets), options_(options), volume_(volume), tree_(tree), findings_(findings),
          is_here_(!is_volume_named(options) && is_own_hive(place.hive))
    {
        for (const std::string& path : targets.files) {
            known_.insert(folded(parts_of(path)));
        }
    }

    void add(const std::string& stored)
    {
        const stored_path path = read_stored_path(stored);
        const bool is_opened = is_volume_named(options_) || is_here_;
        if (path.kind == stored_kind::empty) {
            return;
        }
        if (path.kind == stored_kind::names_no_file) {
            findings_.push_back({registry_finding_kind::names_no_file, stored});
        } else if (!is_opened && options_.list_sdb) {
            add_file(stored);
        } else if (path.kind == stored_kind::leaves_volume) {
            findings_.push_back({registry_finding_kind::leaves_volume, stored});
        } else if (!is_opened) {
            findings_.push_back({registry_finding_kind::not_opened, stored});
        } else {
            const std::string local = local_path(path);
            if (leads_out_of_volume(options_, volume_, tree_, local)) {
                findings_.push_back({registry_finding_kind::leaves_volume, stored});
            } else {
                add_file(local);
            }
        }
    }

private:
    void add_file(std::string path)
    {
        if (known_.insert(folded(parts_of(path))).second) {
            targets_.files.push_back(std::move(path));
        }
    }

    // Where this run finds a file. Names are joined one by one, so that the path can be used where
    // the stored separators are none and where not all of it exists.
    std::string local_path(const stored_path& stored) const
    {
        std::string path = is_here_ ? stored.drive : volume_;
        for (const std::string& name : stored.names) {
            path = tree_.walkable_path(platform::join_path(path, name));
        }
        return stored.ends_in_separator ? platform::join_path(path, {}) : path;
    }

    run_targets& targets_;
    const request::sdb_opts& options_;
    const std::string& volume_;
    files::file_tree& tree_;
    std::vector<registry_finding>& findings_;
    bool is_here_;
    std::set<std::string> known_;
};

// A hive that nobody named is looked for where there is a volume.
bool was_looked_for(const request::sdb_opts& options, const std::string& volume)
{
    platform::file_facts facts;
    return is_volume_named(options) ||
           platform::read_file_facts(platform::join_path(volume, {}), facts);
}

void tell_of_missing_hive(const software_hive& hive, const request::sdb_opts& options,
                          const registry_place& place, std::vector<registry_finding>& findings)
{
    using enum registry_finding_kind;
    const std::string& path = place.hive;
    switch (hive.state) {
    case hive_state::opened:
        break;
    case hive_state::missing:
        if (options.hive_named) {
            findings.push_back({hive_unread, path, hive.reason});
        } else if (was_looked_for(options, place.volume)) {
            findings.push_back({hive_missing, path, hive.reason});
        }
        break;
    case hive_state::unreadable:
        findings.push_back({hive_unread, path, hive.reason});
        break;
    case hive_state::no_memory:
        findings.push_back({no_memory, path});
        break;
    }
}

// What was read of the run's hives.
struct hives_read {
    installed_table table;
    registry_lists lists;
    bool has_key = false; // of installed databases
};

// Tells what the logs of a hive did to what it holds of the table.
void tell_of_logs(const installed_table& table, software_hive& hive, const std::string& path,
                  std::vector<registry_finding>& findings)
{
    using enum registry_finding_kind;
    if (hive.log_outcome.has_failed) {
        findings.push_back({hive_unread, path, "its logs could not be read"});
    }
    switch (hive.logs) {
    case hive_logs::closed:
        return;
    case hive_logs::none:
        findings.push_back({logs_missing, path});
        return;
    case hive_logs::left_out:
        findings.push_back({logs_left_out, path});
        return;
    case hive_logs::taken:
        break;
    }
    installed_table before;
    hive::hive_query(installed_query(), hive::hive_image(std::move(hive.bytes_before)),
                     [&](hive::hive_value_record&& row) { fold_installed_row(before, row); });
    log_findings logs{hive.log_outcome};
    for (const auto& [key, database] : table) {
        const auto old = before.find(key);
        logs.added += old == before.end() ? 1 : 0;
        logs.changed += old != before.end() && old->second != database ? 1 : 0;
    }
    for (const auto& [key, database] : before) {
        logs.removed += table.contains(key) ? 0 : 1;
    }
    findings.push_back({logs_taken, path, {}, logs});
}

void read_table(hives_read& to, software_hive hive, const std::string& path, bool reads_lists,
                std::vector<registry_finding>& findings)
{
    using enum registry_finding_kind;
    const hive::hive_image image(std::move(hive.bytes));
    installed_table own; // where the logs make a difference
    const bool has_logs = hive.logs == hive_logs::taken;
    const hive::query_outcome outcome =
        hive::hive_query(installed_query(), image, [&](hive::hive_value_record&& row) {
            fold_installed_row(to.table, row);
            if (has_logs) {
                fold_installed_row(own, row);
            }
        });
    if (!image.is_open() && !has_logs) { // nothing to be closed
        hive.logs = hive_logs::closed;
    }
    tell_of_logs(own, hive, path, findings);
    if (reads_lists) {
        read_registry_lists(to.lists, image, path);
    }
    const bool is_whole = image.is_open() && !image.has_failed() && !outcome.is_damaged;
    to.has_key = to.has_key || outcome.has_keys || !is_whole; // as far as anybody can tell
    if (image.has_failed()) {
        findings.push_back({hive_unread, path, "reading failed"});
    } else if (!image.is_open()) {
        findings.push_back({hive_unread, path, "is no hive"});
    } else if (outcome.is_damaged || to.lists.is_damaged || hive.is_doubtful) {
        findings.push_back({damaged, path});
        to.lists.is_damaged = false;
    }
    if (image.has_changed()) {
        findings.push_back({changed, path});
    }
}

// Joins what hives tell with the files of a volume, and adds those that it names.
void join_volume(run_targets& targets, const hives_read& read, const request::sdb_opts& options,
                 const registry_place& place, const std::string& volume, files::file_tree& tree,
                 std::vector<registry_finding>& findings)
{
    const std::string& root = is_volume_named(options) ? volume : place.root;
    const bool joins_by_name =
        root.empty() && (is_list_alone(options) || !options.searches_default_places);
    targets.lists.resize(targets.installed.size()); // should memory have failed between the two
    targets.lists.push_back(read.lists);
    const installed_databases& installed =
        targets.installed.emplace_back(read.table, root, joins_by_name);
    if (is_list_alone(options)) {
        return;
    }
    file_adder files(targets, options, place, volume, tree, findings);
    for (const auto& [name, databases] : installed.by_name()) {
        for (const installed_database* const database : databases) {
            files.add(database->database_path);
        }
    }
}

// What is the same for several volumes is said once.
void leave_first_of_each(std::vector<registry_finding>& findings)
{
    std::set<std::pair<registry_finding_kind, std::string>> met;
    std::erase_if(findings, [&](const registry_finding& one) {
        return !met.emplace(one.kind, one.subject + '\0' + one.reason).second;
    });
}

// Reads the hives that were named behind the first.
void read_more_hives(hives_read& to, const request::sdb_opts& options, files::file_tree& tree,
                     std::vector<registry_finding>& findings)
{
    for (const std::string& path : options.more_hive_paths) {
        software_hive hive = load_named_hive(options, path, tree);
        if (hive.state == hive_state::opened) {
            read_table(to, std::move(hive), path, options.explain, findings);
        } else {
            findings.push_back({registry_finding_kind::hive_unread, path, hive.reason});
        }
    }
}

} // namespace

installed_databases::installed_databases(installed_table by_key, std::string volume,
                                         bool joins_by_name)
    : by_key_(std::move(by_key)), volume_(std::move(volume)), joins_by_name_(joins_by_name)
{
    for (const auto& [key, database] : by_key_) {
        const std::string& stored = database.database_path;
        const bool is_file = read_stored_path(stored).kind != stored_kind::names_no_file;
        by_name_[is_file ? lower_file_name(stored) : std::string()].push_back(&database);
    }
}

bool installed_databases::is_for(const std::string& path) const
{
    return volume_.empty() || place_below(parts_of(path), volume_).has_value();
}

registry_facts run_targets::find_installed(const std::string& path) const
{
    registry_facts facts;
    for (const installed_databases& each : installed) {
        if (each.is_for(path) && facts.how == joining::unknown) {
            facts = each.find(path);
        }
    }
    return facts;
}

const registry_lists* run_targets::lists_for(const std::string& path) const
{
    for (std::size_t i = 0; i < std::min(lists.size(), installed.size()); ++i) {
        if (installed[i].is_for(path)) {
            return &lists[i];
        }
    }
    return nullptr;
}

registry_facts installed_databases::find(const std::string& path) const
{
    const std::string name = lower_file_name(path);
    const auto of_name = by_name_.find(name);
    // An empty name is that of the installed databases without a path, not of a file.
    if (name.empty() || of_name == by_name_.end()) {
        return {};
    }
    const path_parts file = parts_of(path);
    const auto place = volume_.empty() ? place_below_root(file) : place_below(file, volume_);
    std::vector<const installed_database*> found;
    bool has_drive = false;
    for (const installed_database* const database : of_name->second) {
        const stored_path stored = read_stored_path(database->database_path);
        if (stored.kind != stored_kind::on_volume || place != folded(stored.names)) {
            continue;
        }
        // Of several the one on the file's own drive counts, where that tells them apart.
        const bool is_on_drive = uni::equal_ignoring_case(stored.drive, file.drive);
        if (is_on_drive && !has_drive) {
            found.clear();
        }
        if (is_on_drive || !has_drive) {
            found.push_back(database);
        }
        has_drive |= is_on_drive;
    }
    if (!found.empty()) {
        return {found.size() == 1 ? joining::joined : joining::ambiguous, found.front()};
    }
    if (joins_by_name_ && of_name->second.size() == 1) {
        return {joining::joined, of_name->second.front()};
    }
    return {joining::not_joined, nullptr};
}

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

std::vector<registry_finding> gather_installed_databases(run_targets& targets,
                                                         const request::sdb_opts& options,
                                                         const registry_place& place,
                                                         files::file_tree& tree,
                                                         const ntfs::trace_text& trace)
{
    std::vector<registry_finding> findings;
    if (!options.hive_given) {
        return findings;
    }
    try {
        software_hive hive = load_software_hive(options, place, tree, trace);
        tell_of_missing_hive(hive, options, place, findings);
        hives_read read;
        const bool is_opened = hive.state == hive_state::opened;
        if (is_opened) {
            read_table(read, std::move(hive), place.hive, options.explain, findings);
        }
        read_more_hives(read, options, tree, findings);
        if (is_opened && !read.has_key) {
            findings.push_back({registry_finding_kind::no_key, place.hive});
        }
        if (!is_opened && options.more_hive_paths.empty()) {
            return findings;
        }
        join_volume(targets, read, options, place, place.volume, tree, findings);
        for (const std::string& volume : place.more_volumes) {
            join_volume(targets, read, options, place, volume, tree, findings);
        }
        targets.is_one_registry = !place.more_volumes.empty();
        if (targets.is_one_registry) {
            leave_first_of_each(findings);
        }
    } catch (const std::bad_alloc&) {
        findings.push_back({registry_finding_kind::no_memory, place.hive});
    }
    return findings;
}

} // namespace model
