#include "report/finding_rows.h"

#include <algorithm>

#include "form/value_text.h"
#include "model/record_facts.h"
#include "report/value_words.h"
#include "sdb/tags.h"
#include "sdb/vocabulary.h"
#include "uni/text_buffer.h"

namespace report {

namespace {

namespace type = sdb::type;

constexpr std::array<std::string_view, 7> finding_columns = {
    "database", "program", "weight", "id", "offset", "technique", "reason"};
constexpr std::size_t name_columns = 48;
constexpr std::size_t weight_columns = 8;
constexpr std::size_t id_columns = 18;
constexpr std::size_t words_columns = 72;

std::string part_text(const model::finding_part& part, const sdb::sdb_database* database,
                      const request::cmd_params& style)
{
    if (part.filetime) {
        const std::string text =
            form::value_text(form::moment{*part.filetime, uni::time_kind::filetime}, style);
        return text.find_first_not_of(' ') == std::string::npos ? hexadecimal(*part.filetime)
                                                                : text;
    }
    if (part.tag_at == 0 || database == nullptr) {
        return shortened(part.text);
    }
    const std::uint16_t own = database->tag_from(part.tag_at);
    switch (sdb::tag_type(own)) {
    case type::list:
        return shortened(model::name_of_list(*database, part.tag_at, longest_part));
    case type::stringref:
    case type::string: {
        const std::string text = stored_text(*database, part.tag_at);
        return text.empty() ? "a name without a text" : text;
    }
    default:
        return sdb::tag_name(own);
    }
}

// The reason, with what the finding is about in its places.
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

// What stands in the column of weights.
std::string weight_column(model::weight one)
{
    constexpr std::string_view words[] = {"-", "LOW", "MEDIUM", "HIGH"};
    return std::string(words[static_cast<std::size_t>(one)]);
}

form::emphasis emphasis_of(model::weight one)
{
    return one == model::weight::high     ? form::emphasis::high
           : one == model::weight::medium ? form::emphasis::medium
                                          : form::emphasis::none;
}

void write_place(uni::text_buffer& line, std::uint32_t offset)
{
    line.literal("tag 0x");
    line.hex(offset, 8);
}

std::string finding_line(const model::finding& found, const std::string& reason,
                         const std::string& technique)
{
    uni::text_buffer line;
    line.blanks(2);
    line.left(weight_column(found.weighs), weight_columns);
    line.left(found.kind->id, id_columns);
    line.left(reason, words_columns);
    if (found.offset != 0) {
        line.blanks(2);
        write_place(line, found.offset);
    }
    if (!technique.empty()) {
        line.blanks(2);
        line.text(technique);
    }
    const std::string_view made = line.view();
    return std::string(made.substr(0, made.find_last_not_of(' ') + 1));
}

} // namespace

bool is_narrowed(const request::sdb_opts& options)
{
    return !options.only_weights.empty() || !options.families.empty();
}

bool is_asked_for(const model::finding& found, const request::sdb_opts& options)
{
    const std::string_view id = found.kind->id;
    const auto is_one_of = [](const std::vector<std::string>& wanted, std::string_view word) {
        return wanted.empty() || std::ranges::find(wanted, word) != wanted.end();
    };
    return is_one_of(options.only_weights, model::word_of(found.weighs)) &&
           is_one_of(options.families, id.substr(0, id.find('.')));
}

void begin_findings(form::writer& form)
{
    form.table_head(form::cells_of_table(finding_columns));
}

bool tell_finding(const job& work, const model::finding& found, const finding_place& place,
                  const std::vector<std::string>& more)
{
    const std::string reason = reason_of(found, work.database, work.options);
    const bool has_own = found.of_fix != nullptr && !found.of_fix->technique.empty();
    const std::string& technique = has_own ? found.of_fix->technique : found.kind->technique;
    std::vector<std::string> lines = {finding_line(found, reason, technique)};
    for (const std::string& line : more) {
        lines.push_back(std::string(2 + weight_columns + id_columns, ' ') + line);
    }
    auto cells = form::cells_of_table(
        finding_columns,
        {form::text_or_none(place.database), form::text_or_none(place.program),
         std::string(model::word_of(found.weighs)), found.kind->id,
         found.offset == 0 ? form::value() : form::value(form::hex_number{found.offset}),
         form::text_or_none(technique), reason});
    cells[0].names_document = true;
    cells[2].weighs = emphasis_of(found.weighs);
    return work.form.entry_row("finding", cells, lines);
}

std::string heading_line(std::string_view name, std::string_view behind)
{
    uni::text_buffer line;
    return std::string(heading_line(line, name, behind));
}

std::string_view heading_line(uni::text_buffer& line, std::string_view name,
                              std::string_view behind)
{
    line.clear();
    line.left(name, name_columns);
    line.character(' ');
    line.text(behind);
    const std::string_view made = line.view();
    return made.substr(0, made.find_last_not_of(' ') + 1);
}

std::string_view effect_line(uni::text_buffer& line, std::string_view verb, std::string_view words,
                             std::uint32_t offset, std::size_t depth)
{
    constexpr std::size_t most_depth = 16;
    line.clear();
    line.blanks(2);
    line.left(verb, weight_columns);
    line.blanks(2 * std::min(depth, most_depth));
    line.left(words, id_columns + words_columns);
    line.blanks(2);
    write_place(line, offset);
    return line.view();
}

} // namespace report
