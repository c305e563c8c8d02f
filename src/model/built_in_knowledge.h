#pragma once

#include <span>
#include <string_view>

namespace model {

// The tables of the folder knowledge/, as they stand there.
std::span<const std::string_view> built_in_knowledge();

} // namespace model
