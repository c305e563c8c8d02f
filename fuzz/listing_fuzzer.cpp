// Loads arbitrary bytes as a database and makes every listing of it, in both forms.

#include <cstddef>
#include <cstdint>

#include "report/listings.h"
#include "sdb/database.h"
#include "sdb/tags.h"

namespace {

// Longer inputs find nothing that shorter ones do not.
constexpr std::size_t longest_input = 65'536;

void list_everything(const sdb::sdb_database& database, front::sdb_opts& options)
{
    static uni::null_out_stream nowhere;
    options.list_apps = options.list_fixes = true;
    options.exes_only = options.shims_only = options.patches_only = true;
    options.list_700b = options.list_7013 = options.tag_filter_on = true;
    options.tag_filter = sdb::tag::inexclude;
    for (const bool xml : {true, false}) {
        options.xml = xml;
        options.base16 = xml;
        report::run_database_report(nowhere, database, options);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size > longest_input) {
        return -1;
    }
    front::sdb_opts options;
    sdb::sdb_database database;
    if (database.load_image(uni::byte_vector(data, data + size), options)) {
        list_everything(database, options);
    }
    return 0;
}
