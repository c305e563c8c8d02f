#pragma once

#include <cstdint>

#include "support/sdb_builder.h"

// Generated databases with the proportions of a large system database, for benchmarks.
//
// At 16 MiB: about 20,000 executables with 60,000 matching files, 1,000 shims, some hundred
// layers, flags and patches, packages, drivers, messages and attached files beside them, about
// 100,000 distinct strings of 12 to 40 characters (some not ASCII) and about a million tags, with
// an index over the executables and one over the packages in front. Other sizes scale linearly.
//
// The structure follows from the seed alone, on every platform and with every library.
namespace test_support {

constexpr std::uint64_t smallest_large_database = 65'536;

// The plain image: at most `target_bytes`, and less by no more than a hundredth. The target is
// at least smallest_large_database and below 4 GiB; otherwise std::logic_error.
bytes large_database(std::uint64_t target_bytes, std::uint64_t seed);

} // namespace test_support
