#include "model/knowledge.h"

#include <algorithm>
#include <utility>

#include "model/built_in_knowledge.h"
#include "uni/text.h"

namespace model {

namespace {

constexpr std::string_view weight_words[] = {"none", "low", "medium", "high"};

constexpr std::pair<std::string_view, finding_group> groups[] = {
    {"place", finding_group::place},       {"registry", finding_group::registry},
    {"target", finding_group::target},     {"effect", finding_group::effect},
    {"identity", finding_group::identity}, {"time", finding_group::time},
    {"shape", finding_group::shape},
};

constexpr std::string_view signal_ids[] = {
#define QUILT_SIGNAL(name, id) id,
#include "model/signals.inc"
};

constexpr std::string_view list_names[] = {
    "core process",     "core module",     "elevating program",   "script host",
    "security product", "updater",         "administration tool", "keeper of secrets",
    "writable folder",  "custom folder",   "vendor folder",       "shim module",
    "known host",       "system maker",    "update word",         "default name",
    "engine switch",    "watched layer",   "script mark",         "system path",
    "system variable",  "vendor database",
};

constexpr std::string_view fix_head = "name\tkind\tfamily\tweight\ttechnique\twords";
constexpr std::string_view kind_head =
    "id\tgroup\tweight\ttechnique\tscope\tsays\tmeans\tproof\totherwise\tsource";
constexpr std::string_view entry_head = "list\tentry\tnote";
constexpr std::string_view source_head = "source\ttitle";

std::vector<std::string_view> fields_of(std::string_view line)
{
    std::vector<std::string_view> fields;
    for (;;) {
        const std::size_t end = line.find('\t');
        fields.push_back(line.substr(0, end));
        if (end == std::string_view::npos) {
            return fields;
        }
        line.remove_prefix(end + 1);
    }
}

std::vector<std::string> variants_of(std::string_view text)
{
    constexpr std::string_view separator = " || ";
    std::vector<std::string> variants;
    for (;;) {
        const std::size_t end = text.find(separator);
        variants.emplace_back(text.substr(0, end));
        if (end == std::string_view::npos) {
            return variants;
        }
        text.remove_prefix(end + separator.size());
    }
}

} // namespace

std::optional<weight> weight_from(std::string_view word)
{
    const auto found = std::ranges::find(weight_words, word);
    return found == std::end(weight_words)
               ? std::nullopt
               : std::optional(static_cast<weight>(found - std::begin(weight_words)));
}

std::string_view word_of(weight one)
{
    return weight_words[static_cast<std::size_t>(one)];
}

knowledge::knowledge()
{
    static_assert(std::size(signal_ids) == static_cast<std::size_t>(signal::count));
    static_assert(std::size(list_names) == static_cast<std::size_t>(name_list::count));
    for (const std::string_view table : built_in_knowledge()) {
        add(table);
    }
    for (std::size_t i = 0; i < std::size(signal_ids); ++i) {
        const auto found = std::ranges::find(kinds_, signal_ids[i], &finding_kind::id);
        by_signal_[i] = static_cast<std::size_t>(found - kinds_.begin());
    }
}

std::optional<std::size_t> knowledge::add(std::string_view text)
{
    constexpr std::string_view byte_order_mark = "\xef\xbb\xbf";
    if (text.starts_with(byte_order_mark)) {
        text.remove_prefix(byte_order_mark.size());
    }
    bool (knowledge::*add_row)(const fields&) = nullptr;
    for (std::size_t number = 1; !text.empty(); ++number) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        if (line.ends_with('\r')) {
            line.remove_suffix(1);
        }
        if (line.empty() || line.starts_with('#')) {
            continue;
        }
        const bool is_head =
            line == fix_head || line == kind_head || line == entry_head || line == source_head;
        if (is_head) {
            add_row = line == fix_head     ? &knowledge::add_fix
                      : line == kind_head  ? &knowledge::add_kind
                      : line == entry_head ? &knowledge::add_entry
                                           : &knowledge::add_source;
        } else if (add_row == nullptr || !(this->*add_row)(fields_of(line))) {
            return number;
        }
    }
    return std::nullopt;
}

bool knowledge::add_fix(const fields& row)
{
    const auto weighs = row.size() == 6 ? weight_from(row[3]) : std::nullopt;
    if (!weighs || row[0].empty() || std::ranges::find(fix_kinds, row[1]) == std::end(fix_kinds)) {
        return false;
    }
    known_fix fix{std::string(row[0]), std::string(row[1]), std::string(row[2]), *weighs,
                  std::string(row[4]), std::string(row[5])};
    const std::string name = uni::lowered(fix.name);
    const auto [first, last] = fixes_.equal_range(name);
    const auto same =
        std::find_if(first, last, [&](const auto& known) { return known.second.kind == fix.kind; });
    if (same != last) {
        same->second = std::move(fix);
    } else {
        fixes_.emplace(name, std::move(fix));
    }
    return true;
}

bool knowledge::add_kind(const fields& row)
{
    const auto weighs = row.size() == 10 ? weight_from(row[2]) : std::nullopt;
    if (!weighs) {
        return false;
    }
    const auto group =
        std::ranges::find(groups, row[1], &std::pair<std::string_view, finding_group>::first);
    const auto same = std::ranges::find(kinds_, row[0], &finding_kind::id);
    // What nothing in the program raises would have no effect.
    const bool is_new = same == kinds_.end();
    const bool may_be_new = by_signal_.back() == 0 || row[0].starts_with("fix.");
    if (group == std::end(groups) || (is_new && !may_be_new)) {
        return false;
    }
    finding_kind kind{std::string(row[0]), group->second,       *weighs,
                      std::string(row[3]), row[4] == "custom",  row[4] == "left",
                      variants_of(row[5]), std::string(row[6]), std::string(row[7]),
                      std::string(row[8]), std::string(row[9])};
    if (is_new) {
        kinds_.push_back(std::move(kind));
    } else if (kind.says.size() != same->says.size()) {
        return false;
    } else {
        *same = std::move(kind);
    }
    return true;
}

bool knowledge::add_entry(const fields& row)
{
    if (row.size() != 3 || row[1].empty()) {
        return false;
    }
    const auto list = std::ranges::find(list_names, row[0]);
    if (list == std::end(list_names)) {
        return false;
    }
    lists_[static_cast<std::size_t>(list - std::begin(list_names))].insert_or_assign(
        uni::lowered(row[1]), std::string(row[2]));
    return true;
}

bool knowledge::add_source(const fields& row)
{
    return row.size() == 2 &&
           sources_.insert_or_assign(std::string(row[0]), std::string(row[1])).first !=
               sources_.end();
}

const finding_kind* knowledge::kind_called(std::string_view id) const
{
    const auto found = std::ranges::find(kinds_, id, &finding_kind::id);
    return found == kinds_.end() ? nullptr : &*found;
}

const known_fix* knowledge::fix(std::string_view name, std::string_view kind) const
{
    const auto [first, last] = fixes_.equal_range(uni::lowered(name));
    const auto same =
        std::find_if(first, last, [&](const auto& known) { return known.second.kind == kind; });
    return same != last ? &same->second : nullptr;
}

bool knowledge::holds(name_list list, std::string_view text) const
{
    return note_of(list, text) != nullptr;
}

const std::string* knowledge::note_of(name_list list, std::string_view text) const
{
    const auto& all = entries(list);
    const auto found = all.find(uni::lowered(text));
    return found == all.end() ? nullptr : &found->second;
}

const std::string* knowledge::found_in(name_list list, std::string_view lower) const
{
    for (const auto& [entry, note] : entries(list)) {
        if (lower.find(entry) != std::string_view::npos) {
            return &entry;
        }
    }
    return nullptr;
}

namespace {

// Whether an entry stands in a text where a word begins, and where one ends if `is_whole`.
bool stands_in(std::string_view lower, std::string_view entry, bool is_whole)
{
    const auto is_in_word = [lower](std::size_t at) {
        return at < lower.size() && uni::is_letter_or_digit(lower[at]);
    };
    for (std::size_t at = lower.find(entry); at != std::string_view::npos;
         at = lower.find(entry, at + 1)) {
        if ((at == 0 || !is_in_word(at - 1)) && (!is_whole || !is_in_word(at + entry.size()))) {
            return true;
        }
    }
    return false;
}

} // namespace

bool knowledge::begins_word(name_list list, std::string_view lower) const
{
    return std::ranges::any_of(
        entries(list), [&](const auto& entry) { return stands_in(lower, entry.first, false); });
}

bool knowledge::holds_word(name_list list, std::string_view lower) const
{
    return std::ranges::any_of(
        entries(list), [&](const auto& entry) { return stands_in(lower, entry.first, true); });
}

} // namespace model
