#include <utility>

#include "report/record_listing.h"
#include "report/reports.h"
#include "report/told_database.h"
#include "sdb/finders.h"

namespace report {

namespace {

void say_no_matches(const job& work)
{
    work.notices.say("no matches found: %s\n", work.path.c_str());
}

// What is looked for in this database. A pattern of -patchbytes becomes the tags of the patches that
// hold it; false if none does.
bool settle_search(request::search_request& wanted, const job& work)
{
    wanted = work.options.search;
    return work.options.patch_pattern.empty() ||
           sdb::find_patch_bytes(*work.database, wanted.tagids, work.options.patch_pattern);
}

// A search for patch bytes lists applications, unless it is to list executables.
bool is_wanted(const report_row& row, const request::sdb_opts& options)
{
    const bool adds_applications = !options.patch_pattern.empty() && !options.wants("exes");
    return row.made_of == subject::listing &&
           (options.wants(row.name) || (row.name == "apps" && adds_applications));
}

bool make_listings(const job& work)
{
    bool asked = !work.options.patch_pattern.empty();
    for (const report_row& row : all_reports()) {
        if (is_wanted(row, work.options)) {
            row.make(work);
            asked = true;
        }
    }
    if (!asked && work.search->is_asked_for()) {
        // A search that no listing was asked for lists the applications that hold what was found.
        asked = true;
        if (!list_tags(work, application_tags(*work.database)) && !work.form.is_cut()) {
            say_no_matches(work);
        }
    }
    return asked;
}

// Tells where a report ends that has no end of its own.
void say_cut(const job& work)
{
    if (!work.form.is_cut()) {
        return;
    }
    if (work.form.is_too_long()) {
        const auto most = work.options.bounds.most_text(work.database->image().size());
        work.notices.fail("%s: its report ends at tag 0x%08x, as it has %llu bytes of text\n",
                          work.path.c_str(), work.form.cut_at(),
                          static_cast<unsigned long long>(most));
    } else {
        work.notices.fail(
            "%s: its report ends at tag 0x%08x, as its lists hold one another again and "
            "again\n",
            work.path.c_str(), work.form.cut_at());
    }
}

// The explanation, the match, or else the listings, if there is something to list.
bool make_reports(job& work)
{
    if (work.options.explain && !work.options.match_mode) {
        return report_of("explain").make(work);
    }
    request::search_request wanted;
    const bool found = work.options.match_mode || settle_search(wanted, work);
    model::search search(*work.database, work.options.match_mode ? work.options.search : wanted,
                         work.options.bounds, work.known);
    work.search = &search;
    if (found && !work.options.match_mode) {
        return make_listings(work);
    }
    if (!found || (!report_of("match").make(work) && !work.form.is_cut())) {
        say_no_matches(work);
    }
    return true;
}

} // namespace

bool make_database_report(job& work)
{
    const told_database about(work);
    work.form.begin({work.database, work.path, &about});
    bool asked = false;
    try {
        asked = make_reports(work);
    } catch (...) {
        work.form.end();
        throw;
    }
    say_cut(work);
    if (!asked) {
        work.form.remark("no report of it was asked for");
    }
    work.form.end();
    if (!asked) {
        work.notices.say("Check the options you passed in [either erroneous or a mismatch]...\n");
    }
    return asked;
}

} // namespace report
