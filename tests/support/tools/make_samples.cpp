// Makes the example databases of their text: make_samples <folder>
// The folder holds sample.txt and changed.txt; sample.sdb, sample-compressed.sdb and changed.sdb are written
// beside them.

#include <cstdio>
#include <exception>
#include <fstream>
#include <iterator>
#include <string>

#include "support/database_text.h"
#include "support/tools/write_file.h"

int main(int count, char** arguments)
{
    using namespace test_support;
    if (count != 2) {
        std::fputs("usage: make_samples <folder>\n", stderr);
        return 1;
    }
    try {
        const std::string folder = arguments[1];
        const auto image_of = [&](const char* name) {
            std::ifstream text(folder + name, std::ios::binary);
            return database_from_text({std::istreambuf_iterator<char>(text), {}});
        };
        const bytes image = image_of("/sample.txt");
        return write_file(folder + "/sample.sdb", image) &&
                       write_file(folder + "/sample-compressed.sdb", compress(image)) &&
                       write_file(folder + "/changed.sdb", image_of("/changed.txt"))
                   ? 0
                   : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "make_samples: %s\n", error.what());
        return 1;
    }
}
