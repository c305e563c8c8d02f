#pragma once

#include <string>
#include <vector>

namespace platform {

// The program's arguments as UTF-8. One that cannot be converted is an empty text.
std::vector<std::string> program_arguments(int count, char** arguments);

} // namespace platform
