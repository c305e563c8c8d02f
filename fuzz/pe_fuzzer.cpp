// Takes arbitrary bytes apart as a PE file, names everything in it and makes both forms of the report.

#include <cstddef>
#include <cstdint>

#include "pe/pe_file.h"
#include "support/reports.h"

namespace {

// Longer inputs find nothing that shorter ones do not.
constexpr std::size_t longest_input = 65'536;

void name_everything(pe::PE_FILE_UTIL& file)
{
    for (const pe::pe_resource& resource : file.resources()) {
        file.resource_name(resource);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size > longest_input) {
        return -1;
    }
    const auto source = [&] {
        return std::make_unique<io::memory_source>(io::byte_vector(data, data + size));
    };
    pe::PE_FILE_UTIL file(source());
    model::pe_list list;
    if (model::read_pe_stats(list, source(), "a.exe") == model::pe_outcome::gathered) {
        name_everything(file);
        for (const char* const form : {"plain", "csv"}) {
            test_support::program_report(list, test_support::row_options(form));
        }
    }
    return 0;
}
