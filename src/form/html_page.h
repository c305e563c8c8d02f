#pragma once

#include <string_view>

#include "form/facts.h"
#include "request/cmd_params.h"
#include "uni/text_buffer.h"

// What stands around all that a page tells. Its policy lets in nothing but its own style and script, by
// their digests: where the system computes none, neither works, and the page is still whole.
namespace form {

inline constexpr std::string_view many_records_words =
    "<p class=\"bad\">So many records take a browser long. The same report with -json is lines for "
    "programs, and serves better.</p>\n";

// Writes the page up to its first section: what is known of the run, and the search.
void write_html_head(uni::text_buffer& out, const run_facts& run, const request::cmd_params& style);

// Ends the last section, and writes the script behind it.
void write_html_script(uni::text_buffer& out);

} // namespace form
