#include "model/identifiers.h"

#include <array>
#include <cstddef>
#include <string_view>

#include "report/reports.h"

namespace report {

namespace {

constexpr std::string_view headings[] = {"Exe ID's ", "App ID's ", "Fix ID's ", "Other ID's "};
constexpr std::string_view subjects[] = {"exe", "app", "fix", "other"};

} // namespace

// The identifiers of a database in tables by what they name, each row with the name of the record
// around it. A table without rows is left out.
bool list_identifiers(const job& work)
{
    const model::identifier_list list = model::gather_identifiers(*work.database, *work.search);
    const model::identifier_tables& tables = list.tables;
    if (!list.names_are_exact) {
        work.notices.fail(
            "%s: not all names are exact, as its lists hold one another again and again\n",
            work.path.c_str());
    }
    bool found = false;
    for (std::size_t table = 0; table < tables.size(); ++table) {
        if (tables[table].empty()) {
            continue;
        }
        if (!work.form.takes_more(work.database->offset_at(tables[table].front().guid->ordinal))) {
            return found;
        }
        found = true;
        work.form.heading(std::string(headings[table]) + "[" + work.path + "]");
        for (const model::identifier& one : tables[table]) {
            // No tag stands at 0, so that nothing is shown there.
            const form::stored_value name{one.name_offset.value_or(0)};
            if (!work.form.takes_more(work.database->offset_at(one.guid->ordinal))) {
                return found;
            }
            const std::array<form::cell, 5> cells{
                {{"names", std::string(subjects[table]), true},
                 {"id", one.guid->text()},
                 {"tag", form::tag_word{one.tag}},
                 {"offset", form::hex_number{work.database->offset_at(one.guid->ordinal)}, true},
                 {"name", name}}};
            work.form.row("identifier", cells);
        }
        work.form.end_section();
    }
    return found;
}

} // namespace report
