#pragma once

#include <span>
#include <string_view>

#include "report/job.h"

namespace report {

enum class subject {
    listing,  // a database; any number of them make its report
    database, // a database; takes the place of listings
    program,
    targets, // what the run found to work on
};

enum class forms_taken { any_form, with_rows }; // or only those that carry more than records

// Answers whether there was something to tell.
using report_maker = bool (*)(const job& work);

struct report_row {
    std::string_view name;
    std::string_view option; // of a listing that is asked for by an option alone
    subject made_of;
    forms_taken forms;
    report_maker make;
};

std::span<const report_row> all_reports();

// The report of that name, which must be there.
const report_row& report_of(std::string_view name);

// Makes what the options ask for of one database: the listings, in their order, or what takes their
// place. Answers whether anything was asked for that could be acted on; if nothing was, a notice
// says so.
bool make_database_report(job& work);

} // namespace report
