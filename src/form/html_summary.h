#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "form/facts.h"
#include "form/html_facts.h"
#include "request/cmd_params.h"
#include "uni/text_buffer.h"

// What a page tells of all its subjects together, which is known at its end and shown at its top: a row of a
// table for each, and a picture of their times.
namespace form {

// What is kept of a subject until the end: a line of text for write_html_summary(). Its section within the page
// has the id `section`; one without is told once, however many lines there are. Of one that could not be read
// `failure` tells why.
void add_summary_line(uni::text_buffer& kept, const told_subject& subject,
                      const std::string& section, const request::cmd_params& style,
                      std::uint64_t records, std::string_view failure = {});

void write_html_summary(uni::text_buffer& out, const run_outcome& outcome,
                        const request::cmd_params& style);

} // namespace form
