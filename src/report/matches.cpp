#include "model/match.h"
#include "report/read_program.h"
#include "report/record_listing.h"
#include "report/reports.h"

namespace report {

// The records that would catch the program at options.pe_path, and on standard output a line for
// each list that catches it.
bool list_matches(const job& work)
{
    const request::sdb_opts& options = work.options;
    model::pe_list program;
    std::string reason;
    if (read_program(program, options.pe_path, work.notices, reason) != program_state::read) {
        work.notices.fail("Problem pulling PE stats from file %s: %s\n", options.pe_path.c_str(),
                          reason.c_str());
        return false;
    }
    model::match_results results;
    const auto text_of = [&](std::uint32_t offset, std::size_t longest) {
        return work.form.tag_text(offset, longest);
    };
    if (!model::match_program(results, *work.database, program, options.pe_path, text_of,
                              options.bounds)) {
        work.notices.fail("Not all nested records could be matched: %s\n", work.path.c_str());
    }
    record_listing listing(*work.database, *work.search, work.form);
    for (const auto& [record, lists] : results) {
        if (!work.form.takes_more(record)) {
            break;
        }
        for (const std::uint32_t list : lists) {
            uni::text_buffer line;
            line.literal("match tagid ");
            line.hex(list, 8);
            work.form.aside(work.console, line.view());
        }
        listing.print_record(record);
        work.console.line_end();
    }
    listing.say_what_is_missing(work);
    return !results.empty();
}

} // namespace report
