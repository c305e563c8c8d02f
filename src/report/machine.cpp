#include <algorithm>
#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "model/explain_context.h"
#include "report/finding_rows.h"
#include "report/reports.h"
#include "report/value_words.h"

namespace report {

namespace {

// What is told of one database stands together, the database with the heaviest finding first, and those
// that are alike as they were found, wherever they lie.
void put_heaviest_first(std::vector<model::placed_finding>& all)
{
    struct rank {
        std::size_t place;
        model::weight heaviest;
    };
    std::map<std::string, rank> ranks;
    for (const model::placed_finding& one : all) {
        rank& of_one =
            ranks.try_emplace(one.database, rank{ranks.size(), one.found.weighs}).first->second;
        of_one.heaviest = std::max(of_one.heaviest, one.found.weighs);
    }
    std::ranges::stable_sort(all, [&](const auto& a, const auto& b) {
        const rank& of_a = ranks.at(a.database);
        const rank& of_b = ranks.at(b.database);
        return of_a.heaviest != of_b.heaviest ? of_a.heaviest > of_b.heaviest
               : of_a.place != of_b.place     ? of_a.place < of_b.place
                                              : a.found.weighs > b.found.weighs;
    });
}

} // namespace

// What the registry says of compatibility and does not fit together, and what tells one database from the
// others.
bool explain_machine(const job& work)
{
    begin_findings(work.form);
    const model::explain_context& context = *work.explained;
    std::vector<model::placed_finding> all;
    const std::size_t volumes = work.targets->installed.size();
    const std::size_t registries =
        work.targets->is_one_registry ? std::min<std::size_t>(volumes, 1) : volumes;
    for (std::size_t i = 0; i < registries; ++i) {
        model::registry_lists lists = work.targets->lists[i];
        lists.told = context.told();
        for (model::placed_finding& one :
             model::judge_registry(context.known, work.targets->installed[i], lists,
                                   i < work.are_there.size() ? work.are_there[i] : nullptr)) {
            all.push_back(std::move(one));
        }
    }
    for (model::placed_finding& one : model::judge_compilers(context.known, context.seen())) {
        all.push_back(std::move(one));
    }
    std::erase_if(all, [&](const model::placed_finding& one) {
        return !is_asked_for(one.found, work.options);
    });
    if (all.empty()) {
        if (work.options.explains_hives_alone() && !work.notices.failed()) {
            constexpr std::string_view of_narrowed = "nothing was found that was asked for";
            constexpr std::string_view of_all =
                "the hives name no custom database, and nothing unusual for programs and drivers";
            const std::string_view words = is_narrowed(work.options) ? of_narrowed : of_all;
            work.form.line(words);
            work.form.remark(words);
        }
        return false;
    }
    put_heaviest_first(all);
    work.form.line({});
    work.form.title("the registry and the databases together:");
    std::string_view last;
    for (const model::placed_finding& one : all) {
        if (one.database.empty() && !last.empty()) {
            work.form.line(heading_line("beside the databases", {}));
        } else if (one.database != last) {
            work.form.line(heading_line(shortened(one.database), {}));
        }
        last = one.database;
        if (!tell_finding(work, one.found, {one.database, one.program})) {
            break;
        }
    }
    work.form.end_rows();
    return true;
}

} // namespace report
