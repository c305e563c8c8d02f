#include <array>

#include "report/reports.h"
#include "sdb/tags.h"

namespace report {

// The strings of a database, one a row.
bool list_string_table(const job& work)
{
    const sdb::sdb_database& database = *work.database;
    bool found = false;
    std::array<form::cell, 3> cells{{{.name = "offset", .is_named_only = true},
                                     {.name = "reference", .is_named_only = true},
                                     {"text"}}};
    for (const sdb::tag_ordinal ordinal : database.ordinals_by_tag(sdb::tag::stringtable_item)) {
        const sdb::sdb_tag_item item = database.item_at(ordinal);
        if (std::uint64_t{item.offset} + item.size < database.image().size()) {
            if (!work.form.takes_more(item.offset)) {
                return true;
            }
            cells[0].shown = form::hex_number{item.offset};
            cells[1].shown =
                item.offset > database.string_table_offset()
                    ? form::value(form::hex_number{item.offset - database.string_table_offset()})
                    : form::value();
            cells[2].shown = form::stored_value{item.offset};
            found = true;
            work.form.row("string", cells);
        }
    }
    work.form.end_section();
    return found;
}

} // namespace report
