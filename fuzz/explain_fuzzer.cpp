// Explains arbitrary databases, and compares them with one that is kept and with themselves. The last byte
// chooses the form and what is done.

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>

#include "database_mutator.h"
#include "model/differences.h"
#include "model/known_records.h"
#include "readers.h"
#include "support/reports.h"
#include "support/sample_database.h"

namespace {

// Longer inputs find nothing that shorter ones do not.
constexpr std::size_t longest_input = 65'536;

const sdb::sdb_database& sample()
{
    static const test_support::loaded_database kept(test_support::sample_database());
    return kept.database;
}

const model::known_records& sample_records()
{
    static const model::known_records* const known = [] {
        auto* const made = new model::known_records;
        made->add(sample());
        made->settle();
        return made;
    }();
    return *known;
}

void hold(const test_support::made_report& made, const request::sdb_opts& options)
{
    fuzz::require_text(made.text);
    fuzz::require_text(made.notices);
    if (options.form == "xml") {
        fuzz::require_document(made.text);
    } else if (options.form == "html") {
        fuzz::require_page("<html>" + made.text + "</html>");
    } else if (options.form == "json") {
        fuzz::require_json_lines(made.text, false);
    } else if (options.form == "csv" && !made.text.empty()) {
        fuzz::require_rows(made.text, options.csv_separator.front());
    }
}

void explain(const sdb::sdb_database& database, const request::sdb_opts& options, bool has_known)
{
    const model::known_filter filter(sample_records(), database);
    const auto report = [&] {
        return test_support::explained_report(database, options, has_known ? &filter : nullptr);
    };
    const test_support::made_report made = report();
    hold(made, options);
    fuzz::require(made.text == report().text, "explained again it is another report");
}

// What a database has that another has not stands in the other's place when they change sides.
void compare(const sdb::sdb_database& database, const request::sdb_opts& options)
{
    hold(test_support::difference_report(database, sample(), options), options);
    const test_support::made_report same =
        test_support::difference_report(database, database, options);
    hold(same, options);
    fuzz::require(options.form != "plain" ||
                      same.text.find("no record differs") != std::string::npos,
                  "a database that differs from itself");
}

} // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t most, unsigned seed)
{
    return fuzz::mutate_database(data, size, most, seed, 1);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0 || size > longest_input) {
        return -1;
    }
    sdb::sdb_database database;
    if (database.load_image(io::byte_vector(data, data + size - 1), 0x100000) !=
        sdb::load_result::loaded) {
        return 0;
    }
    constexpr std::string_view forms[] = {"plain", "csv", "xml", "json", "html"};
    const std::uint8_t choice = data[size - 1];
    request::sdb_opts options = test_support::row_options(forms[choice % std::size(forms)]);
    options.explain = true;
    options.bounds.text_bytes = 0x100000;
    options.bounds.text_times_image = 4;
    options.bounds.last_record_text = 0x10000;
    options.bounds.listing_items = 20'000;
    if ((choice & 0x40) != 0) {
        compare(database, options);
    } else {
        explain(database, options, (choice & 0x20) != 0);
    }
    return 0;
}
