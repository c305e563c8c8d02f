// Writes the example databases: make_samples <folder>

#include <cstdio>
#include <exception>
#include <string>

#include "support/sample_database.h"
#include "support/tools/write_file.h"

namespace {

bool write_samples(const std::string& folder)
{
    using namespace test_support;
    const bytes image = sample_database();
    return write_file(folder + "/sample.sdb", image) &&
           write_file(folder + "/sample-compressed.sdb", compress(image));
}

} // namespace

int main(int count, char** arguments)
{
    if (count != 2) {
        std::fputs("usage: make_samples <folder>\n", stderr);
        return 1;
    }
    try {
        return write_samples(arguments[1]) ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "make_samples: %s\n", error.what());
        return 1;
    }
}
