#pragma once

#include <algorithm>
#include <optional>
#include <set>
#include <span>
#include <string>

#include "model/identifiers.h"
#include "model/record_collector.h"
#include "model/search.h"

namespace test_support {

// Holds the short way to each record's first group, and the quick test of a search for these
// offsets (ascending), against what full expansion gives. Answers the first difference in words;
// empty if there is none.
inline std::string difference_of_short_ways(const sdb::sdb_database& database,
                                            std::span<const std::uint32_t> found)
{
    constexpr std::uint64_t enough_items = 2'000'000;
    model::search nothing(database, {});
    model::record_collector whole(database);
    model::record_collector quick(database);
    const model::search_sieve sieve(database, found, request::bounds().followed_records);
    const auto is_found = [&](const model::record_item& item) {
        return std::ranges::binary_search(found, item.offset);
    };
    std::uint64_t items = 0;
    for (const sdb::tag_table::list_row& list : database.children().lists()) {
        const std::uint32_t offset = database.offset_at(list.ordinal);
        const auto differs = [&](const char* what) { return what + std::to_string(offset); };
        model::listing_budget of_whole(database);
        model::listing_budget of_quick(database);
        const bool is_record = whole.collect(nothing, of_whole, offset);
        if (quick.collect_first_group(of_quick, offset) != is_record) {
            return differs("is it a record? ");
        }
        if (!is_record) {
            continue;
        }
        const model::record_groups& groups = whole.groups();
        if (!std::ranges::equal(quick.first_group(), groups[0], {}, &model::record_item::offset,
                                &model::record_item::offset)) {
            return differs("first group ");
        }
        if (quick.has_one_group() != (groups.size() == 1)) {
            return differs("has it one group? ");
        }
        for (std::size_t group = 0; group < groups.size(); ++group) {
            if (std::ranges::any_of(groups[group], is_found) && !sieve.may_hold_hit(list.ordinal)) {
                return differs("held back from a search: ");
            }
        }
        if ((items += of_whole.items) > enough_items) {
            break;
        }
    }
    return {};
}

// Holds the names beside identifiers against those of the records, gathered whole. Answers the first
// difference in words; empty if there is none.
inline std::string difference_of_identifiers(const sdb::sdb_database& database)
{
    model::search nothing(database, {});
    const model::identifier_list list = model::gather_identifiers(database, nothing);
    if (!list.names_are_exact) {
        return {};
    }
    std::size_t count = 0;
    for (const auto& table : list.tables) {
        for (const model::identifier& one : table) {
            ++count;
            const std::uint16_t wanted =
                one.tag == sdb::tag::app_id ? sdb::tag::app_name : sdb::tag::name;
            model::record_collector whole(database);
            model::listing_budget budget(database);
            std::optional<std::uint32_t> name;
            std::uint32_t around = 0;
            if (database.find_enclosing_list(around, database.offset_at(one.guid->ordinal),
                                             false) &&
                database.tag_from(around) != sdb::tag::stringtable &&
                whole.collect(nothing, budget, around)) {
                for (const model::record_item& item : whole.groups()[0]) {
                    name = item.tag == wanted && !name ? item.offset : name;
                }
            }
            if (name != one.name_offset) {
                return "name beside " + one.guid->text();
            }
        }
    }
    std::set<std::string> different;
    for (const sdb::guid_item& guid : database.guid_items()) {
        different.insert(guid.text());
    }
    return count == different.size() ? "" : "not every identifier once";
}

} // namespace test_support
