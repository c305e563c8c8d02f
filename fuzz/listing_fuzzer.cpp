// Loads arbitrary bytes as a database and makes one report of it. The first byte, a version number
// that no report but the statistics looks at, selects which, so that any database is a seed.

#include <cstddef>
#include <cstdint>
#include <iterator>

#include "report/listings.h"
#include "report/statistics.h"
#include "sdb/database.h"
#include "sdb/finders.h"
#include "sdb/tags.h"

namespace {

// Longer inputs find nothing that shorter ones do not.
constexpr std::size_t longest_input = 65'536;

io::null_out_stream& nowhere()
{
    static io::null_out_stream out;
    return out;
}

void list_everything(const sdb::sdb_database& database, front::sdb_opts& options)
{
    options.list_apps = options.list_fixes = true;
    options.exes_only = options.shims_only = options.patches_only = true;
    options.list_700b = options.list_7013 = options.tag_filter_on = true;
    options.tag_filter = sdb::tag::inexclude;
    report::run_database_report(nowhere(), database, options);
}

void list_plain(const sdb::sdb_database& database, front::sdb_opts& options)
{
    options.xml = options.base16 = false;
    list_everything(database, options);
}

void list_tables(const sdb::sdb_database& database, front::sdb_opts& options)
{
    options.xml = false;
    options.list_guids = options.list_stringtable = true;
    report::run_database_report(nowhere(), database, options);
}

template <bool front::cmd_params::*form>
void make_statistics(const sdb::sdb_database& database, front::sdb_opts& options)
{
    options.xml = false;
    options.*form = true;
    report::run_database_stats(database, nowhere(), options);
}

// What is searched for comes from the database itself, so that there is something to be found.
void search_texts(const sdb::sdb_database& database, front::sdb_opts& options)
{
    options.find_strings_list = {"ex", "*"};
    list_plain(database, options);
}

void search_guid(const sdb::sdb_database& database, front::sdb_opts& options)
{
    if (!database.guid_items().empty()) {
        options.find_guid_text = database.guid_items().back().text();
    }
    options.list_guids = true;
    list_plain(database, options);
}

void search_tags(const sdb::sdb_database& database, front::sdb_opts& options)
{
    if (database.tag_count() != 0) {
        options.find_tagids_list = {database.offset_at(database.tag_count() - 1), 12};
    }
    list_everything(database, options);
}

void search_patch_bytes(const sdb::sdb_database& database, front::sdb_opts& options)
{
    const std::uint8_t pattern[] = {0xeb};
    sdb::found_tags found;
    if (sdb::find_patch_bytes(database, found, pattern)) { // a failure would be worded each time
        options.patch_pattern.assign(pattern, pattern + 1);
    }
    list_everything(database, options);
}

constexpr void (*reports[])(const sdb::sdb_database&, front::sdb_opts&) = {
    list_everything,
    list_plain,
    list_tables,
    make_statistics<&front::cmd_params::section_rules>, // the plain form, which no flag selects
    make_statistics<&front::cmd_params::csv>,
    make_statistics<&front::cmd_params::csvl2t>,
    search_texts,
    search_guid,
    search_tags,
    search_patch_bytes,
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0 || size > longest_input) {
        return -1;
    }
    front::sdb_opts options;
    sdb::sdb_database database;
    if (database.load_image(io::byte_vector(data, data + size), options)) {
        reports[data[0] % std::size(reports)](database, options);
    }
    return 0;
}
