// Writes a generated software hive: make_large_hive <bytes> <installed databases> <output file>
//
// Beside the databases it holds keys of the ordinary kind, as many as it takes to come near the size.

#include <cstdio>
#include <cstdlib>
#include <exception>

#include "support/hive_builder.h"
#include "support/tools/write_file.h"

namespace {

using test_support::bytes;
using test_support::hive_key;

constexpr std::uint64_t ordinary_size = 512; // of one of the keys below, with its values
constexpr std::uint64_t keys_together = 500;

hive_key ordinary_key(std::uint64_t number)
{
    const std::string text = std::to_string(number);
    hive_key key{.name = "Component" + text};
    key.values = {test_support::text_value("Path", "C:\\Program Files\\Vendor\\Part " + text),
                  test_support::dword_value("Version", static_cast<std::uint32_t>(number)),
                  test_support::text_value("Name", "Component number " + text),
                  {"State", 3, bytes(96, static_cast<std::uint8_t>(number))}};
    return key;
}

bytes make_hive(std::uint64_t size, std::uint64_t databases)
{
    std::vector<hive_key> installed;
    for (std::uint64_t i = 0; i < databases; ++i) {
        char name[40];
        std::snprintf(name, sizeof name, "{%08x-1234-4321-abcd-0123456789ab}",
                      static_cast<unsigned>(i));
        installed.push_back(test_support::installed_database(
            name, "C:\\Windows\\AppPatch\\Custom\\" + std::string(name) + ".sdb",
            "Database number " + std::to_string(i), 132'000'000'000'000'000 + i * 10'000'000));
    }
    hive_key root = test_support::software_hive(std::move(installed));
    hive_key vendor{.name = "Vendor"};
    const std::uint64_t groups = size / ordinary_size / keys_together;
    for (std::uint64_t group = 0; group < groups; ++group) {
        hive_key product{.name = "Product" + std::to_string(group)};
        for (std::uint64_t i = 0; i < keys_together; ++i) {
            product.subkeys.push_back(ordinary_key(group * keys_together + i));
        }
        vendor.subkeys.push_back(std::move(product));
    }
    root.subkeys.push_back(std::move(vendor));
    return test_support::hive_builder().build(root);
}

} // namespace

int main(int count, char** arguments)
{
    if (count != 4) {
        std::fputs("usage: make_large_hive <bytes> <installed databases> <output file>\n", stderr);
        return 1;
    }
    try {
        const bytes image = make_hive(std::strtoull(arguments[1], nullptr, 0),
                                      std::strtoull(arguments[2], nullptr, 0));
        return test_support::write_file(arguments[3], image) ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "make_large_hive: %s\n", error.what());
        return 1;
    }
}
