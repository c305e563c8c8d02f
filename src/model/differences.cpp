#include "model/differences.h"

#include <algorithm>
#include <array>
#include <bit>
#include <compare>
#include <future>
#include <optional>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

#include "model/record_facts.h"
#include "sdb/tags.h"
#include "sdb/vocabulary.h"
#include "uni/text.h"

namespace model {

namespace {

namespace tag = sdb::tag;
namespace type = sdb::type;

// Lists in lists are told one in the other so far; what differs deeper is told as a whole.
constexpr std::size_t most_depth = 32;

// The tag that identifies a kind of record.
std::uint16_t identifier_of(std::uint16_t record)
{
    switch (record) {
    case tag::exe:
        return tag::exe_id;
    case tag::app:
        return tag::app_id;
    case tag::msi_package:
        return tag::msi_package_id;
    default:
        return tag::fix_id;
    }
}

// One database with what its lists say.
struct side {
    const sdb::sdb_database& database;
    record_contents contents;
};

// A tag or list that looks for its counterpart: by what it is called, then by what it says.
struct candidate {
    content_digest key;
    content_digest content;
    std::uint32_t offset = 0;
    auto operator<=>(const candidate&) const = default;
};
using candidates = std::vector<candidate>;

struct pair_of {
    std::uint32_t before = 0;
    std::uint32_t after = 0;
};

// Brings together candidates of one key, those first that say the same. What is left over stays.
void pair_equal_keys(candidates& before, candidates& after, std::vector<pair_of>& pairs)
{
    std::ranges::sort(before);
    std::ranges::sort(after);
    candidates left_before;
    candidates left_after;
    std::size_t a = 0;
    std::size_t b = 0;
    while (a < before.size() || b < after.size()) {
        const bool only_before =
            b == after.size() || (a < before.size() && before[a].key < after[b].key);
        if (only_before) {
            left_before.push_back(before[a++]);
            continue;
        }
        if (a == before.size() || after[b].key < before[a].key) {
            left_after.push_back(after[b++]);
            continue;
        }
        const content_digest key = before[a].key;
        candidates other_before;
        candidates other_after;
        while ((a < before.size() && before[a].key == key) ||
               (b < after.size() && after[b].key == key)) {
            const bool has_before = a < before.size() && before[a].key == key;
            const bool has_after = b < after.size() && after[b].key == key;
            if (has_before && has_after && before[a].content == after[b].content) {
                pairs.push_back({before[a++].offset, after[b++].offset});
            } else if (has_before && (!has_after || before[a].content < after[b].content)) {
                other_before.push_back(before[a++]);
            } else {
                other_after.push_back(after[b++]);
            }
        }
        std::ranges::sort(other_before, {}, &candidate::offset);
        std::ranges::sort(other_after, {}, &candidate::offset);
        const std::size_t both = std::min(other_before.size(), other_after.size());
        for (std::size_t i = 0; i < both; ++i) {
            pairs.push_back({other_before[i].offset, other_after[i].offset});
        }
        left_before.insert(left_before.end(),
                           other_before.begin() + static_cast<std::ptrdiff_t>(both),
                           other_before.end());
        left_after.insert(left_after.end(), other_after.begin() + static_cast<std::ptrdiff_t>(both),
                          other_after.end());
    }
    before = std::move(left_before);
    after = std::move(left_after);
}

// Takes out those whose key no other has, as far as that is told fast: where much differs it spares most of
// the sorting.
void leave_lonely(candidates& ones, const candidates& others)
{
    constexpr std::size_t few = 256;
    if (ones.size() <= few && !others.empty()) {
        return;
    }
    constexpr std::size_t room = 8; // places for each
    const std::size_t places = std::bit_ceil(others.size() * room + 1);
    std::vector<bool> has(places);
    for (const candidate& other : others) {
        has[other.key.low & (places - 1)] = true;
    }
    std::erase_if(ones, [&](const candidate& one) { return !has[one.key.low & (places - 1)]; });
}

// In the order of the second database, then what only the first has.
void put_in_order(std::vector<pair_of>& pairs)
{
    const auto place = [](const pair_of& one) {
        constexpr std::uint64_t behind_all = std::uint64_t{1} << 32;
        return one.after == 0 ? behind_all + one.before : one.after;
    };
    if (!std::ranges::is_sorted(pairs, {}, place)) {
        std::ranges::sort(pairs, {}, place);
    }
}

class comparer {
public:
    comparer(const sdb::sdb_database& before, const sdb::sdb_database& after,
             difference_listener& listener, uni::thread_allowance* threads)
        : comparer(before, after, listener, threads, random_content_key())
    {}

    difference_counts compare()
    {
        // What the database list says of itself comes first.
        const std::uint32_t a = before_.database.database_offset();
        const std::uint32_t b = after_.database.database_offset();
        std::vector<pair_of> found = pair_records();
        const bool lists_differ = have_other_scalars(a, b);
        if (lists_differ) {
            ++counts_.changed;
            goes_on_ = listener_.record({change_kind::changed, a, b});
            compare_scalars(a, b);
        } else {
            ++counts_.unchanged;
        }
        put_in_order(found);
        for (const pair_of& one : found) {
            count_and_tell(one);
        }
        return counts_;
    }

private:
    comparer(const sdb::sdb_database& before, const sdb::sdb_database& after,
             difference_listener& listener, uni::thread_allowance* threads, const content_key& key)
        : helper_(threads),
          contents_of_after_(
              std::async(helper_.policy(), [&after, key] { return contents_of(after, key); })),
          before_{before, contents_of(before, key)}, after_{after, contents_of_after_.get()},
          listener_(listener), before_index_(before, key), after_index_(after, key)
    {}

    static record_contents contents_of(const sdb::sdb_database& database, const content_key& key)
    {
        return {database, key, references_seen::by_name};
    }

    void count_and_tell(const pair_of& one)
    {
        if (one.before == 0 || one.after == 0) {
            ++(one.before == 0 ? counts_.added : counts_.removed);
            goes_on_ = goes_on_ && listener_.record(
                                       {one.before == 0 ? change_kind::added : change_kind::removed,
                                        one.before, one.after});
            return;
        }
        const bool is_equal =
            before_.contents.of_list(one.before) == after_.contents.of_list(one.after);
        const content_digest reached_before = before_index_.of(one.before);
        const content_digest reached_after = after_index_.of(one.after);
        const bool is_reached_otherwise = compares_indexes_ && reached_before != reached_after;
        if (is_equal && !is_reached_otherwise) {
            ++counts_.unchanged;
            return;
        }
        ++counts_.changed;
        const record_change change{change_kind::changed, one.before, one.after};
        goes_on_ = goes_on_ && listener_.record(change);
        if (is_reached_otherwise) {
            goes_on_ = goes_on_ && listener_.reached(change, reached_before != content_digest(),
                                                     reached_after != content_digest());
        }
        if (!is_equal) {
            compare_lists(one.before, one.after, 0);
        }
    }

    // What leads to each tag, as sums of index entries.
    class index_sums {
    public:
        index_sums(const sdb::sdb_database& database, const content_key& key)
        {
            for (const sdb::sdb_index_record& index : database.indexes()) {
                const std::uint64_t kind = std::uint64_t{index.index_tag} << 48 |
                                           std::uint64_t{index.index_key} << 32 | index.index_flags;
                for (const auto& entry : index.entries) {
                    const std::array<std::uint8_t, 8> bytes =
                        std::bit_cast<std::array<std::uint8_t, 8>>(entry.key);
                    entries_.emplace_back(entry.tag_offset,
                                          keyed_digest(key, kind, uni::byte_view(bytes)));
                }
            }
            std::ranges::stable_sort(entries_, {}, &entry_digest::first);
        }
        content_digest of(std::uint32_t offset) const
        {
            content_digest sum;
            auto one = std::ranges::lower_bound(entries_, offset, {}, &entry_digest::first);
            for (; one != entries_.end() && one->first == offset; ++one) {
                sum += one->second;
            }
            return sum;
        }

    private:
        using entry_digest = std::pair<std::uint32_t, content_digest>;
        std::vector<entry_digest> entries_; // ascending by offset
    };

    static std::vector<std::uint32_t> records_of(const sdb::sdb_database& database)
    {
        std::vector<std::uint32_t> records;
        const sdb::tag_table& relation = database.children();
        const std::uint32_t strings = database.string_table_offset();
        const sdb::tag_ordinal behind_all(database.tag_count());
        const auto add_lists_in = [&](sdb::tag_ordinal around, auto&& act) {
            relation.for_each_list_in(around, act);
        };
        // All that stands outside, too.
        for (sdb::tag_ordinal root; root < behind_all; root = relation.end(root)) {
            const std::uint32_t offset = database.offset_at(root);
            if (relation.list(root) == nullptr || offset == strings) {
                continue;
            }
            if (database.tag_at(root) != tag::database) {
                records.push_back(offset);
                continue;
            }
            add_lists_in(root, [&](const sdb::tag_table::list_row& row) {
                if (row.tag != tag::library) {
                    records.push_back(database.offset_at(row.ordinal));
                    return;
                }
                add_lists_in(row.ordinal, [&](const sdb::tag_table::list_row& inner) {
                    records.push_back(database.offset_at(inner.ordinal));
                });
            });
        }
        return records;
    }

    // What a record is called: by its identifier, or else by name and tests, or else by name alone.
    struct record_keys {
        std::uint32_t offset = 0;
        bool has_identifier = false;
        bool has_name = false;
        content_digest content;
        content_digest identifier;
        content_digest name;
        content_digest tests;

        std::optional<content_digest> key(std::size_t by) const
        {
            switch (by) {
            case 0:
                return has_identifier ? std::optional(identifier) : std::nullopt;
            case 1:
                return content_digest(name) += tests;
            default:
                return has_name ? std::optional(name) : std::nullopt;
            }
        }
    };
    static constexpr std::size_t ways_to_call = 3;

    static std::vector<record_keys> keys_of(side& one, const std::vector<std::uint32_t>& records)
    {
        std::vector<record_keys> made;
        made.reserve(records.size());
        for (const std::uint32_t record : records) {
            const std::uint16_t kind = one.database.tag_from(record);
            const std::uint16_t identifier = identifier_of(kind);
            record_keys keys;
            keys.offset = record;
            keys.content = one.contents.of_list(record);
            keys.identifier = keys.name = {kind, 0};
            one.database.for_each_child(record, [&](std::uint32_t offset, std::uint16_t own) {
                if (own == identifier) {
                    keys.identifier += one.contents.of_scalar(offset);
                    keys.has_identifier = true;
                } else if (own == tag::name) {
                    keys.name += one.contents.of_scalar(offset);
                    keys.has_name = true;
                } else if (is_matching_list(own)) {
                    keys.tests += one.contents.of_list(offset);
                }
            });
            made.push_back(keys);
        }
        return made;
    }

    std::vector<pair_of> pair_all(const std::vector<std::uint32_t>& before,
                                  const std::vector<std::uint32_t>& after)
    {
        std::vector<pair_of> pairs;
        std::vector<record_keys> left_before = keys_of(before_, before);
        std::vector<record_keys> left_after = keys_of(after_, after);
        for (std::size_t by = 0; by < ways_to_call; ++by) {
            candidates a = candidates_of(left_before, by);
            candidates b = candidates_of(left_after, by);
            leave_lonely(a, b);
            leave_lonely(b, a);
            const std::size_t first = pairs.size();
            pair_equal_keys(a, b, pairs);
            take_out(left_before, pairs, first, &pair_of::before);
            take_out(left_after, pairs, first, &pair_of::after);
        }
        for (const record_keys& one : left_after) {
            pairs.push_back({0, one.offset});
        }
        for (const record_keys& one : left_before) {
            pairs.push_back({one.offset, 0});
        }
        return pairs;
    }

    static candidates candidates_of(const std::vector<record_keys>& records, std::size_t by)
    {
        candidates found;
        for (const record_keys& one : records) {
            if (const auto key = one.key(by)) {
                found.push_back({*key, one.content, one.offset});
            }
        }
        return found;
    }

    // Those that are paired now; what is left is ascending, as before.
    static void take_out(std::vector<record_keys>& left, const std::vector<pair_of>& pairs,
                         std::size_t first, std::uint32_t pair_of::*side_of)
    {
        if (pairs.size() - first == left.size()) {
            left.clear();
            return;
        }
        std::vector<std::uint32_t> paired;
        for (std::size_t i = first; i < pairs.size(); ++i) {
            paired.push_back(pairs[i].*side_of);
        }
        std::ranges::sort(paired);
        std::erase_if(left, [&](const record_keys& one) {
            return std::ranges::binary_search(paired, one.offset);
        });
    }

    std::vector<pair_of> pair_records()
    {
        return pair_all(records_of(before_.database), records_of(after_.database));
    }

    candidates scalars_of(side& one, std::uint32_t list)
    {
        candidates found;
        std::unordered_map<std::uint16_t, std::uint64_t> counts; // of those that repeat
        one.database.for_each_child(list, [&](std::uint32_t offset, std::uint16_t own) {
            if (sdb::tag_type(own) != type::list) {
                found.push_back({{own, counts[own]++}, one.contents.of_scalar(offset), offset});
            }
        });
        return found;
    }

    bool have_other_scalars(std::uint32_t before, std::uint32_t after)
    {
        content_digest sums[2];
        std::size_t number = 0;
        for (const auto& [one, list] : {std::pair<side*, std::uint32_t>(&before_, before),
                                        std::pair<side*, std::uint32_t>(&after_, after)}) {
            for (const candidate& scalar : scalars_of(*one, list)) {
                content_digest in_its_place = scalar.content;
                in_its_place.low *= 2 * scalar.key.high + 1;
                sums[number] += in_its_place;
            }
            ++number;
        }
        return sums[0] != sums[1];
    }

    void tell(change_kind kind, std::uint32_t before, std::uint32_t after)
    {
        goes_on_ = goes_on_ && listener_.fact({kind, before, after});
    }

    void compare_scalars(std::uint32_t before, std::uint32_t after)
    {
        candidates a = scalars_of(before_, before);
        candidates b = scalars_of(after_, after);
        std::vector<pair_of> pairs;
        pair_equal_keys(a, b, pairs);
        std::ranges::sort(pairs, {}, &pair_of::after);
        for (const pair_of& one : pairs) {
            if (before_.contents.of_scalar(one.before) != after_.contents.of_scalar(one.after)) {
                tell(change_kind::changed, one.before, one.after);
            }
        }
        std::ranges::sort(a, {}, &candidate::offset);
        std::ranges::sort(b, {}, &candidate::offset);
        for (const candidate& one : b) {
            tell(change_kind::added, 0, one.offset);
        }
        for (const candidate& one : a) {
            tell(change_kind::removed, one.offset, 0);
        }
    }

    static std::vector<std::uint32_t> lists_in(const sdb::sdb_database& database,
                                               std::uint32_t list)
    {
        std::vector<std::uint32_t> found;
        database.for_each_child(list, [&](std::uint32_t offset, std::uint16_t own) {
            if (sdb::tag_type(own) == type::list) {
                found.push_back(offset);
            }
        });
        return found;
    }

    // Takes out those lists whose order matters, as pairs by their places, if nothing but their order differs.
    std::vector<pair_of> pairs_in_another_order(std::vector<std::uint32_t>& before,
                                                std::vector<std::uint32_t>& after) const
    {
        const auto digests_of = [](const side& one, const std::vector<std::uint32_t>& lists) {
            std::vector<std::pair<content_digest, std::uint32_t>> made;
            for (const std::uint32_t list : lists) {
                if (is_taken_in_order(one.database.tag_from(list))) {
                    made.emplace_back(one.contents.of_list(list), list);
                }
            }
            return made;
        };
        auto a = digests_of(before_, before);
        auto b = digests_of(after_, after);
        std::vector<pair_of> pairs;
        for (std::size_t i = 0; i < std::min(a.size(), b.size()); ++i) {
            pairs.push_back({a[i].second, b[i].second});
        }
        const auto are_alike = [&] {
            return std::ranges::equal(a, b, {}, &std::pair<content_digest, std::uint32_t>::first,
                                      &std::pair<content_digest, std::uint32_t>::first);
        };
        const bool is_order_alike = are_alike();
        std::ranges::sort(a);
        std::ranges::sort(b);
        if (is_order_alike || !are_alike()) {
            return {};
        }
        std::erase_if(before, [&](std::uint32_t list) {
            return is_taken_in_order(before_.database.tag_from(list));
        });
        std::erase_if(after, [&](std::uint32_t list) {
            return is_taken_in_order(after_.database.tag_from(list));
        });
        return pairs;
    }

    // NOLINTNEXTLINE(misc-no-recursion) ; no deeper than most_depth
    void compare_lists(std::uint32_t before, std::uint32_t after, std::size_t depth)
    {
        if (!goes_on_) {
            return;
        }
        compare_scalars(before, after);
        std::vector<std::uint32_t> a = lists_in(before_.database, before);
        std::vector<std::uint32_t> b = lists_in(after_.database, after);
        std::vector<pair_of> in_order = pairs_in_another_order(a, b);
        std::vector<pair_of> pairs = pair_all(a, b);
        pairs.insert(pairs.end(), in_order.begin(), in_order.end());
        put_in_order(pairs);
        for (const pair_of& one : pairs) {
            if (one.before == 0 || one.after == 0) {
                tell(one.before == 0 ? change_kind::added : change_kind::removed, one.before,
                     one.after);
            } else if (before_.contents.of_list(one.before) == after_.contents.of_list(one.after)) {
                continue;
            } else if (depth == most_depth) {
                tell(change_kind::changed, one.before, one.after);
            } else {
                compare_lists(one.before, one.after, depth + 1);
            }
        }
    }

    uni::possible_helper helper_;
    std::future<record_contents> contents_of_after_;
    side before_;
    side after_;
    difference_listener& listener_;
    difference_counts counts_;
    // Where one has none at all, that is another matter.
    bool compares_indexes_ =
        !before_.database.indexes().empty() && !after_.database.indexes().empty();
    const index_sums before_index_;
    const index_sums after_index_;
    bool goes_on_ = true;
};

} // namespace

difference_counts compare_databases(const sdb::sdb_database& before, const sdb::sdb_database& after,
                                    difference_listener& listener, uni::thread_allowance* threads)
{
    return comparer(before, after, listener, threads).compare();
}

void known_records::add(const sdb::sdb_database& database)
{
    const record_contents contents(database, key_, references_seen::by_content);
    for (const sdb::tag_table::list_row& list : database.children().lists()) {
        const std::uint32_t offset = database.offset_at(list.ordinal);
        digests_.push_back(contents.of_list(offset));
        if (is_definition(database, offset)) {
            definitions_.push_back({name_key(database, offset), contents.of_list(offset)});
        }
    }
}

content_digest known_records::name_key(const sdb::sdb_database& database,
                                       std::uint32_t record) const
{
    const std::string name = uni::lowered(text_in(database, record, tag::name));
    return keyed_digest(key_, database.tag_from(record), uni::byte_view(uni::bytes_of(name)));
}

bool known_records::redefines(const sdb::sdb_database& database, const record_contents& contents,
                              std::uint32_t record) const
{
    if (!is_definition(database, record) || child_of(database, record, tag::name) == 0) {
        return false;
    }
    const content_digest key = name_key(database, record);
    const content_digest content = contents.of_list(record);
    const auto first = std::ranges::lower_bound(definitions_, key, {}, &definition::name);
    return first != definitions_.end() && first->name == key &&
           !std::ranges::binary_search(definitions_, definition{key, content});
}

void known_records::settle()
{
    std::ranges::sort(digests_);
    digests_.erase(std::unique(digests_.begin(), digests_.end()), digests_.end());
    std::ranges::sort(definitions_);
}

bool known_records::holds(const content_digest& record) const
{
    return std::ranges::binary_search(digests_, record);
}

} // namespace model
