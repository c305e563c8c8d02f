// Writes a generated database of a wanted size, with the proportions of a system database or, with
// "shared" behind, one whose executables share their fixes.

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string_view>

#include "large_database.h"
#include "shared_fixes.h"
#include "support/tools/write_file.h"

int main(int count, char** arguments)
{
    constexpr std::uint64_t seed = 1;
    const bool is_shared = count == 4 && std::string_view(arguments[3]) == "shared";
    if (count != 3 && !is_shared) {
        std::fputs("usage: make_large_database <bytes> <output file> [shared]\n", stderr);
        return 1;
    }
    try {
        const std::uint64_t size = std::strtoull(arguments[1], nullptr, 0);
        const auto image = is_shared ? test_support::database_of_shared_fixes(size)
                                     : test_support::large_database(size, seed);
        return test_support::write_file(arguments[2], image) ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "make_large_database: %s\n", error.what());
        return 1;
    }
}
