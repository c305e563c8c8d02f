#include "model/registry_lists.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <utility>

#include "hive/hive_query.h"
#include "hive/key_pattern.h"
#include "hive/key_reader.h"
#include "model/place.h"
#include "model/stored_path.h"
#include "model/suspect_paths.h"
#include "model/suspect_texts.h"
#include "uni/byte_view.h"
#include "uni/numbers.h"
#include "uni/text.h"
#include "uni/time.h"
#include "uni/utf.h"

namespace model {

namespace {

constexpr std::string_view flags_key = "Microsoft\\Windows NT\\CurrentVersion\\AppCompatFlags\\";
constexpr std::uint64_t near_enough = 600 * uni::ticks_per_second;
constexpr std::uint64_t a_year = 366 * 86'400 * uni::ticks_per_second;
constexpr std::uint32_t main_type = 0x80000000;

// The text of a value, or all texts of one that has several.
std::string text_of(const hive::hive_value_record& row)
{
    constexpr std::size_t longest = 4096;
    std::string all;
    uni::byte_view left(row.data);
    std::string text;
    while (const std::uint64_t length = uni::utf16_to_text(left, text)) {
        all += (all.empty() ? "" : ", ") + text;
        left = left.from(length);
        if (all.size() >= longest && left.u16(0) != 0) {
            return all + ", ...";
        }
    }
    return all;
}

hive::query_outcome ask(const hive::hive_image& image, const std::string& key, hive::data_need need,
                        const hive::row_taker& take)
{
    hive::registry_cmd_parameters question;
    question.key = key;
    question.keeps_empty_rows = true;
    question.need = [need](std::string_view) { return need; };
    return hive::hive_query(question, image, take);
}

// The keys directly below another, whether they have values or not.
struct keys_below {
    bool has_beginning = false;
    bool is_damaged = false;
    std::vector<std::pair<std::string, std::uint64_t>> keys = {}; // names and last writes
};
keys_below read_keys_below(const hive::hive_image& image, const std::string& key)
{
    keys_below made;
    hive::key_path segments;
    if (!image.is_open() || !hive::parse_key_path(key + "\\?*", segments)) {
        return made;
    }
    hive::key_reader reader(image);
    std::vector<hive::hive_key_record> found;
    made.has_beginning = hive::walk_key_pattern(reader, segments, 0, found);
    for (const hive::hive_key_record& one : found) {
        made.keys.emplace_back(reader.name_of(one.key), reader.last_write_of(one.key.cell));
    }
    made.is_damaged = reader.is_damaged();
    return made;
}

std::string id_of_value(std::string_view name)
{
    std::string id = uni::lowered(name);
    constexpr std::string_view extension = ".sdb";
    if (id.ends_with(extension)) {
        id.resize(id.size() - extension.size());
    }
    return id;
}

bool is_moment(std::uint64_t time)
{
    return uni::time_value_from(time, uni::time_kind::filetime).valid;
}

bool are_apart(std::uint64_t a, std::uint64_t b)
{
    return is_moment(a) && is_moment(b) && (a > b ? a - b : b - a) > near_enough;
}

placed_finding placed(const knowledge& known, signal what, std::string database,
                      finding_part first = {}, finding_part second = {}, std::size_t variant = 0)
{
    placed_finding made;
    made.database = std::move(database);
    made.found.kind = &known.of(what);
    made.found.weighs = made.found.kind->weighs;
    made.found.first = std::move(first);
    made.found.second = std::move(second);
    made.found.variant = variant;
    return made;
}

std::string type_text(std::uint32_t type)
{
    char digits[16];
    return "0x" + std::string(digits, uni::put_hex(digits, type, 8));
}

std::string in_hive(const std::string& path)
{
    return path.empty() ? path : " in " + path;
}

// Judges what is registered, key by key.
class registry_judge {
public:
    registry_judge(const knowledge& known, const registry_lists& lists, const file_probe& is_there)
        : known_(known), lists_(lists), is_there_(is_there)
    {
        for (const custom_entry& entry : lists.customs) {
            if (!entry.id.empty()) {
                by_id_[entry.id].push_back(&entry);
            }
        }
    }

    // A key of InstalledSDB without a value that is known.
    void judge_empty(const std::string& key)
    {
        add(signal::reg_new, key, finding_part(key));
        add(signal::reg_half, key, finding_part(key), {}, 2);
    }

    void judge(const installed_database& one)
    {
        const std::string& path = one.database_path.empty() ? one.key_path : one.database_path;
        add(signal::reg_new, path, finding_part(one.key_path));
        if (!lists_.told.contains(&one)) {
            judge_place(one);
        }
        judge_presence(one);
        if (!by_id_.contains(one.key_path)) {
            add(signal::reg_half, path, finding_part(one.key_path), {}, 1);
        }
        if (lists_.has_uninstall_key && !lists_.uninstalls.contains(one.key_path + ".sdb")) {
            add(signal::reg_no_uninstall, path, finding_part(one.key_path));
        }
        if ((one.database_type & main_type) != 0) {
            add(signal::reg_type, path, finding_part(one.key_path),
                finding_part(type_text(one.database_type)));
        }
        if (poses_as_update(known_, one.description)) {
            add(signal::reg_update_name, path, finding_part(one.description), {}, 1);
        }
        judge_times(one, path);
    }

    void judge_custom(const custom_entry& entry, const installed_databases& installed)
    {
        if (entry.id.empty()) {
            add(signal::reg_new, {}, finding_part(entry.program), {}, 2);
            found_.back().program = entry.program;
            return;
        }
        const auto known_one = installed.by_key().find(entry.id);
        const bool is_installed = known_one != installed.by_key().end();
        const std::string path = is_installed ? known_one->second.database_path : entry.id;
        add(signal::reg_new, path, finding_part(entry.id), finding_part(entry.program), 1);
        found_.back().program = entry.program;
        if (!is_installed && !lists_.installed_keys.contains(entry.id)) {
            add(signal::reg_half, path, finding_part(entry.id), finding_part(entry.program));
            found_.back().program = entry.program;
            constexpr std::size_t under_custom_alone = 5;
            judge_two_times(path, entry, entry.time, entry.key_time, under_custom_alone);
        }
    }

    void judge_layers(const layers_entry& entry)
    {
        std::string words = uni::lowered(entry.layers);
        std::ranges::replace_if(
            words, [](char c) { return !uni::is_letter_or_digit(c); }, ' ');
        const bool is_watched =
            std::ranges::any_of(uni::split(words, ' ', true), [&](const std::string& word) {
                return known_.holds(name_list::watched_layer, word);
            });
        if (is_watched && is_writable_place(known_, entry.program)) {
            add(signal::reg_layer, {}, finding_part(entry.program),
                finding_part(entry.layers + in_hive(entry.hive)));
            found_.back().program = entry.program;
        }
    }

    void judge_driver(const driver_entry& entry)
    {
        add(signal::reg_driver, {}, finding_part(entry.driver),
            finding_part((entry.shims.empty() ? "an empty list" : entry.shims) +
                         in_hive(entry.hive)));
        found_.back().program = entry.driver;
    }

    std::vector<placed_finding> take() { return std::move(found_); }

private:
    void add(signal what, const std::string& database, finding_part first = {},
             finding_part second = {}, std::size_t variant = 0)
    {
        found_.push_back(
            placed(known_, what, database, std::move(first), std::move(second), variant));
    }

    void judge_place(const installed_database& one)
    {
        const std::string& path = one.database_path;
        if (path.empty()) {
            return;
        }
        const stored_path stored = read_stored_path(with_folders(path));
        const bool is_placed = stored.kind == stored_kind::on_volume &&
                               kind_of_place(known_, folded(stored.names)) != place_kind::elsewhere;
        if (!is_placed && stored.kind != stored_kind::names_no_file) {
            add(signal::place_outside, path,
                finding_part(path.substr(0, path.find_last_of("\\/"))));
        }
        if (!uni::lowered(path).ends_with(".sdb")) {
            add(signal::place_extension, path, finding_part(file_name_of(path)), {}, 1);
        }
        if (is_writable_place(known_, path)) {
            add(signal::place_writable, path, finding_part(path));
        }
    }

    // A path as it would be with a drive, where it begins with another name of a folder or a root.
    static std::string with_folders(const std::string& path)
    {
        constexpr std::pair<std::string_view, std::string_view> meanings[] = {
            {"\\\\?\\unc\\", "\\\\"},
            {"\\\\?\\", ""},
            {"\\??\\", ""},
            {"%systemdrive%", "C:"},
            {"%systemroot%", "C:\\Windows"},
            {"\\systemroot", "C:\\Windows"},
            {"%windir%", "C:\\Windows"},
            {"%programfiles%", "C:\\Program Files"}};
        std::string text = path;
        for (const auto& [begin, meaning] : meanings) {
            if (uni::lowered(text).starts_with(begin)) {
                text.replace(0, begin.size(), meaning);
            }
        }
        return text;
    }

    void judge_presence(const installed_database& one)
    {
        const std::string& path = one.database_path;
        const std::optional<bool> is_there = is_there_ ? is_there_(path) : std::nullopt;
        if (is_there && !*is_there) {
            add(signal::reg_missing, path, finding_part(one.key_path), finding_part(path));
        }
    }

    void judge_two_times(const std::string& path, const custom_entry& entry, std::uint64_t first,
                         std::uint64_t second, std::size_t variant)
    {
        if (are_apart(first, second)) {
            add(signal::time_keys, path, finding_part::moment(first), finding_part::moment(second),
                variant);
            found_.back().program = entry.program;
        }
    }

    void judge_times(const installed_database& one, const std::string& path)
    {
        const finding_part installed = finding_part::moment(one.install_time);
        if (are_apart(one.install_time, one.key_modtime)) {
            add(signal::time_keys, path, installed, finding_part::moment(one.key_modtime));
        }
        const auto entries = by_id_.find(one.key_path);
        if (entries == by_id_.end()) {
            return;
        }
        for (const custom_entry* const entry : entries->second) {
            if (are_apart(one.install_time, entry->time)) {
                add(signal::time_keys, path, installed, finding_part::moment(entry->time), 1);
                found_.back().program = entry->program;
            }
            if (are_apart(one.install_time, entry->key_time)) {
                add(signal::time_keys, path, installed, finding_part::moment(entry->key_time), 2);
                found_.back().program = entry->program;
            }
            // One that differs from the installation is told above.
            const std::pair<std::uint64_t, std::uint64_t> others[] = {
                {one.key_modtime, entry->time},
                {one.key_modtime, entry->key_time},
                {entry->time, entry->key_time}};
            for (std::size_t i = 0; i < std::size(others); ++i) {
                const auto [first, second] = others[i];
                if (!are_apart(one.install_time, first) && !are_apart(one.install_time, second)) {
                    judge_two_times(path, *entry, first, second, 3 + i);
                }
            }
        }
    }

    const knowledge& known_;
    const registry_lists& lists_;
    const file_probe& is_there_;
    std::map<std::string, std::vector<const custom_entry*>> by_id_;
    std::vector<placed_finding> found_;
};

} // namespace

void read_registry_lists(registry_lists& lists, const hive::hive_image& image,
                         const std::string& path)
{
    const auto note = [&](const auto& outcome) {
        lists.is_damaged = lists.is_damaged || outcome.is_damaged;
    };
    const auto keys_of = [&](const std::string& key, bool& has_key) {
        keys_below below = read_keys_below(image, key);
        note(below);
        has_key = has_key || below.has_beginning;
        return std::move(below.keys);
    };
    const std::string machine = "HKLM\\Software\\";
    const std::string flags = machine + std::string(flags_key);
    for (const auto& [name, time] : keys_of(flags + "InstalledSDB", lists.has_installed_key)) {
        lists.installed_keys.insert(uni::lowered(name));
    }
    bool has_customs = false;
    std::set<std::string> named; // programs for which a database is
    note(ask(image, flags + "Custom\\?*", hive::data_need::number,
             [&](hive::hive_value_record&& row) {
                 if (row.value_type == hive::hive_value_record::no_value) {
                     return;
                 }
                 const std::string& program = row.path_segments->back();
                 lists.customs.push_back({program, id_of_value(row.value_name),
                                          uni::byte_view(row.data).u64(0), row.last_write});
                 named.insert(program);
             }));
    for (const auto& [program, time] : keys_of(flags + "Custom", has_customs)) {
        if (!named.contains(program)) {
            lists.customs.push_back({program, {}, 0, time});
        }
    }
    for (const std::string_view below : {"", "Wow6432Node\\"}) {
        const std::string key =
            machine + std::string(below) + "Microsoft\\Windows\\CurrentVersion\\Uninstall";
        for (const auto& [name, time] : keys_of(key, lists.has_uninstall_key)) {
            lists.uninstalls.insert(uni::lowered(name));
        }
    }
    for (const std::string& root :
         {machine, machine + "Wow6432Node\\", std::string("User\\Software\\")}) {
        note(ask(image, root + std::string(flags_key) + "Layers", hive::data_need::whole,
                 [&](hive::hive_value_record&& row) {
                     lists.layers.push_back({row.value_name, text_of(row), path});
                 }));
    }
    note(ask(image, "HKLM\\System\\CurrentControlSet\\Control\\Compatibility\\Driver\\?*",
             hive::data_need::whole, [&](hive::hive_value_record&& row) {
                 if (uni::equal_ignoring_case(row.value_name, "Shims")) {
                     lists.drivers.push_back({row.path_segments->back(), text_of(row), path});
                 }
             }));
}

std::vector<placed_finding> judge_registry(const knowledge& known,
                                           const installed_databases& installed,
                                           const registry_lists& lists, const file_probe& is_there)
{
    registry_judge judge(known, lists, is_there);
    for (const auto& [key, one] : installed.by_key()) {
        judge.judge(one);
    }
    for (const std::string& key : lists.installed_keys) {
        if (!installed.by_key().contains(key)) {
            judge.judge_empty(key);
        }
    }
    for (const custom_entry& entry : lists.customs) {
        judge.judge_custom(entry, installed);
    }
    for (const layers_entry& entry : lists.layers) {
        judge.judge_layers(entry);
    }
    for (const driver_entry& entry : lists.drivers) {
        judge.judge_driver(entry);
    }
    return judge.take();
}

void judge_registration(finding_list& findings, const examined_database& examined,
                        const database_identity& identity, const installed_database* facts,
                        const registry_lists& lists, const std::vector<std::string>& programs)
{
    const auto add = [&](signal what, finding_part first, finding_part second,
                         std::size_t variant = 0) {
        if (std::optional<finding> made = found(examined, what, 0)) {
            made->first = std::move(first);
            made->second = std::move(second);
            made->variant = variant;
            findings.add(*std::move(made));
        }
    };
    if (facts == nullptr) {
        return;
    }
    const std::string name = internal_name(examined.database, identity);
    if (!facts->description.empty() && facts->description != name) {
        add(signal::reg_description, finding_part(facts->description), finding_part(name));
    }
    if (is_moment(facts->install_time) && is_moment(identity.time.value_or(0))) {
        const std::uint64_t made = *identity.time;
        const finding_part made_at = finding_part::moment(made);
        const finding_part installed_at = finding_part::moment(facts->install_time);
        if (made > facts->install_time) {
            add(signal::time_after, made_at, installed_at);
        } else if (facts->install_time - made > a_year) {
            add(signal::time_long, made_at, installed_at);
        }
    }
    std::vector<std::string> registered;
    for (const custom_entry& entry : lists.customs) {
        if (entry.id == facts->key_path) {
            registered.push_back(uni::lowered(entry.program));
        }
    }
    if (registered.empty()) {
        return; // which is told by the registry itself
    }
    std::ranges::sort(registered);
    std::vector<std::string> differing;
    std::ranges::set_difference(registered, programs, std::back_inserter(differing));
    for (const std::string& program : differing) {
        add(signal::reg_exe, finding_part(program), {});
    }
    differing.clear();
    std::ranges::set_difference(programs, registered, std::back_inserter(differing));
    for (const std::string& program : differing) {
        add(signal::reg_exe, finding_part(program), {}, 1);
    }
}

std::vector<placed_finding> judge_compilers(const knowledge& known,
                                            std::vector<seen_database> databases)
{
    std::ranges::sort(databases, {}, &seen_database::path);
    std::map<std::string, std::size_t> counts;
    for (const seen_database& one : databases) {
        ++counts[one.compiler];
    }
    const auto most =
        std::ranges::max_element(counts, {}, [](const auto& count) { return count.second; });
    std::vector<placed_finding> made;
    if (counts.empty() || most->second * 2 <= databases.size() || most->second < 2) {
        return made; // nothing is usual
    }
    for (const seen_database& one : databases) {
        if (one.compiler != most->first && !one.compiler.empty()) {
            made.push_back(placed(known, signal::who_compiler, one.path, finding_part(one.compiler),
                                  finding_part(most->first), 1));
        }
    }
    return made;
}

} // namespace model
