#include "model/match_index.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "model/file_keys.h"
#include "model/record_facts.h"
#include "sdb/tags.h"
#include "uni/text.h"

namespace model {

namespace {

namespace tag = sdb::tag;

// Each program is held against all of them.
constexpr std::size_t most_patterns = 2'000;

// Whether a name is one of a pattern, with `*` for any characters and `?` for any one; both lower-case.
bool is_of_pattern(std::string_view name, std::string_view pattern)
{
    std::size_t at = 0;
    std::size_t in_pattern = 0;
    // Where to go on after the last `*`, which takes one character more each time that the rest fails.
    std::size_t behind_star = std::string_view::npos;
    std::size_t taken_up_to = 0;
    while (at < name.size()) {
        if (in_pattern < pattern.size() && pattern[in_pattern] == '*') {
            behind_star = ++in_pattern;
            taken_up_to = at;
        } else if (in_pattern < pattern.size() &&
                   (pattern[in_pattern] == name[at] || pattern[in_pattern] == '?')) {
            // A character beyond ASCII is several bytes.
            const bool is_any = pattern[in_pattern++] == '?';
            for (++at; is_any && at < name.size() && (name[at] & 0xc0) == 0x80;) {
                ++at;
            }
        } else if (behind_star != std::string_view::npos) {
            in_pattern = behind_star;
            at = ++taken_up_to;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', in_pattern) == std::string_view::npos;
}

// The pattern with one `*` for several that follow each other.
std::string without_needless_stars(const std::string& text)
{
    std::string made;
    std::ranges::unique_copy(text, std::back_inserter(made),
                             [](char a, char b) { return a == '*' && b == '*'; });
    return made;
}

template <typename item>
void sort_once(std::vector<item>& items, auto&& of)
{
    std::stable_sort(items.begin(), items.end(),
                     [&](const item& a, const item& b) { return of(a) < of(b); });
    items.erase(std::unique(items.begin(), items.end(),
                            [&](const item& a, const item& b) { return of(a) == of(b); }),
                items.end());
}

} // namespace

match_index::match_index(const sdb::sdb_database& database, const tag_texts& texts,
                         const request::bounds& bounds)
    : database_(database)
{
    for (const std::uint32_t offset : database.children().offsets()) {
        const std::uint16_t own = database.tag_from(offset);
        if (own == tag::exe || own == tag::kdriver) {
            add_record(offset);
        }
    }
    is_complete_ &=
        name_matching_lists(database, texts, bounds,
                            [this](std::string name, const looked_at_list& list, bool is_empty) {
                                uni::lower_text(name);
                                const auto of_pattern = lists_of_patterns_.find(list.record);
                                if (of_pattern != lists_of_patterns_.end() &&
                                    of_pattern->second.name == name && !is_empty) {
                                    of_pattern->second.lists.push_back(list);
                                }
                                under_name& known = by_name_[std::move(name)];
                                known.has_list = true;
                                if (!is_empty) {
                                    known.lists.push_back(list);
                                }
                            });
}

void match_index::add_record(std::uint32_t record)
{
    const std::uint32_t name = child_of(database_, record, tag::name);
    const std::uint32_t wildcard = child_of(database_, record, tag::wildcard_name);
    const std::string text =
        name == 0 ? std::string() : uni::lowered(text_at(database_, name, longest_name_of_file));
    if (wildcard != 0) {
        lists_of_patterns_[record].name = text;
        add_name({record, wildcard, true},
                 uni::lowered(text_at(database_, wildcard, longest_name_of_file)));
    }
    const bool is_pattern = text.find_first_of("*?") != std::string::npos;
    if (is_pattern) {
        lists_of_patterns_[record].name = text;
    }
    add_name({record, name, is_pattern}, text);
}

void match_index::add_name(const named_record& record, std::string name)
{
    if (name.empty()) {
        return;
    }
    if (!record.is_pattern) {
        by_name_[std::move(name)].records.push_back(record);
    } else if (patterns_.size() < most_patterns) {
        const auto stars = static_cast<std::size_t>(std::ranges::count(name, '*'));
        patterns_.push_back({without_needless_stars(name), name.size() - stars, record});
    } else {
        has_all_patterns_ = false;
    }
}

found_by_name match_index::find(const std::string& path) const
{
    found_by_name found;
    const file_keys keys(path);
    const auto under = [this](const std::string& name) -> const under_name& {
        static const under_name nothing;
        const auto named = by_name_.find(name);
        return named == by_name_.end() ? nothing : named->second;
    };
    const under_name& of_name = under(keys.name);
    const under_name& of_path = under(keys.full);
    found.lists.by_path = !of_name.has_list;
    found.lists.lists = found.lists.by_path ? of_path.lists : of_name.lists;
    found.records = of_name.records;
    if (found.lists.by_path) {
        found.records.insert(found.records.end(), of_path.records.begin(), of_path.records.end());
    }
    std::vector<looked_at_list>& lists = found.lists.lists;
    for (const pattern& one : patterns_) {
        if (one.shortest <= keys.name.size() && is_of_pattern(keys.name, one.text)) {
            found.records.push_back(one.record);
            const auto& own = lists_of_patterns_.at(one.record.record).lists;
            lists.insert(lists.end(), own.begin(), own.end());
        }
    }
    sort_once(found.records, [](const named_record& one) { return one.record; });
    for (const named_record& one : found.records) {
        if (database_.tag_from(one.record) == tag::kdriver) {
            lists.push_back({one.record, one.record});
        }
    }
    sort_once(lists, [](const looked_at_list& one) { return one; });
    return found;
}

} // namespace model
