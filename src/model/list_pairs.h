// Brings together the lists of two databases that are the same, wherever they stand.
#pragma once

#include <cstdint>
#include <future>
#include <unordered_map>
#include <vector>

#include "model/compared_lists.h"
#include "model/content.h"
#include "model/index_sums.h"
#include "model/record_pairs.h"
#include "sdb/database.h"
#include "uni/thread_allowance.h"

namespace model {

// One of two databases with what its lists say.
struct compared_side {
    compared_side(const sdb::sdb_database& of, const content_key& key)
        : database(of), contents(of, key, references_seen::by_name), index(of, key),
          records(records_of(of)), places(of)
    {}

    const sdb::sdb_database& database;
    record_contents contents;
    index_sums index;
    std::vector<std::uint32_t> records; // ascending
    record_places places;
};

// Two databases, side by side. Lists of one kind and name, to which references may lead, are told apart as
// they are paired: a reference says the same where it leads to two of a pair, or to two that say the same.
class list_pairer {
public:
    // Of `threads` one that is to spare helps.
    list_pairer(const sdb::sdb_database& before, const sdb::sdb_database& after,
                uni::thread_allowance* threads);

    compared_side& before() noexcept { return before_; }
    compared_side& after() noexcept { return after_; }

    // Pairs lists, which are ascending offsets: by their identifiers, then by name and tests, then by name. What
    // has no counterpart is in a pair with 0.
    std::vector<pair_of> pair_lists(std::vector<std::uint32_t> before,
                                    std::vector<std::uint32_t> after);
    // Whether the two lists say other things.
    bool is_changed(const pair_of& one) const
    {
        return before_.contents.of_list(one.before) != after_.contents.of_list(one.after);
    }

private:
    list_pairer(const sdb::sdb_database& before, const sdb::sdb_database& after,
                uni::thread_allowance* threads, const content_key& key);

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

    std::vector<pair_of> pair_by_names(const std::vector<std::uint32_t>& before,
                                       const std::vector<std::uint32_t>& after);
    void pair_by_place(std::vector<std::uint32_t>& before, std::vector<std::uint32_t>& after,
                       std::vector<pair_of>& pairs) const;
    void take_partners(std::vector<std::uint32_t>& before, std::vector<std::uint32_t>& after,
                       std::vector<pair_of>& pairs) const;
    void tell_namesakes_apart();
    std::vector<namesake_pair> pair_namesakes(const std::vector<namesakes>& all);
    static void leave_equal_out(std::vector<namesakes>& all,
                                const std::vector<namesake_pair>& pairs);
    void see_as_paired(const std::vector<namesake_pair>& pairs);
    // What is done for either database, by two threads where one is to spare.
    void side_by_side(auto&& of_before, auto&& of_after) const
    {
        auto other = std::async(helper_.policy(), of_after);
        of_before();
        other.get();
    }

    uni::possible_helper helper_;
    const content_key key_;
    std::future<compared_side> look_at_after_;
    compared_side before_;
    compared_side after_;
    std::unordered_map<std::uint32_t, std::uint32_t>
        partners_; // of namesakes that differ, in the other database
};

} // namespace model
