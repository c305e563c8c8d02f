#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "model/finding.h"
#include "report/job.h"
#include "uni/text_buffer.h"

namespace report {

// What a finding is told of.
struct finding_place {
    std::string_view database; // its path
    std::string_view program;
};

// Whether the run asked for findings of that weight and family.
bool is_asked_for(const model::finding& found, const request::sdb_opts& options);
// Whether it asked for some findings only.
bool is_narrowed(const request::sdb_opts& options);

// Begins the table of findings, which may stay empty.
void begin_findings(form::writer& form);
// Tells one finding; `more` are lines that belong to it. Answers whether to go on.
bool tell_finding(const job& work, const model::finding& found, const finding_place& place,
                  const std::vector<std::string>& more = {});

// A line in which something begins, and what is told of it behind, parted as a table is.
std::string heading_line(std::string_view name, std::string_view behind);
// The same, which stands in `line` alone.
std::string_view heading_line(uni::text_buffer& line, std::string_view name,
                              std::string_view behind);
// A line of what something does, with the tag that tells it, which stands in `line` alone.
std::string_view effect_line(uni::text_buffer& line, std::string_view verb, std::string_view words,
                             std::uint32_t offset, std::size_t depth);

} // namespace report
