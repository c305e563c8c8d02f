#include "model/list_pairs.h"

#include <algorithm>
#include <array>
#include <bit>
#include <optional>
#include <set>
#include <utility>

#include "model/record_facts.h"
#include "sdb/tags.h"
#include "sdb/vocabulary.h"

namespace model {

namespace {

namespace tag = sdb::tag;
namespace type = sdb::type;

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
constexpr std::size_t ways_to_call = 3;

std::vector<record_keys> keys_of(compared_side& one, const std::vector<std::uint32_t>& records)
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
            } else if (is_test(own)) {
                keys.tests += one.contents.of_list(offset);
            }
        });
        made.push_back(keys);
    }
    return made;
}

// What stands in it, and all scalars and all lists together, of which one change leaves one as it is.
std::vector<weighty_part> parts_of(compared_side& one, std::uint32_t list)
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

candidates candidates_of(const std::vector<record_keys>& records, std::size_t by)
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
void take_out(std::vector<record_keys>& left, const std::vector<pair_of>& pairs, std::size_t first,
              std::uint32_t pair_of::*side_of)
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

// In how many what namesakes refer to themselves is looked at: a few where they are very many, so that
// nobody can have it take long.
std::size_t rounds_for(std::size_t lists)
{
    constexpr std::size_t most_lists = 1'000'000; // in all rounds together
    constexpr std::size_t fewest = 4;
    constexpr std::size_t most = 16;
    return std::clamp(most_lists / std::max<std::size_t>(lists, 1), fewest, most);
}

std::vector<content_digest> repeated_names(const std::vector<named_list>& a,
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
std::vector<std::uint32_t> lists_called(const std::vector<named_list>& lists,
                                        const content_digest& name)
{
    std::vector<std::uint32_t> found;
    auto one = std::ranges::lower_bound(lists, name, {}, &named_list::name);
    for (; one != lists.end() && one->name == name; ++one) {
        found.push_back(one->list);
    }
    return found;
}

} // namespace

list_pairer::list_pairer(const sdb::sdb_database& before, const sdb::sdb_database& after,
                         uni::thread_allowance* threads)
    : list_pairer(before, after, threads, random_content_key())
{}

list_pairer::list_pairer(const sdb::sdb_database& before, const sdb::sdb_database& after,
                         uni::thread_allowance* threads, const content_key& key)
    : helper_(threads), key_(key),
      look_at_after_(
          std::async(helper_.policy(), [&after, key] { return compared_side(after, key); })),
      before_(before, key), after_(look_at_after_.get())
{
    tell_namesakes_apart();
}

std::vector<pair_of> list_pairer::pair_lists(std::vector<std::uint32_t> before,
                                             std::vector<std::uint32_t> after)
{
    std::vector<pair_of> paired;
    take_partners(before, after, paired);
    pair_by_place(before, after, paired);
    std::vector<pair_of> pairs = pair_by_names(before, after);
    pairs.insert(pairs.end(), paired.begin(), paired.end());
    return pairs;
}

// Takes out the namesakes that were paired, as what refers to them counts on that. Both are ascending.
void list_pairer::take_partners(std::vector<std::uint32_t>& before,
                                std::vector<std::uint32_t>& after,
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

// Takes out the lists whose order matters, as pairs by their places: what stands alike in front and at the
// end, and what is between.
void list_pairer::pair_by_place(std::vector<std::uint32_t>& before,
                                std::vector<std::uint32_t>& after,
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

std::vector<pair_of> list_pairer::pair_by_names(const std::vector<std::uint32_t>& before,
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

void list_pairer::tell_namesakes_apart()
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
    side_by_side([&] { before_.contents.tell_apart(a); }, [&] { after_.contents.tell_apart(b); });
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

std::vector<list_pairer::namesake_pair>
list_pairer::pair_namesakes(const std::vector<namesakes>& all)
{
    std::vector<namesake_pair> pairs;
    for (const namesakes& one : all) {
        for (const pair_of& two : pair_by_names(one.before, one.after)) {
            pairs.push_back({two, two.before != 0 && two.after != 0 && !is_changed(two)});
        }
    }
    return pairs;
}

void list_pairer::leave_equal_out(std::vector<namesakes>& all,
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
        std::erase_if(one.before,
                      [&](std::uint32_t list) { return std::ranges::binary_search(before, list); });
        std::erase_if(one.after,
                      [&](std::uint32_t list) { return std::ranges::binary_search(after, list); });
    }
}

// Those that say the same may stand for one another.
void list_pairer::see_as_paired(const std::vector<namesake_pair>& pairs)
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

} // namespace model
