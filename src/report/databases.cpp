#include "report/reports.h"

namespace report {

// The databases that the run found, a path each.
bool list_databases(const job& work)
{
    for (const std::string& path : work.targets->files) {
        const form::cell shown{"path", path};
        if (!work.form.row("target", {&shown, 1})) {
            return true;
        }
    }
    work.form.end_section();
    return !work.targets->files.empty();
}

} // namespace report
