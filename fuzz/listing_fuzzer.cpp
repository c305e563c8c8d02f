// Loads arbitrary bytes as a database and makes one report of it in one form, both chosen by the last
// two bytes. What readers of the form take, what several threads make and what a compressed file gives
// must be the same or right; short ways are held against the long one.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include <zlib.h>

#include "database_mutator.h"
#include "form/forms.h"
#include "model/identifiers.h"
#include "model/record_collector.h"
#include "readers.h"
#include "support/record_checks.h"
#include "support/reports.h"

namespace {

// Longer inputs find nothing that shorter ones do not.
constexpr std::size_t longest_input = 65'536;
constexpr std::size_t choices = 2;

void bound(request::bounds& bounds)
{
    bounds.text_bytes = 0x100000;
    bounds.text_times_image = 4;
    bounds.last_record_text = 0x10000;
    bounds.listing_items = 20'000;
    bounds.record_items = 5'000;
}

struct form_choice {
    std::string_view name;
    const char* separator; // between fields, where it matters
};
constexpr form_choice all_forms[] = {{"xml", nullptr},        {"plain", nullptr}, {"csv", ","},
                                     {"csvl2t", ","},         {"csv", "|"},       {"bodyfile", "|"},
                                     {"csvgen", ","},         {"csv", "\t"},      {"json", nullptr},
                                     {"timesketch", nullptr}, {"html", nullptr}};

request::sdb_opts options_of(const form_choice& form)
{
    request::sdb_opts options =
        form.separator != nullptr ? test_support::row_options(form.name) : request::sdb_opts();
    options.form = form.name;
    if (form.separator != nullptr) {
        options.csv_separator = form.separator;
    }
    bound(options.bounds);
    return options;
}

std::string report_of(const sdb::sdb_database& database, const request::sdb_opts& options)
{
    uni::text_buffer text;
    test_support::write_report(text, database, options);
    return std::string(text.view());
}

// Makes a report, where several threads are chosen by one too, and holds it against what its form
// promises.
std::string report(const sdb::sdb_database& database, request::sdb_opts options)
{
    const std::string text = report_of(database, options);
    options.bounds.threads = 1;
    options.bounds.folded_bytes = 0;
    fuzz::require(text == report_of(database, options), "made again it is another report");
    fuzz::require_text(text);
    if (options.form == "xml") {
        fuzz::require_document(text);
    } else if (options.form == "html") {
        fuzz::require_page("<html>" + text + "</html>");
    } else if (options.form == "json") {
        fuzz::require_json_lines(text, false);
    } else if (options.form == "timesketch") {
        fuzz::require_events(text);
    } else if (options.stats && (options.form == "csv" || options.form == "csvl2t")) {
        fuzz::require_rows(text, options.csv_separator.front());
    }
    if (!options.stats) {
        constexpr std::size_t longest_value = 0x60000; // of an input, with all its marks
        const request::bounds& bounds = options.bounds;
        fuzz::require(text.size() < bounds.most_text(database.image().size()) +
                                        bounds.last_record_text + longest_value,
                      "a report without an end");
    }
    return text;
}

std::string listing(const sdb::sdb_database& database, request::sdb_opts options,
                    std::vector<std::string_view> listings)
{
    const auto is_table = [](std::string_view name) {
        return name == "guids" || name == "stringtable";
    };
    if (options.form == "xml" && std::ranges::any_of(listings, is_table)) {
        options.form = "plain"; // as a run has it
    }
    options.listings = std::move(listings);
    options.tag_filter = sdb::tag::inexclude;
    return report(database, options);
}

void list_records(const sdb::sdb_database& database, request::sdb_opts options)
{
    listing(database, std::move(options), {"apps", "fixes", "exes", "shims", "patches", "tag"});
}

void list_tables(const sdb::sdb_database& database, request::sdb_opts options)
{
    listing(database, std::move(options), {"guids", "stringtable"});
}

void make_statistics(const sdb::sdb_database& database, request::sdb_opts options)
{
    options.stats = true;
    options.form = options.form == "xml" ? "plain" : options.form;
    report(database, options);
}

// The first lines of the records of a listing in lines.
std::multiset<std::string> record_heads(std::string_view text)
{
    constexpr std::string_view rule = "\n-------------------- [";
    std::multiset<std::string> heads;
    while (text.find(rule) != text.npos) {
        text.remove_prefix(text.find(rule) + 1);
        text.remove_prefix(std::min(text.find('\n') + 1, text.size()));
        heads.emplace(text.substr(0, text.find('\n')));
    }
    return heads;
}

// Makes a report with a search. All that is found stands in the report without it, if that has no end
// but its own.
void search_records(const sdb::sdb_database& database, request::sdb_opts options)
{
    const std::vector<std::string_view> listings = {"exes", "shims", "patches"};
    const std::string found = listing(database, options, listings);
    options.search = {};
    options.patch_pattern.clear();
    const std::string all = listing(database, options, listings);
    if (options.form == "plain" && all.size() < options.bounds.text_bytes) {
        fuzz::require(std::ranges::includes(record_heads("\n" + all), record_heads("\n" + found)),
                      "a search that finds what is not there");
    }
}

// What is searched for comes from the database itself, so that there is something to be found.
void search_texts(const sdb::sdb_database& database, request::sdb_opts options)
{
    options.search.strings = {"ex", "*"};
    std::string text;
    for (const std::uint32_t reference : database.string_offsets()) {
        if (database.read_string_ref(text, reference)) {
            options.search.strings.push_back(text);
        }
    }
    options.search.strings.resize(std::min<std::size_t>(options.search.strings.size(), 8));
    search_records(database, options);
}

void search_guid(const sdb::sdb_database& database, request::sdb_opts options)
{
    if (!database.guid_items().empty()) {
        options.search.guid = database.guid_items().back().text();
    }
    list_tables(database, options);
    search_records(database, options);
}

void search_tags(const sdb::sdb_database& database, request::sdb_opts options)
{
    if (database.tag_count() != 0) {
        options.search.tagids = {database.offset_at(sdb::tag_ordinal(database.tag_count() - 1)),
                                 12};
    }
    search_records(database, options);
}

void search_patch_bytes(const sdb::sdb_database& database, request::sdb_opts options)
{
    options.patch_pattern = {0xeb};
    search_records(database, options);
}

// A search's quick looks let pass whatever holds what was found; names beside identifiers are those of
// the records.
void compare_short_ways(const sdb::sdb_database& database, request::sdb_opts options)
{
    std::vector<std::uint32_t> found;
    for (std::uint32_t part = 1; part < 4 && database.tag_count() != 0; ++part) {
        found.push_back(database.offset_at(sdb::tag_ordinal(database.tag_count() / 4 * part)));
    }
    std::string difference = test_support::difference_of_short_ways(database, found);
    if (difference.empty()) {
        difference = test_support::difference_of_identifiers(database);
    }
    if (!difference.empty()) {
        fuzz::refuse(difference);
    }
    options.search.tagids = found;
    list_tables(database, options);
}

// The same database out of a compressed file.
void compare_compressed(const sdb::sdb_database& database, request::sdb_opts options)
{
    const auto image = database.image().bytes();
    uLongf length = compressBound(image.size());
    io::byte_vector packed(sdb::compressed_header_size + length);
    std::copy_n("\2\0\0\0\1\0\0\0zdbf", 12, packed.begin());
    fuzz::require(compress2(packed.data() + sdb::compressed_header_size, &length, image.data(),
                            image.size(), 1) == Z_OK,
                  "nothing compressed");
    packed.resize(std::max(sdb::compressed_header_size + length, image.size() / 10 + 1));
    sdb::sdb_database other;
    fuzz::require(other.load_image(std::move(packed)) == sdb::load_result::loaded,
                  "what was compressed does not load");
    if (form::form_of(options.form).header == form::banner::in_the_form) {
        options.form = "plain"; // such a form tells how the file was stored
    }
    options.listings = {"apps"};
    if (options.form != "xml") {
        options.listings = {"apps", "guids", "stringtable"};
    }
    fuzz::require(report_of(database, options) == report_of(other, options),
                  "what was compressed gives another report");
    options.stats = true;
    if (options.form == "xml") {
        options.form = "plain";
    }
    fuzz::require(report_of(database, options) == report_of(other, options),
                  "what was compressed gives other statistics");
}

constexpr void (*reports[])(const sdb::sdb_database&, request::sdb_opts) = {
    list_records, list_tables,        make_statistics,    search_texts,      search_guid,
    search_tags,  search_patch_bytes, compare_short_ways, compare_compressed};

} // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t most, unsigned seed)
{
    return fuzz::mutate_database(data, size, most, seed, choices);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < choices || size > longest_input) {
        return -1;
    }
    const std::uint8_t report = data[size - 2];
    const std::uint8_t form = data[size - 1];
    request::bounds bounds;
    sdb::sdb_database database;
    if (database.load_image(io::byte_vector(data, data + size - choices),
                            bounds.inflated_bytes / 64) == sdb::load_result::loaded) {
        request::sdb_opts options = options_of(all_forms[form % std::size(all_forms)]);
        options.bounds.threads = (form & 0x80) != 0 ? 4 : 1;
        options.bounds.records_of_a_thread = 2;
        reports[report % std::size(reports)](database, options);
    }
    return 0;
}
