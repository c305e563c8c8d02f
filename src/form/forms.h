#pragma once

#include <memory>
#include <span>
#include <string_view>

#include "form/writer.h"

namespace form {

// What becomes of the blanks around separators when a form is chosen.
enum class blanks { as_they_are, none, none_unless_paired };

// What a form can carry: or the records of one database at a time, or what happened to a file and when, or
// anything, but as one page behind which nothing can stand.
enum class contents { any, records_of_one, events, one_page };

// When the run header stands in front: or not before the facts of database files, or never, since the form
// has its own way to begin a stream, and its lines end with LF on every system.
enum class banner { always, never, not_on_files, in_the_form };

using writer_maker = std::unique_ptr<writer> (*)(uni::text_buffer& out,
                                                 const request::cmd_params& style,
                                                 stream_state state);

struct form_row {
    std::string_view name;
    std::string_view option; // empty for the one that needs none
    writer_maker make;
    std::string_view separator; // of fields, until the user names another
    blanks separator_blanks;
    contents carries;
    banner header;
};

// All forms; of several that are asked for the last wins.
std::span<const form_row> all_forms();

// The form of that name, which must be there.
const form_row& form_of(std::string_view name);

} // namespace form
