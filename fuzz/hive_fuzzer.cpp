// Takes arbitrary bytes as a hive: opens it, asks for the installed databases, and asks with
// patterns of other shapes. Mutations seldom make a hive, so that what stands in front of the first
// cell is put in order before.

#include <cstddef>
#include <cstdint>

#include "hive/hive_query.h"
#include "model/installed_databases.h"

namespace {

// Longer inputs find nothing that shorter ones do not.
constexpr std::size_t longest_input = 65'536;
constexpr std::size_t shortest_input = 4'520;

void put_text(io::byte_vector& bytes, std::size_t offset, std::string_view text)
{
    for (const char c : text) {
        bytes[offset++] = static_cast<std::uint8_t>(c);
    }
}

void ask(const hive::hive_image& image, const hive::registry_cmd_parameters& question)
{
    model::installed_table table;
    hive::hive_query(question, image, [&table](hive::hive_value_record&& row) {
        model::fold_installed_row(table, row);
    });
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < shortest_input || size > longest_input) {
        return -1;
    }
    io::byte_vector bytes(data, data + size);
    put_text(bytes, 0, "regf");
    if ((data[0] & 1) != 0) { // else the bins are to be looked for
        put_text(bytes, 4096, "hbin");
    }
    hive::hive_bytes hive;
    hive.open(std::make_unique<io::memory_source>(std::move(bytes)));
    const hive::hive_image image(std::move(hive));
    ask(image, hive::query_installed_databases());
    ask(image, model::installed_query());
    ask(image, {.key = "Software\\?*\\?*", .level = 2, .keeps_empty_rows = true});
    ask(image, {.key = "System\\CurrentControlSet\\?*\\v", .level = 1});
    ask(image, {.key = "System\\Select\\Current"});
    return 0;
}
