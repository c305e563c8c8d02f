// Writes a Portable Executable of a wanted size: make_program <bytes> <output file>
// Behind its headers and resources stand bytes without a pattern.

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <random>

#include "support/pe_builder.h"
#include "support/tools/write_file.h"

int main(int count, char** arguments)
{
    if (count != 3) {
        std::fputs("usage: make_program <bytes> <output file>\n", stderr);
        return 1;
    }
    try {
        test_support::bytes image = test_support::sample_program(true);
        const std::uint64_t size = std::strtoull(arguments[1], nullptr, 0);
        image.reserve(size);
        std::mt19937 random(1);
        while (image.size() < size) {
            image.push_back(static_cast<std::uint8_t>(random()));
        }
        return test_support::write_file(arguments[2], image) ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "make_program: %s\n", error.what());
        return 1;
    }
}
