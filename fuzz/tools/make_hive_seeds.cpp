// Writes the hives from which the fuzzer starts: make_hive_seeds <folder>

#include <cstdio>
#include <exception>
#include <string>

#include "support/hive_builder.h"
#include "support/tools/write_file.h"

namespace {

using namespace test_support;

// A hive with everything that the reader treats in a way of its own, its lists of one kind.
bytes seed(list_kind list)
{
    std::vector<hive_key> databases;
    for (int i = 0; i < 3; ++i) {
        databases.push_back(
            installed_database("{" + std::to_string(i) + "}", "C:\\a.sdb", "about", 1));
    }
    if (list == list_kind::lf) { // one large value is enough
        databases[1].values.push_back({"\u00e4", 3, bytes(16'360, 7)});
    }
    databases[2].subkeys.push_back({.name = "below", .values = {dword_value("v", 1)}});
    hive_key root = software_hive(std::move(databases), list);
    root.subkeys.push_back({.name = "Select", .values = {dword_value("Current", 1)}});
    root.subkeys.push_back(
        {.name = "ControlSet001", .subkeys = {{.name = "k", .values = {dword_value("v", 1)}}}});
    root.list = list;
    return hive_builder().build(root, "");
}

} // namespace

int main(int count, char** arguments)
{
    if (count != 2) {
        std::fputs("usage: make_hive_seeds <folder>\n", stderr);
        return 1;
    }
    try {
        const std::string folder = arguments[1];
        return write_file(folder + "/lf", seed(list_kind::lf)) &&
                       write_file(folder + "/li", seed(list_kind::li)) &&
                       write_file(folder + "/ri-lh", seed(list_kind::ri_lh)) &&
                       write_file(folder + "/ri-li", seed(list_kind::ri_li))
                   ? 0
                   : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "make_hive_seeds: %s\n", error.what());
        return 1;
    }
}
