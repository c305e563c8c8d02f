// The listings of records by their tags.

#include "report/record_listing.h"
#include "report/reports.h"
#include "sdb/tags.h"

namespace report {

bool list_applications(const job& work)
{
    const bool found = list_tags(work, application_tags(*work.database));
    if (!found && !work.form.is_cut()) {
        work.form.note("No Apps found");
    }
    return found;
}

bool list_fixes(const job& work)
{
    const bool found = list_tags(work, fix_tags(*work.database));
    if (!found && !work.form.is_cut()) {
        work.form.note("No fixes found");
    }
    return found;
}

bool list_executables(const job& work)
{
    return list_one_tag(work, sdb::tag::exe);
}

bool list_shims(const job& work)
{
    return list_one_tag(work, sdb::tag::shim);
}

bool list_patches(const job& work)
{
    return list_one_tag(work, sdb::tag::patch);
}

bool list_tag(const job& work)
{
    return list_one_tag(work, work.options.tag_filter);
}

} // namespace report
