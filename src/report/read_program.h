#pragma once

#include <memory>
#include <string>

#include "files/file_tree.h"
#include "io/byte_source.h"
#include "io/notice.h"
#include "model/pe_properties.h"

namespace report {

enum class program_state { read, no_program, unreadable };

// Gathers the properties of the program at `path` of the tree. Why there are none is told in `reason`; that
// the file changed while it was read is said at once. What it was read from goes to `source`.
program_state read_program(model::pe_list& properties, std::unique_ptr<io::byte_source>& source,
                           files::file_tree& tree, const std::string& path, io::notices& notices,
                           std::string& reason);

// Says of a file on a volume what puts its bytes in doubt: that its record is damaged, and, if it was
// deleted, how much of it may still be its own.
void say_doubts(const std::string& path, const io::byte_source& source, io::notices& notices);

} // namespace report
