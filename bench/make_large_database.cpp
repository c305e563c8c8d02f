// Writes a generated database of a wanted size: make_large_database <bytes> <output file>

#include <cstdio>
#include <cstdlib>
#include <exception>

#include "large_database.h"
#include "support/tools/write_file.h"

int main(int count, char** arguments)
{
    constexpr std::uint64_t seed = 1;
    if (count != 3) {
        std::fputs("usage: make_large_database <bytes> <output file>\n", stderr);
        return 1;
    }
    try {
        const std::uint64_t size = std::strtoull(arguments[1], nullptr, 0);
        const auto image = test_support::large_database(size, seed);
        return test_support::write_file(arguments[2], image) ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "make_large_database: %s\n", error.what());
        return 1;
    }
}
