#include "report/reports.h"

#include <algorithm>

namespace report {

#define QUILT_REPORT(name, option, made_of, forms, make) bool make(const job&);
#include "report/reports.inc"
#undef QUILT_REPORT

namespace {

constexpr report_row rows[] = {
#define QUILT_REPORT(name, option, made_of, forms, make)                                           \
    {#name, option, subject::made_of, forms_taken::forms, make},
#include "report/reports.inc"
#undef QUILT_REPORT
};

} // namespace

std::span<const report_row> all_reports()
{
    return rows;
}

const report_row& report_of(std::string_view name)
{
    return *std::ranges::find(rows, name, &report_row::name);
}

} // namespace report
