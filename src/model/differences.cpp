#include "model/differences.h"

#include <algorithm>
#include <unordered_map>
#include <utility>
#include <vector>

#include "model/compared_lists.h"
#include "model/content.h"
#include "model/index_sums.h"
#include "model/list_pairs.h"
#include "model/record_pairs.h"
#include "sdb/tags.h"

namespace model {

namespace {

namespace tag = sdb::tag;
namespace type = sdb::type;

// Lists in lists are told one in the other so far; what differs deeper is told as a whole.
constexpr std::size_t most_depth = 32;

class comparer {
public:
    comparer(const sdb::sdb_database& before, const sdb::sdb_database& after,
             difference_listener& listener, uni::thread_allowance* threads)
        : pairer_(before, after, threads), listener_(listener)
    {}

    difference_counts compare()
    {
        const index_sums::others astray_before = before_.index.beside(before_.records);
        const index_sums::others astray_after = after_.index.beside(after_.records);
        if (compares_indexes_ && astray_before.sum != astray_after.sum) {
            goes_on_ = listener_.astray(astray_before.count, astray_after.count);
        }
        std::vector<pair_of> found =
            pairer_.pair_lists(std::move(before_.records), std::move(after_.records));
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
    void count_and_tell(const pair_of& one)
    {
        if (one.before == 0 || one.after == 0) {
            ++(one.before == 0 ? counts_.added : counts_.removed);
            goes_on_ = goes_on_ && listener_.record(
                                       {one.before == 0 ? change_kind::added : change_kind::removed,
                                        one.before, one.after});
            return;
        }
        const bool is_equal = !pairer_.is_changed(one);
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

    candidates scalars_of(compared_side& one, std::uint32_t list)
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
        for (const auto& [one, list] : {std::pair<compared_side*, std::uint32_t>(&before_, before),
                                        std::pair<compared_side*, std::uint32_t>(&after_, after)}) {
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

    // NOLINTNEXTLINE(misc-no-recursion) ; no deeper than most_depth
    void compare_lists(std::uint32_t before, std::uint32_t after, std::size_t depth)
    {
        if (!goes_on_) {
            return;
        }
        compare_scalars(before, after);
        std::vector<std::uint32_t> a = lists_in(before_.database, before);
        std::vector<std::uint32_t> b = lists_in(after_.database, after);
        std::vector<pair_of> pairs = pairer_.pair_lists(std::move(a), std::move(b));
        put_in_order(pairs);
        for (const pair_of& one : pairs) {
            if (one.before == 0 || one.after == 0) {
                tell(one.before == 0 ? change_kind::added : change_kind::removed, one.before,
                     one.after);
            } else if (!pairer_.is_changed(one)) {
                continue;
            } else if (depth == most_depth) {
                tell(change_kind::changed, one.before, one.after);
            } else {
                compare_lists(one.before, one.after, depth + 1);
            }
        }
    }

    list_pairer pairer_;
    compared_side& before_ = pairer_.before();
    compared_side& after_ = pairer_.after();
    difference_listener& listener_;
    difference_counts counts_;
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
