#pragma once

#include <string>
#include <string_view>

namespace front {

// The build takes the number of the release from this line.
constexpr std::string_view version = "0.45";

// What every run header and the answer to -version begin with.
std::string version_line();

// The answer to -version: the line, how the program was built, and the libraries within it.
std::string version_text();

} // namespace front
