// Loads arbitrary bytes as a database and makes one report of it, which readers of its form must take,
// or holds the quick ways to its records against the long one. The sum of all bytes selects which, so
// that any database is a seed and each report has its share.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <numeric>
#include <string>
#include <vector>

#include "io/output_sink.h"
#include "readers.h"
#include "sdb/tags.h"
#include "support/record_checks.h"
#include "support/reports.h"

namespace {

// Longer inputs find nothing that shorter ones do not.
constexpr std::size_t longest_input = 65'536;

void report(const sdb::sdb_database& database, const request::sdb_opts& options)
{
    const auto write_to = [&](auto&& reader) {
        test_support::write_report(reader, database, options);
    };
    if (options.form == "xml") {
        write_to(fuzz::xml_reader());
    } else if (options.stats && (options.form == "csv" || options.form == "csvl2t")) {
        write_to(fuzz::csv_reader());
    } else {
        write_to(io::null_out_stream());
    }
}

void list_everything(const sdb::sdb_database& database, request::sdb_opts options)
{
    options.listings = {"apps", "fixes", "exes", "shims", "patches", "tag"};
    options.tag_filter = sdb::tag::inexclude;
    report(database, options);
}

void list_plain(const sdb::sdb_database& database, request::sdb_opts options)
{
    options.form = "plain";
    options.base16 = false;
    list_everything(database, options);
}

void list_xml(const sdb::sdb_database& database, request::sdb_opts options)
{
    list_everything(database, options);
}

void list_tables(const sdb::sdb_database& database, request::sdb_opts options)
{
    options.form = "plain";
    options.listings = {"guids", "stringtable"};
    report(database, options);
}

template <const char* form>
void make_statistics(const sdb::sdb_database& database, request::sdb_opts)
{
    request::sdb_opts options = test_support::row_options(form);
    options.stats = true;
    report(database, options);
}
constexpr char plain[] = "plain";
constexpr char csv[] = "csv";
constexpr char csvl2t[] = "csvl2t";

// What is searched for comes from the database itself, so that there is something to be found.
void search_texts(const sdb::sdb_database& database, request::sdb_opts options)
{
    options.search.strings = {"ex", "*"};
    list_plain(database, options);
}

void search_guid(const sdb::sdb_database& database, request::sdb_opts options)
{
    if (!database.guid_items().empty()) {
        options.search.guid = database.guid_items().back().text();
    }
    list_tables(database, options);
    list_plain(database, options);
}

void search_tags(const sdb::sdb_database& database, request::sdb_opts options)
{
    if (database.tag_count() != 0) {
        options.search.tagids = {database.offset_at(sdb::tag_ordinal(database.tag_count() - 1)),
                                 12};
    }
    list_everything(database, options);
}

void search_patch_bytes(const sdb::sdb_database& database, request::sdb_opts options)
{
    options.patch_pattern = {0xeb};
    list_everything(database, options);
}

// Looks for three tags, spread over the file.
void compare_short_ways(const sdb::sdb_database& database, request::sdb_opts)
{
    std::vector<std::uint32_t> found;
    for (std::uint32_t part = 1; part < 4 && database.tag_count() != 0; ++part) {
        found.push_back(database.offset_at(sdb::tag_ordinal(database.tag_count() / 4 * part)));
    }
    const std::string difference = test_support::difference_of_short_ways(database, found);
    if (!difference.empty()) {
        std::fprintf(stderr, "%s\n", difference.c_str());
        std::abort();
    }
}

constexpr void (*reports[])(const sdb::sdb_database&, request::sdb_opts) = {
    list_xml,
    list_plain,
    list_tables,
    make_statistics<plain>,
    make_statistics<csv>,
    make_statistics<csvl2t>,
    search_texts,
    search_guid,
    search_tags,
    search_patch_bytes,
    compare_short_ways,
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0 || size > longest_input) {
        return -1;
    }
    sdb::sdb_database database;
    if (database.load_image(io::byte_vector(data, data + size)) == sdb::load_result::loaded) {
        const std::uint32_t sum = std::accumulate(data, data + size, std::uint32_t{0});
        reports[sum % std::size(reports)](database, {});
    }
    return 0;
}
