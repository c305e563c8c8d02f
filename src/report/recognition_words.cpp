#include "report/recognition_words.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

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

void write_fact(uni::text_buffer& facts, const sdb::sdb_database& database, std::uint32_t offset,
                std::uint16_t own, const request::cmd_params& style)
{
    facts.text(facts.view().empty() ? "" : ", ");
    if (own == tag::size) {
        const std::uint32_t size = database.word_behind(offset);
        facts.text(grouped(size));
        facts.text(size == 1 ? " byte" : " bytes");
        return;
    }
    const auto words = std::ranges::find(facts_in_words, own, &fact_words::tag);
    if (words != facts_in_words.end()) {
        facts.text(words->words);
    } else {
        facts.text(words_of_tag(own));
        facts.character(' ');
    }
    write_scalar(facts, database, offset, style);
}

// In quotes where it could be taken for more than a name.
void write_name_of_file(uni::text_buffer& to, const sdb::sdb_database& database,
                        std::uint32_t offset)
{
    const std::string name = stored_text(database, offset);
    to.text(name.find_first_of(",;\"") == std::string::npos ? name : quoted(name));
}

void write_platform(uni::text_buffer& to, const sdb::sdb_database& database, std::uint32_t offset,
                    const request::cmd_params& style)
{
    switch (database.word_behind(offset)) {
    case 1:
        return to.literal("on 32-bit systems");
    case 2:
        return to.literal("on 64-bit systems");
    default:
        to.literal("on systems of the platform ");
        return write_scalar(to, database, offset, style);
    }
}

} // namespace

void recognition_words::file_test::clear()
{
    version.clear();
    from.clear();
    upto.clear();
    facts.clear();
    name = 0;
    is_negated = false;
}

// What a list asks of a file; of a record itself, what that asks for outside its lists.
void recognition_words::read_test(std::uint32_t list)
{
    test_.clear();
    std::uint64_t more = 0; // facts than a line takes
    const bool is_record = database_.tag_from(list) != tag::matching_file;
    const auto note_version = [this](uni::text_buffer& to, std::string_view words,
                                     std::uint32_t offset) {
        to.text(words);
        write_scalar(to, database_, offset, style_);
    };
    database_.for_each_child(list, [&](std::uint32_t offset, std::uint16_t own) {
        if (is_record && !model::is_fact_of_program(own)) {
            return;
        }
        if (own == tag::name && test_.name == 0) {
            test_.name = offset;
        } else if (own == tag::match_logic_not) {
            test_.is_negated = true;
        } else if (own == tag::bin_file_version && test_.version.view().empty()) {
            note_version(test_.version, "only ", offset);
        } else if (own == tag::from_bin_file_version && test_.from.view().empty()) {
            note_version(test_.from, "from ", offset);
        } else if (own == tag::upto_bin_file_version && test_.upto.view().empty()) {
            note_version(test_.upto, "up to ", offset);
        } else if (sdb::tag_type(own) != type::list && test_.facts.view().size() < longest_list) {
            write_fact(test_.facts, database_, offset, own, style_);
        } else {
            ++more;
        }
    });
    if (more != 0) {
        test_.facts.text(test_.facts.view().empty() ? "" : ", ");
        test_.facts.text(grouped(more));
        test_.facts.literal(" more facts");
    }
    for (const std::string_view bound : {test_.from.view(), test_.upto.view()}) {
        const std::string_view before = test_.version.view();
        const bool is_exact = before.starts_with("only ");
        test_.version.text(before.empty() || bound.empty() ? "" : is_exact ? ", " : " ");
        test_.version.text(bound);
    }
}

void recognition_words::tell_own_file()
{
    uni::text_buffer& to = own_.text();
    const std::string_view version = test_.version.view();
    const std::string_view facts = test_.facts.view();
    if (version.empty() && facts.empty()) {
        own_.add(test_.is_negated ? "no file of that name" : "any file of that name");
        return;
    }
    to.text(test_.is_negated ? "no file that is: " : version.empty() ? "any version; " : "");
    to.text(version);
    to.text(version.empty() || facts.empty() ? "" : ", ");
    to.text(facts);
    own_.end_line();
}

void recognition_words::tell_other_file()
{
    uni::text_buffer& to = others_.text();
    to.text(test_.is_negated ? "and not beside " : "and beside ");
    write_name_of_file(to, database_, test_.name);
    for (const std::string_view more : {test_.version.view(), test_.facts.view()}) {
        to.text(more.empty() ? "" : ", ");
        to.text(more);
    }
    others_.end_line();
}

// What a file must be of which a line tells one of several.
void recognition_words::tell_choice(std::uint32_t list)
{
    uni::text_buffer& to = others_.text();
    to.literal("and with one of:");
    std::uint64_t more = 0;
    std::size_t written = 0;
    database_.for_each_child(list, [&](std::uint32_t offset, std::uint16_t own) {
        if (sdb::tag_type(own) != type::list) {
            return;
        }
        if (written > longest_list) {
            ++more;
            return;
        }
        const std::uint64_t before = to.total();
        to.text(written == 0 ? " " : "; ");
        if (own != tag::matching_file) {
            to.text(words_of_tag(own));
            to.literal(": ");
            to.text(scalars_of(database_, offset, style_));
        } else {
            read_test(offset);
            to.text(test_.is_negated ? "not " : "");
            if (model::means_the_program(database_, test_.name, name_)) {
                to.literal("the file itself");
            } else {
                write_name_of_file(to, database_, test_.name);
            }
            for (const std::string_view one : {test_.version.view(), test_.facts.view()}) {
                to.text(one.empty() ? "" : ", ");
                to.text(one);
            }
        }
        written += to.total() - before;
    });
    if (more != 0) {
        to.text("; ");
        to.text(grouped(more));
        to.literal(" more");
    }
    to.text(written == 0 ? " nothing" : "");
    others_.end_line();
}

// Nothing for a tag by which nothing is recognised.
void recognition_words::tell_child(std::uint32_t offset, std::uint16_t own)
{
    if (own == tag::matching_file) {
        read_test(offset);
        if (model::means_the_program(database_, test_.name, name_)) {
            tell_own_file();
        } else {
            tell_other_file();
        }
    } else if (own == tag::pick_one) {
        tell_choice(offset);
    } else if (model::is_test(own)) {
        others_.text().literal("and with ");
        others_.text().text(words_of_tag(own));
        others_.text().literal(": ");
        others_.add(scalars_of(database_, offset, style_));
    } else if (own == tag::os_platform) {
        write_platform(others_.text(), database_, offset, style_);
        others_.end_line();
    } else if (own == tag::wildcard_name) {
        own_.text().literal("any file of the pattern ");
        write_stored_words(own_.text(), database_, offset);
        own_.end_line();
    } else if (model::is_test_of_system(own) || own == tag::msi_package_id ||
               own == tag::match_mode) {
        others_.text().text(words_of_tag(own));
        others_.text().character(' ');
        write_scalar(others_.text(), database_, offset, style_);
        others_.end_line();
    }
}

const word_lines& recognition_words::of(std::uint32_t record)
{
    own_.clear();
    others_.clear();
    const std::uint16_t kind = database_.tag_from(record);
    if (kind == tag::kdriver) { // by what it holds itself
        read_test(record);
        tell_own_file();
    }
    const std::size_t before = own_.size();
    name_ = model::child_of(database_, record, tag::name);
    std::uint32_t application = 0; // tags, the last of each
    std::uint32_t vendor = 0;
    std::uint64_t more = 0;
    database_.for_each_child(record, [&](std::uint32_t offset, std::uint16_t own) {
        if (own == tag::app_name) {
            application = offset;
        } else if (own == tag::vendor) {
            vendor = offset;
        } else if (own_.size() - before + others_.size() == most_lines) {
            more += sdb::tag_type(own) == type::list ? 1 : 0;
        } else {
            tell_child(offset, own);
        }
    });
    if (own_.size() == 0 && kind == tag::exe) {
        own_.add("any file of that name");
    }
    for (std::size_t i = 0; i < others_.size(); ++i) {
        own_.add(others_[i]);
    }
    uni::text_buffer& to = own_.text();
    if (more != 0) {
        to.literal("and by what stands in ");
        to.text(grouped(more));
        own_.add(" more lists");
    }
    if (application != 0 || vendor != 0) {
        to.text(application != 0 ? "listed" : "listed as one");
        for (const auto& [words, offset] : {std::pair(" as ", application), {" of ", vendor}}) {
            if (offset != 0) {
                to.text(words);
                write_scalar(to, database_, offset, style_);
            }
        }
        own_.end_line();
    }
    return own_;
}

void write_title(uni::text_buffer& to, const sdb::sdb_database& database, std::uint32_t record,
                 bool are_definitions_unused)
{
    const std::uint16_t own = database.tag_from(record);
    write_name_of_list(to, database, record);
    switch (own) {
    case tag::exe:
        break;
    case tag::msi_package:
        to.literal(" (installer package)");
        break;
    case tag::kdriver:
        to.literal(" (driver)");
        break;
    case tag::layer:
    case tag::shim:
    case tag::patch:
        to.literal(" (");
        to.text(sdb::tag_name(own));
        to.text(are_definitions_unused ? " that no record uses)" : ")");
        break;
    default:
        to.literal(" (");
        to.text(words_of_tag(own));
        to.character(')');
        break;
    }
}

} // namespace report
