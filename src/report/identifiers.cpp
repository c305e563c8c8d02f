#include "report/identifiers.h"

#include <array>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>

#include "report/record.h"
#include "report/tag_text.h"
#include "sdb/tags.h"
#include "sdb/vocabulary.h"

namespace report {

namespace {

namespace tag = sdb::tag;

// The tables in the order in which they come; the last takes what no other does.
struct identifier_table {
    std::uint16_t tag;
    std::string_view heading;
};
constexpr std::array<identifier_table, 4> tables = {{
    {tag::exe_id, "Exe ID's "},
    {tag::app_id, "App ID's "},
    {tag::fix_id, "Fix ID's "},
    {0, "Other ID's "},
}};

std::size_t table_of(std::uint16_t tag)
{
    std::size_t table = 0;
    while (table + 1 < tables.size() && tables[table].tag != tag) {
        ++table;
    }
    return table;
}

// The names of the lists around identifiers. A list is expanded once, however many it holds.
class list_names {
public:
    list_names(const sdb::sdb_database& database, front::sdb_opts& options)
        : database_(database), options_(options), collector_(database)
    {}

    // What the first tag of that kind in the first group of the list's record says; empty when the
    // record is turned down, by a pending search too, or has no such tag.
    std::string value_text(std::uint16_t wanted, std::uint32_t list_offset)
    {
        const auto [found, is_new] = known_.try_emplace(list_offset);
        if (is_new) {
            read_names(found->second, list_offset);
        }
        const names& all = found->second;
        return wanted == tag::app_name ? all.app_name.value_or("") : all.name.value_or("");
    }

private:
    struct names {
        std::optional<std::string> name;
        std::optional<std::string> app_name;
    };

    void read_names(names& out, std::uint32_t list_offset)
    {
        sdb::sdb_tag_item list;
        if (!database_.read_item(list, list_offset) || sdb::tag_type(list.tag) != sdb::type::list ||
            list.tag == tag::stringtable || !collector_.collect(options_, list_offset)) {
            return;
        }
        for (const record_item& item : collector_.groups()[0]) {
            if (item.tag == tag::name && !out.name) {
                out.name = tag_text(database_, item.offset, options_, false, false);
            } else if (item.tag == tag::app_name && !out.app_name) {
                out.app_name = tag_text(database_, item.offset, options_, false, false);
            }
        }
    }

    // The first group alone is much cheaper than the record, which a search calls for.
    bool collect_first_group(std::uint32_t list_offset)
    {
        if (!is_search_pending(options_)) {
            const bool collected = collector_.collect_first_group(options_, list_offset);
            first_group_ = collector_.first_group();
            return collected;
        }
        const bool collected = collector_.collect(options_, list_offset);
        first_group_ = collected ? collector_.groups()[0] : std::span<const record_item>();
        return collected;
    }

    const sdb::sdb_database& database_;
    front::sdb_opts& options_;
    std::span<const record_item> first_group_;
    record_collector collector_;
    std::unordered_map<std::uint32_t, names> known_;
};

} // namespace

void list_identifiers(const sdb::sdb_database& database, io::output_sink& out,
                      front::sdb_opts& options)
{
    options.listed_items = 0;
    std::array<uni::text_buffer, tables.size()> rows;
    list_names names(database, options);
    const std::vector<sdb::guid_item>& guids = database.guid_items();
    for (std::size_t i = 0; i < guids.size(); ++i) {
        if (i != 0 && guids[i].shown == guids[i - 1].shown) {
            continue;
        }
        const std::uint16_t item_tag = database.tag_at(guids[i].ordinal);
        uni::text_buffer& row = rows[table_of(item_tag)];
        row.text(guids[i].text());
        row.text(options.csv_separator);
        write_tag_name(row, item_tag);
        row.text(options.csv_separator);
        std::uint32_t list = 0;
        if (database.find_enclosing_list(list, database.offset_at(guids[i].ordinal), false)) {
            row.text(names.value_text(item_tag == tag::app_id ? tag::app_name : tag::name, list));
        }
        row.line_end();
    }
    for (std::size_t table = 0; table < tables.size(); ++table) {
        if (!rows[table].view().empty()) {
            out.text(tables[table].heading);
            out.character('[');
            out.text(options.current_path);
            out.literal("]\n");
            out.text(rows[table].view());
            out.line_end();
        }
    }
}

void list_string_table(const sdb::sdb_database& database, io::output_sink& out)
{
    for (const std::uint32_t ordinal : database.ordinals_by_tag(tag::stringtable_item)) {
        const sdb::sdb_tag_item item = database.item_at(ordinal);
        if (std::uint64_t{item.offset} + item.size < database.image().size()) {
            write_stored_text(out, item.value);
            out.line_end();
        }
    }
    out.line_end();
}

} // namespace report
