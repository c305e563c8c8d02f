#include "model/differences.h"

#include <algorithm>
#include <array>
#include <bit>
#include <future>
#include <optional>
#include <set>
#include <unordered_map>
#include <utility>
#include <vector>

#include "model/content.h"
#include "model/index_sums.h"
#include "model/record_facts.h"
#include "model/record_pairs.h"
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
    side(const sdb::sdb_database& of, const content_key& key)
        : database(of), contents(of, key, references_seen::by_name), index(of, key),
          records(records_of(of)), places(of)
    {}

    const sdb::sdb_database& database;
    record_contents contents;
    index_sums index;
    std::vector<std::uint32_t> records;
    record_places places;
};

class comparer {
public:
    comparer(const sdb::sdb_database& before, const sdb::sdb_database& after,
             difference_listener& listener, uni::thread_allowance* threads)
        : comparer(before, after, listener, threads, random_content_key())
    {}

    difference_counts compare()
    {
        tell_namesakes_apart();
        const index_sums::others astray_before = before_.index.beside(before_.records);
        const index_sums::others astray_after = after_.index.beside(after_.records);
        if (compares_indexes_ && astray_before.sum != astray_after.sum) {
            goes_on_ = listener_.astray(astray_before.count, astray_after.count);
        }
        std::vector<pair_of> found =
            pair_lists(std::move(before_.records), std::move(after_.records));
        // What the lists around all records say of themselves comes first.
        const around_records a = around_records_of(before_.database);
        const around_records b = around_records_of(after_.database);
        compare_around(a.databases, b.databases);
        compare_around(a.libraries, b.libraries);
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
          look_at_after_(std::async(helper_.policy(), [&after, key] { return side(after, key); })),
          before_(before, key), after_(look_at_after_.get()), key_(key), listener_(listener)
    {}

    void count_and_tell(const pair_of& one)
    {
        if (one.before == 0 || one.after == 0) {
            ++(one.before == 0 ? counts_.added : counts_.removed);
            goes_on_ = goes_on_ && listener_.record(
                                       {one.before == 0 ? change_kind::added : change_kind::removed,
                                        one.before, one.after});
            return;
        }
        const bool is_equal = !is_changed(one);
        const content_digest reached_before = before_.index.of(one.before);
        const content_digest reached_after = after_.index.of(one.after);
        const bool is_reached_otherwise = compares_indexes_ && reached_before != reached_after;
        const bool is_moved = stand_apart(one.before, one.after);
        if (is_equal && !is_reached_otherwise && !is_moved) {
            ++counts_.unchanged;
            return;
        }
        ++counts_.changed;
        const record_change change{change_kind::changed, one.before, one.after};
        goes_on_ = goes_on_ && listener_.record(change);
        if (is_moved) {
            tell_places(change);
        }
        if (is_reached_otherwise) {
            goes_on_ = goes_on_ && listener_.reached(change, reached_before != content_digest(),
                                                     reached_after != content_digest());
        }
        if (!is_equal) {
            compare_lists(one.before, one.after, 0);
        }
    }

    bool stand_apart(std::uint32_t before, std::uint32_t after) const
    {
        return before_.places.of(before) != after_.places.of(after);
    }

    void tell_places(const record_change& one)
    {
        goes_on_ = goes_on_ && listener_.stands(one, before_.places.of(one.before),
                                                after_.places.of(one.after));
    }

    // Those at the end, of which the last counts, are held against one another.
    void compare_around(const std::vector<std::uint32_t>& a, const std::vector<std::uint32_t>& b)
    {
        const std::size_t places = std::max(a.size(), b.size());
        for (std::size_t place = 0; place < places; ++place) {
            const std::size_t from_end = places - place;
            const std::uint32_t before = from_end <= a.size() ? a[a.size() - from_end] : 0;
            const std::uint32_t after = from_end <= b.size() ? b[b.size() - from_end] : 0;
            if (before == 0 || after == 0) {
                count_and_tell({before, after});
                continue;
            }
            const bool is_moved = stand_apart(before, after);
            if (!is_moved && !have_other_scalars(before, after)) {
                counts_.unchanged += before_.database.tag_from(before) == tag::database ? 1 : 0;
                continue;
            }
            ++counts_.changed;
            const record_change change{change_kind::changed, before, after};
            goes_on_ = goes_on_ && listener_.record(change);
            if (is_moved) {
                tell_places(change);
            }
            compare_scalars(before, after);
        }
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
            const record_place place = one.places.of(record); // of two alike that in the same one
            keys.content += {place.around, place.before_last};
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
        constexpr std::size_t many = 4096; // worth a thread
        std::vector<record_keys> left_before;
        std::vector<record_keys> left_after;
        const auto look_before = [&] { left_before = keys_of(before_, before); };
        const auto look_after = [&] { left_after = keys_of(after_, after); };
        if (before.size() > many && after.size() > many) {
            side_by_side(look_before, look_after);
        } else {
            look_before();
            look_after();
        }
        for (std::size_t by = 0; by < ways_to_call; ++by) {
            candidates a = candidates_of(left_before, by);
            candidates b = candidates_of(left_after, by);
            leave_lonely(a, b);
            leave_lonely(b, a);
            const std::size_t first = pairs.size();
            pair_equal_keys(
                a, b, pairs, [this](std::uint32_t list) { return parts_of(before_, list); },
                [this](std::uint32_t list) { return parts_of(after_, list); });
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

    // What stands in it, and all scalars and all lists together, of which one change leaves one as it is.
    static std::vector<weighty_part> parts_of(side& one, std::uint32_t list)
    {
        std::vector<weighty_part> parts;
        weighty_part scalars{};
        weighty_part lists{};
        one.database.for_each_child(list, [&](std::uint32_t offset, std::uint16_t own) {
            const bool is_list = sdb::tag_type(own) == type::list;
            const content_digest digest =
                is_list ? one.contents.of_list(offset) : one.contents.of_scalar(offset);
            parts.push_back({digest, 1});
            weighty_part& sum = is_list ? lists : scalars;
            sum.digest += digest;
            ++sum.weight;
        });
        parts.push_back(scalars);
        parts.push_back(lists);
        return parts;
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

    std::vector<pair_of> pair_lists(std::vector<std::uint32_t> before,
                                    std::vector<std::uint32_t> after)
    {
        std::vector<pair_of> paired;
        take_partners(before, after, paired);
        pair_by_place(before, after, paired);
        std::vector<pair_of> pairs = pair_all(before, after);
        pairs.insert(pairs.end(), paired.begin(), paired.end());
        return pairs;
    }

    // Takes out the namesakes that were paired, as what refers to them counts on that. Both are ascending.
    void take_partners(std::vector<std::uint32_t>& before, std::vector<std::uint32_t>& after,
                       std::vector<pair_of>& pairs) const
    {
        std::vector<std::uint32_t> taken;
        std::erase_if(before, [&](std::uint32_t list) {
            const auto partner = partners_.find(list);
            const bool is_there =
                partner != partners_.end() && std::ranges::binary_search(after, partner->second);
            if (is_there) {
                pairs.push_back({list, partner->second});
                taken.push_back(partner->second);
            }
            return is_there;
        });
        std::ranges::sort(taken);
        std::erase_if(after,
                      [&](std::uint32_t list) { return std::ranges::binary_search(taken, list); });
    }

    // In how many what namesakes refer to themselves is looked at: a few where they are very many, so that
    // nobody can have it take long.
    static std::size_t rounds_for(std::size_t lists)
    {
        constexpr std::size_t most_lists = 1'000'000; // in all rounds together
        constexpr std::size_t fewest = 4;
        constexpr std::size_t most = 16;
        return std::clamp(most_lists / std::max<std::size_t>(lists, 1), fewest, most);
    }

    // Lists of one kind and name on either side, to which references may lead, are told apart as they are
    // paired: a reference stays the same if what it leads to are two of a pair.
    void tell_namesakes_apart()
    {
        std::set<std::uint16_t> kinds = before_.contents.kinds_referred_to();
        kinds.merge(after_.contents.kinds_referred_to());
        std::vector<named_list> a;
        std::vector<named_list> b;
        side_by_side([&] { a = before_.contents.lists_of_kinds(kinds); },
                     [&] { b = after_.contents.lists_of_kinds(kinds); });
        const std::vector<content_digest> names = repeated_names(a, b);
        if (names.empty()) {
            return;
        }
        for (auto* const lists : {&a, &b}) {
            std::erase_if(*lists, [&](const named_list& one) {
                return !std::ranges::binary_search(names, one.name);
            });
        }
        side_by_side([&] { before_.contents.tell_apart(a); },
                     [&] { after_.contents.tell_apart(b); });
        const std::size_t rounds = rounds_for(std::max(a.size(), b.size()));
        bool goes_on = true;
        for (std::size_t round = 0; goes_on && round < rounds; ++round) {
            bool has_changed = false;
            side_by_side([&] { has_changed = before_.contents.look_closer(); },
                         [&] { goes_on = after_.contents.look_closer(); });
            goes_on = goes_on || has_changed;
        }
        std::vector<namesakes> left;
        for (const content_digest& name : names) {
            left.push_back({lists_called(a, name), lists_called(b, name)});
        }
        std::vector<namesake_pair> pairs = pair_namesakes(left);
        see_as_paired(pairs);
        // Those that say the same to the end do so whatever comes of the others. As these are paired, what
        // refers to them says more alike, so that it may find its like, too.
        leave_equal_out(left, pairs);
        std::vector<namesake_pair> before;
        for (std::size_t round = 0; round < rounds && pairs != before; ++round) {
            before = std::exchange(pairs, pair_namesakes(left));
            see_as_paired(pairs);
        }
        for (const namesake_pair& one : pairs) {
            if (one.two.before != 0 && one.two.after != 0 && is_changed(one.two)) {
                partners_[one.two.before] = one.two.after;
            }
        }
    }

    // Lists of one name.
    struct namesakes {
        std::vector<std::uint32_t> before;
        std::vector<std::uint32_t> after;
    };
    struct namesake_pair {
        pair_of two;
        bool say_the_same;
        friend bool operator==(const namesake_pair&, const namesake_pair&) = default;
    };

    std::vector<namesake_pair> pair_namesakes(const std::vector<namesakes>& all)
    {
        std::vector<namesake_pair> pairs;
        for (const namesakes& one : all) {
            for (const pair_of& two : pair_all(one.before, one.after)) {
                pairs.push_back({two, two.before != 0 && two.after != 0 && !is_changed(two)});
            }
        }
        return pairs;
    }

    static void leave_equal_out(std::vector<namesakes>& all,
                                const std::vector<namesake_pair>& pairs)
    {
        std::vector<std::uint32_t> before;
        std::vector<std::uint32_t> after;
        for (const namesake_pair& one : pairs) {
            if (one.say_the_same) {
                before.push_back(one.two.before);
                after.push_back(one.two.after);
            }
        }
        std::ranges::sort(before);
        std::ranges::sort(after);
        for (namesakes& one : all) {
            std::erase_if(one.before, [&](std::uint32_t list) {
                return std::ranges::binary_search(before, list);
            });
            std::erase_if(one.after, [&](std::uint32_t list) {
                return std::ranges::binary_search(after, list);
            });
        }
    }

    bool is_changed(const pair_of& one) const
    {
        return before_.contents.of_list(one.before) != after_.contents.of_list(one.after);
    }

    // Those that say the same may stand for one another.
    void see_as_paired(const std::vector<namesake_pair>& pairs)
    {
        std::vector<named_list> of_before;
        std::vector<named_list> of_after;
        for (const auto& [two, say_the_same] : pairs) {
            const content_digest known = say_the_same ? before_.contents.of_list(two.before)
                                                      : content_digest{two.before, two.after};
            const std::array<std::uint64_t, 2> words = {known.low, known.high};
            const auto bytes = std::bit_cast<std::array<std::uint8_t, sizeof(words)>>(words);
            const content_digest token =
                keyed_digest(key_, say_the_same ? 1 : 0, uni::byte_view(bytes));
            if (two.before != 0) {
                of_before.push_back({token, two.before});
            }
            if (two.after != 0) {
                of_after.push_back({token, two.after});
            }
        }
        side_by_side([&] { before_.contents.see_as(of_before); },
                     [&] { after_.contents.see_as(of_after); });
    }

    // What is done for either database, by two threads where one is to spare.
    void side_by_side(auto&& of_before, auto&& of_after) const
    {
        auto other = std::async(helper_.policy(), of_after);
        of_before();
        other.get();
    }

    static std::vector<content_digest> repeated_names(const std::vector<named_list>& a,
                                                      const std::vector<named_list>& b)
    {
        std::vector<content_digest> names;
        for (const std::vector<named_list>* const lists : {&a, &b}) {
            for (std::size_t i = 1; i < lists->size(); ++i) {
                if ((*lists)[i - 1].name == (*lists)[i].name) {
                    names.push_back((*lists)[i].name);
                }
            }
        }
        std::ranges::sort(names);
        names.erase(std::unique(names.begin(), names.end()), names.end());
        return names;
    }

    // In file order.
    static std::vector<std::uint32_t> lists_called(const std::vector<named_list>& lists,
                                                   const content_digest& name)
    {
        std::vector<std::uint32_t> found;
        auto one = std::ranges::lower_bound(lists, name, {}, &named_list::name);
        for (; one != lists.end() && one->name == name; ++one) {
            found.push_back(one->list);
        }
        return found;
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

    // Takes out the lists whose order matters, as pairs by their places: what stands alike in front and at the
    // end, and what is between.
    void pair_by_place(std::vector<std::uint32_t>& before, std::vector<std::uint32_t>& after,
                       std::vector<pair_of>& pairs) const
    {
        const std::vector<std::uint32_t> a = taken_in_order(before_.database, before);
        const std::vector<std::uint32_t> b = taken_in_order(after_.database, after);
        const auto are_alike = [&](std::size_t in_a, std::size_t in_b) {
            return before_.contents.of_list(a[in_a]) == after_.contents.of_list(b[in_b]);
        };
        std::size_t end_a = a.size();
        std::size_t end_b = b.size();
        std::size_t first = 0;
        while (first < end_a && first < end_b && are_alike(first, first)) {
            pairs.push_back({a[first], b[first]});
            ++first;
        }
        while (end_a > first && end_b > first && are_alike(end_a - 1, end_b - 1)) {
            pairs.push_back({a[--end_a], b[--end_b]});
        }
        for (std::size_t i = first; i < std::max(end_a, end_b); ++i) {
            pairs.push_back({i < end_a ? a[i] : 0, i < end_b ? b[i] : 0});
        }
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
        std::vector<pair_of> pairs = pair_lists(std::move(a), std::move(b));
        put_in_order(pairs);
        for (const pair_of& one : pairs) {
            if (one.before == 0 || one.after == 0) {
                tell(one.before == 0 ? change_kind::added : change_kind::removed, one.before,
                     one.after);
            } else if (!is_changed(one)) {
                continue;
            } else if (depth == most_depth) {
                tell(change_kind::changed, one.before, one.after);
            } else {
                compare_lists(one.before, one.after, depth + 1);
            }
        }
    }

    uni::possible_helper helper_;
    std::future<side> look_at_after_;
    side before_;
    side after_;
    const content_key key_;
    difference_listener& listener_;
    difference_counts counts_;
    std::unordered_map<std::uint32_t, std::uint32_t>
        partners_; // of namesakes, in the other database
    // Where one has none at all, that is another matter.
    bool compares_indexes_ =
        !before_.database.indexes().empty() && !after_.database.indexes().empty();
    bool goes_on_ = true;
};

} // namespace

difference_counts compare_databases(const sdb::sdb_database& before, const sdb::sdb_database& after,
                                    difference_listener& listener, uni::thread_allowance* threads)
{
    return comparer(before, after, listener, threads).compare();
}

} // namespace model
