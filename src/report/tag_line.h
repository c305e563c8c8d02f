#pragma once

#include "front/sdb_opts.h"
#include "report/record.h"
#include "sdb/database.h"
#include "uni/text_buffer.h"

namespace report {

// Writes one tag as one line of a plain listing, nothing unless `section_rules` is set. The fields,
// parted by `csv_separator`: depth (left out when 0), offset in 6 hexadecimal digits, tag in 4, a
// list's size in 5 or as many blanks, the tag's name in 30 columns, its type's in 10, and the value
// of what is neither a list nor a patch value. A patch value shows as one empty line for each of
// its operations, one at least.
void print_tag_line(uni::text_buffer& out, const sdb::sdb_database& database,
                    front::sdb_opts& options, const record_item& item);

// The same in the XML form: an element with the value as its one attribute, named after the type;
// for a patch value an element around those of its operations; for a list the opening tag alone.
void print_tag_element(uni::text_buffer& out, const sdb::sdb_database& database,
                       const front::sdb_opts& options, const record_item& item);

} // namespace report
