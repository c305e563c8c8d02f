#include "report/recognition_words.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "model/record_facts.h"
#include "report/value_words.h"
#include "sdb/tags.h"
#include "sdb/vocabulary.h"
#include "uni/text.h"

namespace report {

namespace {

namespace tag = sdb::tag;
namespace type = sdb::type;

// Facts of a file in words, in front of what each is.
struct fact_words {
    std::uint16_t tag;
    std::string_view words;
};
constexpr auto facts_in_words = std::to_array<fact_words>({
    {tag::checksum, "checksum "},
    {tag::pe_checksum, "PE checksum "},
    {tag::bin_product_version, "product version "},
    {tag::from_bin_product_version, "product version from "},
    {tag::upto_bin_product_version, "product version up to "},
    {tag::link_date, "linked at "},
    {tag::from_link_date, "linked from "},
    {tag::upto_link_date, "linked up to "},
    {tag::company_name, "company "},
    {tag::product_name, "product "},
    {tag::file_description, "description "},
    {tag::file_version, "version text "},
    {tag::legal_copyright, "copyright "},
});

void append_fact(std::string& facts, const sdb::sdb_database& database, std::uint32_t offset,
                 std::uint16_t own, const request::cmd_params& style)
{
    facts += facts.empty() ? "" : ", ";
    if (own == tag::size) {
        const std::uint32_t size = database.word_behind(offset);
        facts += grouped(size);
        facts += size == 1 ? " byte" : " bytes";
        return;
    }
    const auto words = std::ranges::find(facts_in_words, own, &fact_words::tag);
    if (words != facts_in_words.end()) {
        facts += words->words;
    } else {
        facts += words_of_tag(own) + ' ';
    }
    append_scalar(facts, database, offset, style);
}

// The versions that a matching file admits, and its other facts.
struct file_test {
    std::string version;
    std::string facts;
    std::uint32_t name = 0; // tag
    bool is_negated = false;
};

// What a list asks of a file; of a record itself, what that asks for outside its lists.
file_test read_test(const sdb::sdb_database& database, std::uint32_t list,
                    const request::cmd_params& style)
{
    file_test made;
    std::string from;
    std::string upto;
    std::uint64_t more = 0; // facts than a line takes
    const bool is_record = database.tag_from(list) != tag::matching_file;
    database.for_each_child(list, [&](std::uint32_t offset, std::uint16_t own) {
        if (is_record && !model::is_fact_of_program(own)) {
            return;
        }
        if (own == tag::name && made.name == 0) {
            made.name = offset;
        } else if (own == tag::match_logic_not) {
            made.is_negated = true;
        } else if (own == tag::bin_file_version && made.version.empty()) {
            made.version = "only " + scalar_text(database, offset, style);
        } else if (own == tag::from_bin_file_version && from.empty()) {
            from = "from " + scalar_text(database, offset, style);
        } else if (own == tag::upto_bin_file_version && upto.empty()) {
            upto = "up to " + scalar_text(database, offset, style);
        } else if (sdb::tag_type(own) != type::list && made.facts.size() < longest_list) {
            append_fact(made.facts, database, offset, own, style);
        } else {
            ++more;
        }
    });
    if (more != 0) {
        append_item(made.facts, grouped(more) + " more facts");
    }
    if (made.version.empty() && !(from.empty() && upto.empty())) {
        made.version = from + (from.empty() || upto.empty() ? "" : " ") + upto;
    }
    return made;
}

std::string words_of_own_file(const file_test& test)
{
    if (test.version.empty() && test.facts.empty()) {
        return "any file of that name";
    }
    const std::string words = test.version.empty() ? "any version; " + test.facts
                              : test.facts.empty() ? test.version
                                                   : test.version + ", " + test.facts;
    return test.is_negated ? "no file that is: " + words : words;
}

std::string words_of_other_file(const sdb::sdb_database& database, const file_test& test)
{
    std::string words = test.is_negated ? "and not beside " : "and beside ";
    words += stored_text(database, test.name);
    for (const std::string& more : {test.version, test.facts}) {
        words += more.empty() ? "" : ", " + more;
    }
    return words;
}

std::string words_of_platform(const sdb::sdb_database& database, std::uint32_t offset,
                              const request::cmd_params& style)
{
    switch (database.word_behind(offset)) {
    case 1:
        return "on 32-bit systems";
    case 2:
        return "on 64-bit systems";
    default:
        return "on systems of the platform " + scalar_text(database, offset, style);
    }
}

} // namespace

std::string title_of(const sdb::sdb_database& database, std::uint32_t record)
{
    const std::uint16_t own = database.tag_from(record);
    std::string name = shortened(model::name_of_list(database, record, longest_part));
    switch (own) {
    case tag::exe:
        return name;
    case tag::msi_package:
        return name + " (installer package)";
    case tag::kdriver:
        return name + " (driver)";
    case tag::layer:
    case tag::shim:
    case tag::patch:
        return name + " (" + sdb::tag_name(own) + " that no record uses)";
    default:
        return name + " (" + words_of_tag(own) + ")";
    }
}

std::vector<std::string> recognition_of(const sdb::sdb_database& database, std::uint32_t record,
                                        const request::cmd_params& style)
{
    std::vector<std::string> own_lines;
    std::vector<std::string> lines;
    const std::uint32_t name = model::child_of(database, record, tag::name);
    std::string application;
    std::string vendor;
    std::uint64_t more = 0;
    database.for_each_child(record, [&](std::uint32_t offset, std::uint16_t own) {
        const bool is_full = lines.size() + own_lines.size() == most_lines;
        if (is_full && own != tag::app_name && own != tag::vendor) {
            more += sdb::tag_type(own) == type::list ? 1 : 0;
        } else if (own == tag::matching_file) {
            const file_test test = read_test(database, offset, style);
            if (model::means_the_program(database, test.name, name)) {
                own_lines.push_back(words_of_own_file(test));
            } else {
                lines.push_back(words_of_other_file(database, test));
            }
        } else if (own == tag::matching_reg || own == tag::matching_text ||
                   own == tag::matching_device || own == tag::matching_info_block) {
            lines.push_back("and with " + words_of_tag(own) + ": " +
                            scalars_of(database, offset, style));
        } else if (own == tag::os_platform) {
            lines.push_back(words_of_platform(database, offset, style));
        } else if (own == tag::wildcard_name) {
            own_lines.push_back("any file of the pattern " + stored_text(database, offset));
        } else if (own == tag::runtime_platform || own == tag::msi_package_id ||
                   own == tag::os_sku || own == tag::match_mode) {
            lines.push_back(words_of_tag(own) + " " + scalar_text(database, offset, style));
        } else if (own == tag::app_name) {
            application = " as ";
            append_scalar(application, database, offset, style);
        } else if (own == tag::vendor) {
            vendor = " of ";
            append_scalar(vendor, database, offset, style);
        }
    });
    const std::uint16_t own = database.tag_from(record);
    if (own == tag::kdriver) {
        own_lines.insert(own_lines.begin(), words_of_own_file(read_test(database, record, style)));
    } else if (own_lines.empty() && own == tag::exe) {
        own_lines.emplace_back("any file of that name");
    }
    own_lines.insert(own_lines.end(), lines.begin(), lines.end());
    if (more != 0) {
        own_lines.push_back("and by what stands in " + grouped(more) + " more lists");
    }
    if (!application.empty() || !vendor.empty()) {
        own_lines.push_back("listed" + application + vendor);
    }
    return own_lines;
}

} // namespace report
