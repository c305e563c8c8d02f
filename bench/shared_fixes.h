#pragma once

#include <cstdint>

#include "support/sdb_builder.h"

namespace test_support {

// A database of about that size, for benchmarks: many small executables, 6,700 for each MiB, and a few
// hundred large fixes that all of them share, so that two thirds of a listing are the same fixes again.
bytes database_of_shared_fixes(std::uint64_t target_bytes);

} // namespace test_support
