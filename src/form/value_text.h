#pragma once

#include <string>

#include "form/value.h"
#include "request/cmd_params.h"
#include "sdb/database.h"
#include "uni/text_buffer.h"

namespace form {

// A moment as the run prints it; both texts empty for none.
struct moment_text {
    moment_text(const moment& shown, const request::cmd_params& style);
    std::string joined() const { return date + " " + time; }

    std::string date;
    std::string time;
};

// Whether it is a text of many kilobytes.
bool is_long(const value& shown, const sdb::sdb_database* database);

// Writes a value as plain text, with the marks of its text. `database` is the one in which a stored value stands.
void write_value(uni::text_buffer& out, const value& shown, const request::cmd_params& style,
                 const sdb::sdb_database* database);
std::string value_text(const value& shown, const request::cmd_params& style,
                       const sdb::sdb_database* database = nullptr);

} // namespace form
