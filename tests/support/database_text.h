#pragma once

#include <string>

#include "support/sdb_builder.h"

namespace test_support {

// The plain image of a database written down as text, a tag a line; examples/sample.txt tells how at
// its head. A line that cannot be read throws std::logic_error and is told.
bytes database_from_text(const std::string& text);

} // namespace test_support
