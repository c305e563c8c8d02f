#pragma once

#include <optional>
#include <string>

#include "files/file_tree.h"
#include "io/byte_source.h"
#include "io/notice.h"
#include "model/pe_properties.h"

namespace report {

enum class program_state { read, no_program, unreadable };

// Gathers the properties of the program at `path` of the tree. Why there are none is told in `reason`; that the
// file changed while it was read is said at once. What its file system keeps of it goes to `kept`.
program_state read_program(model::pe_list& properties, files::file_tree& tree,
                           const std::string& path, io::notices& notices, std::string& reason,
                           std::optional<io::file_history>* kept = nullptr);

// Says of a file that was deleted how much of it may still be its own.
void say_if_deleted(const std::string& path, const io::byte_source& source, io::notices& notices);

} // namespace report
