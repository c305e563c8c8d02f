#include "report/explained_words.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "form/tag_text.h"
#include "form/value_text.h"
#include "model/record_facts.h"
#include "sdb/tags.h"
#include "sdb/vocabulary.h"
#include "uni/guid.h"
#include "uni/numbers.h"
#include "uni/text.h"
#include "uni/utf.h"

namespace report {

namespace {

namespace tag = sdb::tag;
namespace type = sdb::type;

constexpr std::size_t longest_part = 300;
constexpr std::size_t most_lines = 100;
constexpr std::size_t longest_line = 4096;
constexpr std::uint64_t most_bytes_shown = 16;

std::string hexadecimal(std::uint64_t number)
{
    uni::text_buffer text;
    text.literal("0x");
    text.hex_min(number, 8);
    return std::string(text.view());
}

// With a comma behind each thousand.
std::string grouped(std::uint64_t number)
{
    std::string text = std::to_string(number);
    for (std::size_t at = text.size(); at > 3;) {
        at -= 3;
        text.insert(at, 1, ',');
    }
    return text;
}

std::string stored_text(const sdb::sdb_database& database, std::uint32_t offset)
{
    return shortened(model::text_at(database, offset, longest_part));
}

std::string quoted(const std::string& text)
{
    return '"' + text + '"';
}

void append_item(std::string& list, const std::string& item)
{
    list += list.empty() ? "" : ", ";
    list += item;
}

// The name of a tag as words.
std::string words_of_tag(std::uint16_t tag)
{
    std::string name = sdb::tag_name(tag);
    uni::replace_char(name, '_', ' ');
    return name;
}

std::string part_text(const model::finding_part& part, const sdb::sdb_database* database,
                      const request::cmd_params& style)
{
    if (part.filetime) {
        return form::value_text(form::moment{*part.filetime, uni::time_kind::filetime}, style);
    }
    if (part.tag_at == 0 || database == nullptr) {
        return shortened(part.text);
    }
    const std::uint16_t own = database->tag_from(part.tag_at);
    switch (sdb::tag_type(own)) {
    case type::list:
        return shortened(model::name_of_list(*database, part.tag_at, longest_part));
    case type::stringref:
    case type::string:
        return stored_text(*database, part.tag_at);
    default:
        return sdb::tag_name(own);
    }
}

// Bytes in hexadecimal, as many of them as are there, and no more than a line takes.
std::string bytes_text(uni::byte_view bytes, std::uint64_t of)
{
    std::string text;
    for (std::uint64_t at = 0; at < std::min({bytes.size(), of, most_bytes_shown}); ++at) {
        text += text.empty() ? "" : " ";
        text.append(&uni::hex_pairs[bytes.u8(at) * std::size_t{2}], 2);
    }
    for (std::uint64_t at = bytes.size(); at < std::min(of, most_bytes_shown); ++at) {
        text += text.empty() ? "??" : " ??";
    }
    return of > most_bytes_shown ? text + " ... (" + grouped(of) + " bytes)" : text;
}

bool is_guid(const sdb::sdb_database& database, std::uint32_t offset)
{
    return form::form_of(database.tag_from(offset)) == form::value_form::guid &&
           database.payload_at(offset).size() == uni::guid_size;
}

// What the value of a scalar is shown as.
std::string scalar_text(const sdb::sdb_database& database, std::uint32_t offset,
                        const request::cmd_params& style)
{
    const std::uint16_t own = database.tag_from(offset);
    if (sdb::tag_type(own) == type::stringref || sdb::tag_type(own) == type::string) {
        return quoted(stored_text(database, offset));
    }
    if (sdb::tag_type(own) == type::binary_ && !is_guid(database, offset)) {
        return bytes_text(database.payload_at(offset), database.payload_at(offset).size());
    }
    uni::text_buffer text;
    form::write_tag_text(text, database, own, offset, style);
    return std::string(text.view());
}

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

std::string fact_text(const sdb::sdb_database& database, std::uint32_t offset, std::uint16_t own,
                      const request::cmd_params& style)
{
    if (own == tag::size) {
        return grouped(database.word_behind(offset)) + " bytes";
    }
    const auto words = std::ranges::find(facts_in_words, own, &fact_words::tag);
    const std::string front =
        words != facts_in_words.end() ? std::string(words->words) : words_of_tag(own) + " ";
    return front + scalar_text(database, offset, style);
}

// The versions that a matching file admits, and its other facts.
struct file_test {
    std::string version;
    std::string facts;
    std::string name;
    bool is_negated = false;
};

file_test read_test(const sdb::sdb_database& database, std::uint32_t list,
                    const request::cmd_params& style)
{
    file_test made;
    std::string from;
    std::string upto;
    std::uint64_t more = 0; // facts than a line takes
    database.for_each_child(list, [&](std::uint32_t offset, std::uint16_t own) {
        if (own == tag::name && made.name.empty()) {
            made.name = stored_text(database, offset);
        } else if (own == tag::match_logic_not) {
            made.is_negated = true;
        } else if (own == tag::bin_file_version && made.version.empty()) {
            made.version = "only " + scalar_text(database, offset, style);
        } else if (own == tag::from_bin_file_version && from.empty()) {
            from = "from " + scalar_text(database, offset, style);
        } else if (own == tag::upto_bin_file_version && upto.empty()) {
            upto = "up to " + scalar_text(database, offset, style);
        } else if (sdb::tag_type(own) != type::list && made.facts.size() < longest_line) {
            append_item(made.facts, fact_text(database, offset, own, style));
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
    return test.is_negated ? "not " + words : words;
}

std::string words_of_other_file(const file_test& test)
{
    std::string words = test.is_negated ? "and not beside " : "and beside ";
    words += test.name.empty() ? "a file" : test.name;
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

std::string scalars_of(const sdb::sdb_database& database, std::uint32_t list,
                       const request::cmd_params& style)
{
    std::string words;
    database.for_each_child(list, [&](std::uint32_t offset, std::uint16_t own) {
        if (sdb::tag_type(own) != type::list && words.size() < longest_line) {
            append_item(words, words_of_tag(own) + " " + scalar_text(database, offset, style));
        }
    });
    return words;
}

std::string words_of_patch(const sdb::sdb_database& database, std::uint32_t bits)
{
    if (bits == 0) {
        return "A patch without operations.";
    }
    const uni::byte_view value = database.payload_at(bits);
    const std::uint64_t changes = model::summarize_patch(value).changes;
    return "Changes " + (changes == 1 ? "a place" : grouped(changes) + " places") + " of " +
           model::patched_module(value) + " in memory.";
}

// The first value of a list of data, with its name.
std::string words_of_datum(const sdb::sdb_database& database, std::uint32_t list,
                           const request::cmd_params& style)
{
    std::string value;
    database.for_each_child(list, [&](std::uint32_t offset, std::uint16_t own) {
        if (value.empty() && own != tag::name && own != tag::data_valuetype &&
            sdb::tag_type(own) != type::list) {
            value = scalar_text(database, offset, style);
        }
    });
    return shortened(model::text_in(database, list, tag::name, longest_part)) + " = " + value;
}

std::string severity_words(std::uint32_t level)
{
    std::string words;
    if ((level & 1) != 0) {
        append_item(words, "soft block");
    }
    if ((level & 2) != 0) {
        append_item(words, "hard block");
    }
    return words.empty() ? hexadecimal(level) : words;
}

} // namespace

std::string shortened(std::string text)
{
    if (text.size() > longest_part) {
        std::size_t end = longest_part;
        while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xc0) == 0x80) {
            --end;
        }
        text.resize(end);
        text += "...";
    }
    return text;
}

std::string value_words(const sdb::sdb_database& database, std::uint32_t offset,
                        const request::cmd_params& style)
{
    constexpr std::uint64_t most_hexadecimal = 32;
    const std::uint16_t own = database.tag_from(offset);
    const uni::byte_view value = database.payload_at(offset);
    const bool is_short_binary = sdb::tag_type(own) == type::binary_ &&
                                 !is_guid(database, offset) && value.size() <= most_hexadecimal;
    if (is_short_binary) {
        return uni::hex_text(value.bytes());
    }
    const std::string text = scalar_text(database, offset, style);
    // A reference is told by what it leads to, as offsets say nothing between two databases.
    if (sdb::tag_type(own) == type::dword && sdb::is_expanded_dword_tag(own)) {
        const std::uint32_t target = database.word_behind(offset);
        return database.is_recorded(target) &&
                       sdb::tag_type(database.tag_from(target)) == type::list
                   ? shortened(model::name_of_list(database, target, longest_part))
                   : "tag 0x" + text + ", which is none";
    }
    return text;
}

std::string reason_of(const model::finding& found, const sdb::sdb_database* database,
                      const request::cmd_params& style)
{
    const std::vector<std::string>& says = found.kind->says;
    const std::string_view words = says[std::min(found.variant, says.size() - 1)];
    std::string reason;
    for (std::size_t at = 0; at < words.size(); ++at) {
        const std::string_view place = words.substr(at, 3);
        if (place == "{1}") {
            reason += part_text(found.first, database, style);
        } else if (place == "{2}") {
            reason += part_text(found.second, database, style);
        } else if (place == "{n}") {
            reason += grouped(found.number);
        } else if (place == "{x}") {
            reason += hexadecimal(found.number);
        } else {
            reason += words[at];
            continue;
        }
        at += 2;
    }
    return reason;
}

std::string weight_column(model::weight one)
{
    constexpr std::string_view words[] = {"-", "LOW", "MEDIUM", "HIGH"};
    return std::string(words[static_cast<std::size_t>(one)]);
}

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
    const std::string name = model::text_in(database, record, tag::name, longest_part);
    std::string application;
    std::string vendor;
    std::uint64_t more = 0;
    database.for_each_child(record, [&](std::uint32_t offset, std::uint16_t own) {
        const bool is_full = lines.size() + own_lines.size() == most_lines;
        if (is_full && own != tag::app_name && own != tag::vendor) {
            more += sdb::tag_type(own) == type::list ? 1 : 0;
        } else if (own == tag::matching_file) {
            const file_test test = read_test(database, offset, style);
            if (test.name == "*" || uni::equal_ignoring_case(test.name, shortened(name))) {
                own_lines.push_back(words_of_own_file(test));
            } else {
                lines.push_back(words_of_other_file(test));
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
            application = " as " + quoted(stored_text(database, offset));
        } else if (own == tag::vendor) {
            vendor = " of " + quoted(stored_text(database, offset));
        }
    });
    if (own_lines.empty() && database.tag_from(record) == tag::exe) {
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

effect_words::list_words effect_words::read(std::uint32_t list) const
{
    constexpr std::size_t most = 500; // of what is told of modules and of data
    list_words made;
    std::string included;
    std::string excluded;
    std::string data;
    const auto note = [&](std::string& to, const std::string& item) {
        if (to.size() < most) {
            append_item(to, item);
        } else if (!to.ends_with("...")) {
            to += ", ...";
        }
    };
    database_.for_each_child(list, [&](std::uint32_t offset, std::uint16_t own) {
        const auto take = [&](std::uint32_t& place) { place = place != 0 ? place : offset; };
        switch (own) {
        case tag::command_line:
            return take(made.command_line);
        case tag::dllfile:
            return take(made.dllfile);
        case tag::module:
            return take(made.module);
        case tag::description:
            return take(made.description);
        case tag::patch_bits:
            return take(made.patch_bits);
        case tag::inexclude: {
            const std::uint32_t module = model::child_of(database_, offset, tag::module);
            note(model::child_of(database_, offset, tag::include) != 0 ? included : excluded,
                 module == 0 ? "those without a name" : stored_text(database_, module));
            break;
        }
        case tag::data:
        case tag::kdata:
            note(data, words_of_datum(database_, offset, style_));
            break;
        default:
            break;
        }
    });
    if (database_.tag_from(list) == tag::patch) {
        made.patch = words_of_patch(database_, made.patch_bits);
    }
    made.more += included.empty() ? "" : "; for calls of " + included;
    made.more += excluded.empty() ? "" : "; not for calls of " + excluded;
    made.more += data.empty() ? "" : "; with " + data;
    return made;
}

const effect_words::list_words& effect_words::words_of(std::uint32_t definition)
{
    constexpr std::uint32_t short_list = 1024; // bytes
    if (database_.list_size_from(definition) <= short_list) {
        return last_ = read(definition);
    }
    const auto [place, is_new] = kept_.try_emplace(definition);
    if (is_new) {
        place->second = read(definition);
    }
    return place->second;
}

// What a definition that is not known tells of itself.
std::string effect_words::words_of_unknown(const model::fix_use& use,
                                           const list_words& definition) const
{
    if (use.is_broken) {
        return "It refers to what is no definition of its kind.";
    }
    if (use.definition == 0) {
        return "Not a known name; its definition is not in this database.";
    }
    const std::uint16_t own = database_.tag_from(use.definition);
    if (own == tag::patch) {
        return definition.patch;
    }
    if (own == tag::layer) {
        return "A mode that this database defines.";
    }
    std::string words = "Not a known name";
    for (const std::uint32_t file : {definition.dllfile, definition.module}) {
        words += file == 0 ? "" : "; module " + stored_text(database_, file);
    }
    return words + '.';
}

std::string effect_words::of(const model::fix_use& use, const model::known_fix* known)
{
    static const list_words nothing;
    const list_words reference = read(use.reference);
    const list_words& definition = use.definition == 0 ? nothing : words_of(use.definition);
    std::string words =
        shortened(model::name_of_list(database_, use.reference, longest_part)) + ": ";
    words += known != nullptr ? known->words : words_of_unknown(use, definition);
    const std::uint32_t line =
        reference.command_line != 0 ? reference.command_line : definition.command_line;
    words += line == 0 ? "" : " With " + quoted(stored_text(database_, line)) + ".";
    std::string more = reference.more + definition.more;
    if (definition.description != 0 && known == nullptr) {
        more += "; in its own words: " + quoted(stored_text(database_, definition.description));
    }
    return words + (more.empty() ? "" : " [" + more.substr(2) + "]");
}

std::vector<own_effect> own_effects_of(const sdb::sdb_database& database, std::uint32_t record,
                                       const request::cmd_params& style)
{
    std::vector<own_effect> made;
    std::uint64_t more = 0;
    std::uint32_t first_more = 0;
    database.for_each_child(record, [&](std::uint32_t offset, std::uint16_t own) {
        const bool is_told = own == tag::apphelp || own == tag::data || own == tag::action ||
                             sdb::tag_type(own) == type::null_;
        if (is_told && made.size() == most_lines) {
            first_more = more++ == 0 ? offset : first_more;
        } else if (own == tag::apphelp) {
            const std::uint32_t severity = model::child_of(database, offset, tag::problemseverity);
            const std::uint32_t help = model::child_of(database, offset, tag::htmlhelpid);
            made.push_back(
                {offset,
                 "a message of the system" +
                     (severity == 0 ? std::string()
                                    : ": " + severity_words(database.word_behind(severity))) +
                     (help == 0 ? std::string() : ", text " + scalar_text(database, help, style))});
        } else if (own == tag::data || own == tag::action) {
            made.push_back(
                {offset, words_of_tag(own) + ": " + scalars_of(database, offset, style)});
        } else if (sdb::tag_type(own) == type::null_) {
            made.push_back({offset, sdb::tag_name(own) + " is set"});
        }
    });
    if (more != 0) {
        made.push_back({first_more, "and " + grouped(more) + " more messages, data and switches"});
    }
    return made;
}

std::string change_line(const model::patch_change& change)
{
    std::string line = "+" + hexadecimal(change.address) + "  ";
    if (change.shares_bytes) {
        return line + grouped(change.after.size()) + " bytes, which other operations use as well";
    }
    const std::string after = model::text_spelt(change.after);
    const std::string before = change.before.size() == change.after.size()
                                   ? model::text_spelt(change.before)
                                   : std::string();
    if (!after.empty() && !before.empty()) {
        line += quoted(shortened(before)) + " -> " + quoted(shortened(after));
    } else {
        line += bytes_text(change.before, change.after.size()) + " -> " +
                bytes_text(change.after, change.after.size());
        line += after.empty() ? "" : " " + quoted(shortened(after));
    }
    if (change.matched_at && *change.matched_at != change.address) {
        line += "   (after a match at " + hexadecimal(*change.matched_at) + ")";
    } else if (!change.matched_at) {
        line += change.is_blind ? "   (nothing was matched before)" : "   (not matched there)";
    }
    return line;
}

} // namespace report
