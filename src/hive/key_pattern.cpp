#include "hive/key_pattern.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "uni/text.h"

namespace hive {

namespace {

constexpr std::string_view any_key = "?*";
constexpr std::string_view control_set_in_use = "currentcontrolset";

// A root above the hives.
bool names_no_hive(std::string_view segment)
{
    return uni::equal_ignoring_case(segment, "hklm") || uni::equal_ignoring_case(segment, "hkcr");
}

bool holds(std::string_view text, std::string_view part)
{
    return text.find(part) != std::string_view::npos;
}

// The segments up to the first `?*`, with the name of the control set in use.
key_path beginning_of(key_reader& reader, const key_path& segments)
{
    constexpr std::size_t deepest_control_set = 2;
    key_path beginning;
    for (std::size_t i = 0; i < segments.size() && segments[i] != any_key; ++i) {
        std::string name = segments[i];
        if (i <= deepest_control_set && uni::equal_ignoring_case(name, control_set_in_use)) {
            const auto control_set = reader.resolve_current_control_set();
            if (!control_set) {
                break;
            }
            name = *control_set;
        }
        beginning.push_back(std::move(name));
    }
    return beginning;
}

std::optional<std::uint64_t> find_key(key_reader& reader, const key_path& path)
{
    std::optional<std::uint64_t> key = reader.image().root_cell();
    for (std::size_t i = 1; i < path.size() && key; ++i) {
        key = reader.find_subkey(*key, path[i]);
    }
    return key;
}

key_path joined(const key_path& path, const std::string& name)
{
    key_path longer = path;
    longer.push_back(name);
    return longer;
}

// The keys of one level whose subkeys are looked at next.
struct open_key {
    std::uint64_t cell = 0;
    shared_path path;
};

// Gives the values of one key, found by its segments.
class value_collector {
public:
    value_collector(key_reader& reader, const data_need_of& need, const row_taker& take)
        : reader_(reader), need_(need), take_(take)
    {}

    // From the segment `first_pattern` on, a `?*` is any subkey; those before it are names.
    bool collect(key_path segments, std::size_t first_pattern)
    {
        std::uint64_t key = reader_.image().root_cell();
        std::optional<std::string> wanted;
        for (std::size_t i = 1; i < segments.size(); ++i) {
            if (i > 1 && i >= first_pattern && segments[i] == any_key) {
                return collect_each(std::move(segments), i, key);
            }
            if (i == 1 && !settle_control_set(segments[i])) {
                return false;
            }
            const auto child = reader_.find_subkey(key, segments[i]);
            if (child) {
                key = *child;
            } else if (i + 1 == segments.size()) {
                wanted = segments.back();
            } else {
                return false;
            }
        }
        if (wanted) {
            segments.pop_back();
        }
        return take_values(key, std::make_shared<const key_path>(std::move(segments)), wanted);
    }

private:
    bool settle_control_set(std::string& segment)
    {
        if (!uni::equal_ignoring_case(segment, control_set_in_use)) {
            return true;
        }
        const auto control_set = reader_.resolve_current_control_set();
        segment = control_set.value_or(segment);
        return control_set.has_value();
    }

    bool collect_each(key_path segments, std::size_t place, std::uint64_t key)
    {
        bool any = false;
        for (const hive_key_item& item : reader_.subkeys_of(key)) {
            segments[place] = reader_.name_of(item);
            any = collect(segments, place + 1) || any;
        }
        return any;
    }

    bool take_values(std::uint64_t key, const shared_path& path,
                     const std::optional<std::string>& wanted)
    {
        constexpr std::uint64_t largest_value_cell = 4096;
        const std::uint64_t last_write = reader_.last_write_of(key);
        bool any = false;
        const bool has_list = reader_.values().enum_values(key, [&](const hive_value_item& item) {
            any = true;
            hive_value_data data;
            if (item.cell_size > largest_value_cell) {
                reader_.values().note_damage();
                return true;
            }
            if (item.cell == 0 || (wanted && !uni::equal_ignoring_case(item.name, *wanted)) ||
                !reader_.values().read_value_data(item.cell, data)) {
                return true;
            }
            take_({path, last_write, item.name, data.type, bytes_of(item.name, data), data.is_big,
                   item.cell});
            return !wanted;
        });
        if (has_list && !any) {
            take_({path, last_write, {}, hive_value_record::no_value, {}, false, 0});
        }
        return has_list;
    }

    std::vector<std::uint8_t> bytes_of(const std::string& name, const hive_value_data& data)
    {
        constexpr std::uint64_t size_bits = 0x0fffffff;
        constexpr std::uint64_t too_large = 0x1000000;
        const std::uint64_t count = data.size & size_bits;
        if (count >= too_large) {
            reader_.values().note_damage();
            return {};
        }
        return reader_.values().copy_data(data, count, need_ ? need_(name) : data_need::whole);
    }

    key_reader& reader_;
    const data_need_of& need_;
    const row_taker& take_;
};

// Gives the values of one name of the keys that match a pattern.
void collect_named_value(key_reader& reader, const key_path& pattern, const std::string& name,
                         const data_need_of& need, const row_taker& take)
{
    const row_taker take_named = [&](hive_value_record&& record) {
        if (uni::equal_ignoring_case(record.value_name, name)) {
            take(std::move(record));
        }
    };
    if (find_key(reader, beginning_of(reader, pattern))) {
        value_collector(reader, need, take_named).collect(pattern, 0);
    }
}

} // namespace

bool parse_key_path(std::string_view text, key_path& segments)
{
    segments.clear();
    const bool has_slashes_alone = !holds(text, "\\") && holds(text, "/");
    for (std::string& segment : uni::split(text, has_slashes_alone ? '/' : '\\', false)) {
        const bool is_passed_over = segments.empty() ? names_no_hive(segment) : segment == "/";
        if (!is_passed_over) {
            segments.push_back(std::move(segment));
        }
    }
    return !segments.empty();
}

bool has_beginning(key_reader& reader, const key_path& segments)
{
    return find_key(reader, beginning_of(reader, segments)).has_value();
}

bool walk_key_pattern(key_reader& reader, const key_path& segments, std::uint32_t level,
                      std::vector<hive_key_record>& records)
{
    const auto beginning = std::make_shared<const key_path>(beginning_of(reader, segments));
    const std::size_t cut = segments.size() - beginning->size();
    const auto start = find_key(reader, *beginning);
    if (!start) {
        return false;
    }
    const auto matches = [&](std::size_t place, const std::string& name) {
        return place >= segments.size() || segments[place] == any_key || segments[place].empty() ||
               uni::equal_ignoring_case(segments[place], name);
    };
    std::vector<open_key> open_keys{{*start, beginning}};
    const std::uint64_t passes = std::uint64_t{level} + cut;
    for (std::uint64_t pass = 0; pass < passes && !open_keys.empty(); ++pass) {
        std::vector<open_key> next;
        for (const open_key& key : open_keys) {
            for (const hive_key_item& item : reader.subkeys_of(key.cell)) {
                const std::string name = reader.name_of(item);
                if (!matches(key.path->size(), name)) {
                    continue;
                }
                if (pass + 1 < passes) {
                    next.push_back(
                        {item.cell, std::make_shared<const key_path>(joined(*key.path, name))});
                }
                if (cut == 0 || key.path->size() + 1 >= segments.size()) {
                    records.push_back({key.path, item});
                }
            }
        }
        open_keys = std::move(next);
    }
    return true;
}

bool collect_values(key_reader& reader, const key_path& segments, std::uint32_t level,
                    const data_need_of& need, const row_taker& take)
{
    if (segments.empty()) {
        return false;
    }
    bool any = false;
    const row_taker take_any = [&](hive_value_record&& record) {
        any = true;
        take(std::move(record));
    };
    const bool is_pattern = std::find(segments.begin(), segments.end(), any_key) != segments.end();
    const key_path parent(segments.begin(), segments.end() - 1);
    std::vector<hive_key_record> keys;
    if (!walk_key_pattern(reader, segments, level, keys) || (is_pattern && keys.empty())) {
        collect_named_value(reader, parent, segments.back(), need, take_any);
        return any;
    }
    value_collector collector(reader, need, take_any);
    if (!is_pattern) {
        collector.collect(segments, segments.size());
    }
    for (const hive_key_record& key : keys) {
        const std::size_t depth = key.path_segments->size() + 1;
        collector.collect(joined(*key.path_segments, reader.name_of(key.key)), depth);
    }
    return any;
}

} // namespace hive
