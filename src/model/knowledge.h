#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace model {

// How much a finding weighs: high is to be looked at now, medium to be looked at, low counts only beside
// others.
enum class weight : std::uint8_t { none, low, medium, high };
std::optional<weight> weight_from(std::string_view word);
std::string_view word_of(weight one);

// What a finding is about, which settles what it is worth in a database of the vendor's own.
enum class finding_group : std::uint8_t { place, registry, target, effect, identity, time, shape };

// A kind of finding, as knowledge/findings.tsv has it.
struct finding_kind {
    std::string id;
    finding_group group = finding_group::place;
    weight weighs = weight::none;
    std::string technique;
    bool is_custom_only = false;   // of no meaning in the vendor's own databases
    bool is_left_out = false;      // quilt cannot prove it
    std::vector<std::string> says; // the reason in its variants, with {1}, {2} and {n} in them
    std::string means;
    std::string proof;
    std::string otherwise; // what else it may be
    std::string sources;
};

// A fix, layer or flag that is publicly known.
inline constexpr std::string_view fix_kinds[] = {"shim", "layer", "flag", "kernel-shim"};
struct known_fix {
    std::string name;
    std::string kind; // one of the above
    std::string family;
    weight weighs = weight::none;
    std::string technique;
    std::string words;
};

// Kinds of findings that the program makes by itself.
enum class signal : std::uint8_t {
#define QUILT_SIGNAL(name, id) name,
#include "model/signals.inc"
    count
};

// Lists of names and texts, by what knowledge/lists.tsv calls them.
enum class name_list : std::uint8_t {
    core_process,
    core_module,
    elevating_program,
    script_host,
    security_product,
    updater,
    administration_tool,
    keeper_of_secrets,
    writable_folder,
    custom_folder,
    vendor_folder,
    shim_module,
    known_host,
    system_maker,
    update_word,
    default_name,
    engine_switch,
    watched_layer,
    script_mark,
    system_path,
    system_variable,
    vendor_database,
    count
};

// What quilt knows of fixes and of findings: data, in tables of lines with fields parted by TABs. The first
// line of a table names its columns, and so tells which table it is; another may follow behind it.
class knowledge {
public:
    // With what is built in.
    knowledge();

    // Adds the rows of a text, each to the table whose head stands above it; one of a name that is there
    // takes its place. Tells the first line that is no row, counted from 1; nothing is added behind it.
    std::optional<std::size_t> add(std::string_view text);

    const finding_kind& of(signal one) const
    {
        return kinds_[by_signal_[static_cast<std::size_t>(one)]];
    }
    // Null where there is none of that id.
    const finding_kind* kind_called(std::string_view id) const;
    std::span<const finding_kind> kinds() const noexcept { return kinds_; }

    // The fix of a name and a kind, case aside. Null for one that is not known.
    const known_fix* fix(std::string_view name, std::string_view kind) const;

    // Whether a text is an entry of a list, case aside.
    bool holds(name_list list, std::string_view text) const;
    // The first entry of a list that stands in a text, which is lower-case; null for none.
    const std::string* found_in(name_list list, std::string_view lower) const;
    // Whether a word of the text begins with one of the list.
    bool begins_word(name_list list, std::string_view lower) const;
    // Whether one of the list stands in it as whole words.
    bool holds_word(name_list list, std::string_view lower) const;
    // What is noted beside an entry; null for none.
    const std::string* note_of(name_list list, std::string_view text) const;
    // All entries, lower-case, ascending.
    const std::map<std::string, std::string, std::less<>>& entries(name_list list) const
    {
        return lists_[static_cast<std::size_t>(list)];
    }

private:
    using fields = std::vector<std::string_view>;
    bool add_fix(const fields& row);
    bool add_kind(const fields& row);
    bool add_entry(const fields& row);
    bool add_source(const fields& row);

    std::vector<finding_kind> kinds_;
    std::array<std::size_t, static_cast<std::size_t>(signal::count)> by_signal_{};
    std::multimap<std::string, known_fix, std::less<>> fixes_; // by lower-case name
    std::array<std::map<std::string, std::string, std::less<>>,
               static_cast<std::size_t>(name_list::count)>
        lists_;
    std::map<std::string, std::string, std::less<>> sources_;
};

} // namespace model
