#pragma once

#include <memory>
#include <string>

#include "io/byte_source.h"
#include "io/notice.h"
#include "model/pe_properties.h"

namespace report {

enum class program_state { read, no_program, unreadable };

// Gathers the properties of the program at `path`. Why there are none is told in `reason`; that the
// file changed while it was read is said at once. What it was read from goes to `source`.
program_state read_program(model::pe_list& properties, std::unique_ptr<io::byte_source>& source,
                           const std::string& path, io::notices& notices, std::string& reason);

} // namespace report
