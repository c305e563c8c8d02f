// Looks in arbitrary databases for what would catch a program, which the last byte chooses.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "database_mutator.h"
#include "form/forms.h"
#include "model/match.h"
#include "readers.h"
#include "support/pe_builder.h"
#include "support/reports.h"

namespace {

// Longer inputs find nothing that shorter ones do not.
constexpr std::size_t longest_input = 65'536;

// Programs as files: one that says all that a program can say of itself, and one that says nothing.
struct programs {
    programs()
    {
        std::string place =
            (std::filesystem::temp_directory_path() / "quilt-match-XXXXXX").string();
        if (::mkdtemp(place.data()) == nullptr) {
            std::abort();
        }
        for (std::size_t i = 0; i < std::size(paths); ++i) {
            paths[i] = place + "/ledger.exe";
            paths[i].insert(paths[i].size() - 4, i, 'x');
            const test_support::bytes image =
                i == 0 ? test_support::sample_program(true) : test_support::pe_plan().build();
            std::ofstream(paths[i], std::ios::binary)
                .write(reinterpret_cast<const char*>(image.data()),
                       static_cast<std::streamsize>(image.size()));
        }
        folder = place;
    }
    ~programs() { std::filesystem::remove_all(folder); }

    std::string paths[2];
    std::filesystem::path folder;
};

std::string match_report(const sdb::sdb_database& database, const request::sdb_opts& options)
{
    const test_support::made_report made = test_support::database_report(database, options);
    fuzz::require_text(made.text);
    fuzz::require_text(made.console);
    fuzz::require_text(made.notices);
    if (options.form == "html") {
        fuzz::require(made.console.empty(), "words beside a page");
        fuzz::require_page("<html>" + made.text + "</html>");
    }
    if (options.form == "json") {
        fuzz::require(made.console.empty(), "words beside a stream of JSON");
        fuzz::require_json_lines(made.text, false);
    }
    return made.text + made.console + made.notices;
}

} // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t most, unsigned seed)
{
    return fuzz::mutate_database(data, size, most, seed, 1);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const programs known;
    if (size == 0 || size > longest_input) {
        return -1;
    }
    sdb::sdb_database database;
    if (database.load_image(io::byte_vector(data, data + size - 1), 0x100000) !=
        sdb::load_result::loaded) {
        return 0;
    }
    request::sdb_opts options;
    options.match_mode = true;
    options.bounds.text_bytes = 0x100000;
    options.bounds.text_times_image = 4;
    options.bounds.last_record_text = 0x10000;
    options.bounds.matched_items = 20'000;
    options.pe_path = known.paths[data[size - 1] % std::size(known.paths)];
    for (const char* const form : {"xml", "plain", "csv", "json", "html"}) {
        options.form = form;
        const std::string text = match_report(database, options);
        fuzz::require(text == match_report(database, options), "the same match, another report");
    }
    return 0;
}
