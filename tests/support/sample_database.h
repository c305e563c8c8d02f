#pragma once

#include <fstream>
#include <iterator>
#include <string>

#include "support/sdb_builder.h"

namespace test_support {

// A file of examples/, for quilt_tests alone. It holds well over 200 tags of all kinds.
inline bytes example(const std::string& name)
{
    std::ifstream file(QUILT_SOURCE_DIR "/examples/" + name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline bytes sample_database()
{
    return example("sample.sdb");
}

} // namespace test_support
