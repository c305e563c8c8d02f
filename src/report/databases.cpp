#include "report/reports.h"
#include "uni/text.h"

namespace report {

// The databases that the run found, a path each.
bool list_databases(const job& work)
{
    for (std::string path : work.targets->files) {
        uni::keep_on_one_line(path); // the registry may hold any text
        const form::value shown = std::move(path);
        if (!work.form.row({&shown, 1})) {
            return true;
        }
    }
    work.form.end_section();
    return !work.targets->files.empty();
}

} // namespace report
