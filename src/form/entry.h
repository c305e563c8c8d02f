#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "form/facts.h"
#include "form/timeline.h"
#include "form/value.h"

// What a report says of one subject, a database or a program, in the shapes that forms have room
// for: each form shows the one that is its own.
namespace form {

// A labelled value on a line of its own.
struct labelled_line {
    std::string label;
    value shown;
    std::optional<moment> remark = {}; // stands behind the value, in brackets
    bool sets_width = true;            // counts for the widest value
};

// What a column of a delimited row shows of its value.
enum class column_part { whole, date, time };

// A column with its head and one value. Where blanks pad the fields, both stand in its width.
struct column {
    std::string_view head;
    std::size_t width = 0;
    value shown = {};
    column_part part = column_part::whole;
    bool leads_head = false;        // a blank stands in front, unless separators have none
    bool leads_value = false;       // the same for the value, if it is not blank
    bool is_padded = true;          // otherwise the head alone is
    bool is_blank_if_empty = false; // a moment that has no date is one blank
};

// Something that is known to have happened to a file, in FILETIME ticks; 0 for never.
struct file_event {
    std::uint64_t time = 0;
    std::string_view meaning; // one word
};

// A file as a body file tells of it. Times are FILETIME ticks, 0 for what is not known.
struct file_facts {
    std::string path;
    std::string digest_md5; // empty if it cannot be computed
    std::uint64_t size = 0;
    std::uint64_t access = 0;
    std::uint64_t write = 0;
    std::uint64_t creation = 0;
    std::vector<file_event> events;
};

struct labelled_lines {
    std::vector<labelled_line> lines = {};
    std::size_t label_width = 0;
    bool pads_values = false; // to the widest, or `narrowest_value`
    std::size_t narrowest_value = 0;
};

// Each shape is made when a form asks for it; told by names it is for programs.
class entry : public told_facts {
public:
    virtual labelled_lines lines() const = 0;
    virtual std::vector<column> columns() const = 0;
    // Nothing for a subject that has no timestamps.
    virtual std::optional<timeline_item> events() const { return std::nullopt; }
    // Nothing for a subject that is no database.
    virtual std::optional<file_facts> file() const { return std::nullopt; }
};

} // namespace form
