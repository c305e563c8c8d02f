#include "model/identifiers.h"

#include <span>
#include <unordered_map>

#include "model/record_collector.h"
#include "sdb/tags.h"
#include "sdb/vocabulary.h"

namespace model {

namespace {

namespace tag = sdb::tag;

identifier_kind kind_of(std::uint16_t item_tag)
{
    switch (item_tag) {
    case tag::exe_id:
        return identifier_kind::exe;
    case tag::app_id:
        return identifier_kind::app;
    case tag::fix_id:
        return identifier_kind::fix;
    default:
        return identifier_kind::other;
    }
}

// Where the names of the lists around identifiers stand.
class list_names {
public:
    list_names(const sdb::sdb_database& database, search& wanted)
        : database_(database), wanted_(wanted), budget_(database, wanted.bounds()),
          collector_(database)
    {}

    // The first tag of that kind in the first group of the list's record.
    std::optional<std::uint32_t> name_offset(std::uint16_t name_tag, std::uint32_t list_offset)
    {
        const auto [found, is_new] = known_.try_emplace(list_offset);
        if (is_new) {
            found->second = read_names(list_offset);
        }
        return name_tag == tag::app_name ? found->second.app_name : found->second.name;
    }

    bool are_exact() const noexcept { return is_exact_ && collector_.groups_are_exact(); }

private:
    struct names {
        std::optional<std::uint32_t> name;
        std::optional<std::uint32_t> app_name;
    };

    names read_names(std::uint32_t list_offset)
    {
        names found;
        const std::optional<sdb::tag_ordinal> list = database_.ordinal_of(list_offset);
        if (!list || sdb::tag_type(database_.tag_at(*list)) != sdb::type::list ||
            database_.tag_at(*list) == tag::stringtable) {
            return found;
        }
        for (const record_item& item : first_group(list_offset)) {
            if (item.tag == tag::name && !found.name) {
                found.name = item.offset;
            } else if (item.tag == tag::app_name && !found.app_name) {
                found.app_name = item.offset;
            }
        }
        return found;
    }

    // Empty for a record that is turned down. The first group alone is much cheaper than the whole
    // record, which a search calls for.
    std::span<const record_item> first_group(std::uint32_t list_offset)
    {
        if (wanted_.is_asked_for()) {
            if (budget_.is_exhausted()) {
                is_exact_ = false;
                return no_items;
            }
            return collector_.collect(wanted_, budget_, list_offset) ? collector_.groups()[0]
                                                                     : no_items;
        }
        return collector_.collect_first_group(budget_, list_offset) ? collector_.first_group()
                                                                    : no_items;
    }

    static constexpr std::span<const record_item> no_items{};
    const sdb::sdb_database& database_;
    search& wanted_;
    listing_budget budget_;
    record_collector collector_;
    bool is_exact_ = true;
    std::unordered_map<std::uint32_t, names> known_;
};

} // namespace

identifier_list gather_identifiers(const sdb::sdb_database& database, search& wanted)
{
    identifier_list made;
    list_names names(database, wanted);
    const sdb::guid_item* last = nullptr;
    for (const sdb::guid_item& guid : database.guid_items()) {
        if (last != nullptr && last->shown == guid.shown) {
            continue;
        }
        last = &guid;
        identifier found{&guid, database.tag_at(guid.ordinal), {}};
        std::uint32_t list = 0;
        if (database.find_enclosing_list(list, database.offset_at(guid.ordinal), false)) {
            found.name_offset =
                names.name_offset(found.tag == tag::app_id ? tag::app_name : tag::name, list);
        }
        made.tables[static_cast<std::size_t>(kind_of(found.tag))].push_back(found);
    }
    made.names_are_exact = names.are_exact();
    return made;
}

} // namespace model
