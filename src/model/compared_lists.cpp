#include "model/compared_lists.h"

#include <algorithm>
#include <iterator>

#include "model/record_facts.h"
#include "sdb/tags.h"

namespace model {

namespace tag = sdb::tag;

around_records around_records_of(const sdb::sdb_database& database)
{
    around_records found;
    const sdb::tag_table& relation = database.children();
    const sdb::tag_ordinal behind_all(database.tag_count());
    for (sdb::tag_ordinal root; root < behind_all; root = relation.end(root)) {
        if (relation.list(root) == nullptr || database.tag_at(root) != tag::database) {
            continue;
        }
        found.databases.push_back(database.offset_at(root));
        relation.for_each_list_in(root, [&](const sdb::tag_table::list_row& row) {
            if (row.tag == tag::library) {
                found.libraries.push_back(database.offset_at(row.ordinal));
            }
        });
    }
    return found;
}

record_places::record_places(const sdb::sdb_database& database)
{
    const around_records found = around_records_of(database);
    const auto stretches = [&](const std::vector<std::uint32_t>& lists) {
        std::vector<stretch> made;
        for (const std::uint32_t list : lists) {
            const sdb::tag_ordinal end = database.children().end(*database.ordinal_of(list));
            constexpr std::uint64_t behind_all = std::uint64_t{1} << 32;
            const bool is_last = end.number() == database.tag_count();
            made.push_back({list, is_last ? behind_all : database.offset_at(end)});
        }
        return made;
    };
    databases_ = stretches(found.databases);
    libraries_ = stretches(found.libraries);
}

record_place record_places::of(std::uint32_t record) const
{
    record_place place;
    if (find(libraries_, record, place.before_last)) {
        place.around = tag::library;
    } else if (find(databases_, record, place.before_last)) {
        place.around = tag::database;
    }
    return place;
}

bool record_places::find(const std::vector<stretch>& lists, std::uint32_t record,
                         std::uint32_t& before_last)
{
    const auto behind = std::ranges::lower_bound(lists, record, {}, &stretch::list);
    if (behind == lists.begin() || record >= std::prev(behind)->end) {
        return false;
    }
    before_last = static_cast<std::uint32_t>(lists.end() - behind);
    return true;
}

std::vector<std::uint32_t> records_of(const sdb::sdb_database& database)
{
    std::vector<std::uint32_t> records;
    const sdb::tag_table& relation = database.children();
    const std::uint32_t strings = database.string_table_offset();
    const sdb::tag_ordinal behind_all(database.tag_count());
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
        relation.for_each_list_in(root, [&](const sdb::tag_table::list_row& row) {
            if (row.tag != tag::library) {
                records.push_back(database.offset_at(row.ordinal));
                return;
            }
            relation.for_each_list_in(row.ordinal, [&](const sdb::tag_table::list_row& inner) {
                records.push_back(database.offset_at(inner.ordinal));
            });
        });
    }
    return records;
}

std::vector<std::uint32_t> lists_in(const sdb::sdb_database& database, std::uint32_t list)
{
    std::vector<std::uint32_t> found;
    database.for_each_child(list, [&](std::uint32_t offset, std::uint16_t own) {
        if (sdb::tag_type(own) == sdb::type::list) {
            found.push_back(offset);
        }
    });
    return found;
}

std::vector<std::uint32_t> taken_in_order(const sdb::sdb_database& database,
                                          std::vector<std::uint32_t>& lists)
{
    std::vector<std::uint32_t> taken;
    const auto is_one = [&](std::uint32_t list) {
        return is_taken_in_order(database.tag_from(list));
    };
    std::ranges::copy_if(lists, std::back_inserter(taken), is_one);
    std::erase_if(lists, is_one);
    return taken;
}

} // namespace model
