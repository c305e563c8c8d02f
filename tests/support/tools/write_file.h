#pragma once

#include <cstdio>
#include <string>

#include "support/sdb_builder.h"

namespace test_support {

// Writes a whole file and says so on standard output; on failure says that on the error stream and
// answers false.
inline bool write_file(const std::string& path, const bytes& data)
{
    std::FILE* file = std::fopen(path.c_str(), "wb");
    bool written = file != nullptr && std::fwrite(data.data(), 1, data.size(), file) == data.size();
    if (file != nullptr && std::fclose(file) != 0) {
        written = false;
    }
    if (!written) {
        std::fprintf(stderr, "cannot write %s\n", path.c_str());
        return false;
    }
    std::printf("%s: %zu bytes\n", path.c_str(), data.size());
    return true;
}

} // namespace test_support
