// Makes the example databases of their text: make_samples <folder>
// The folder holds sample.txt; sample.sdb and sample-compressed.sdb are written beside it.

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
        std::ifstream text(folder + "/sample.txt", std::ios::binary);
        const bytes image = database_from_text({std::istreambuf_iterator<char>(text), {}});
        return write_file(folder + "/sample.sdb", image) &&
                       write_file(folder + "/sample-compressed.sdb", compress(image))
                   ? 0
                   : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "make_samples: %s\n", error.what());
        return 1;
    }
}
