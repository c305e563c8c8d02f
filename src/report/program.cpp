#include <cstdint>
#include <iterator>
#include <map>
#include <string>
#include <string_view>
#include <utility>

#include "form/tag_text.h"
#include "report/reports.h"
#include "report/told_database.h"
#include "sdb/tags.h"
#include "uni/paths.h"

namespace report {

namespace {

namespace tag = sdb::tag;

// A program's time stamp: seconds since 1970, unsigned.
form::moment moment_of(const model::pe_property& property)
{
    return {property.number, uni::time_kind::unix_seconds};
}

form::value value_of(const model::pe_property& property)
{
    if (!property.text.empty()) {
        return property.text;
    }
    return form::hex_number{property.number};
}

// What a column of the delimited form shows of the property under its tag. Numbers are decimal,
// whatever the base of the run.
enum class cell { file_name, date, time, number, text, folder };

struct program_column {
    std::string_view head;
    std::size_t width;
    cell shows;
    std::uint16_t tag = 0;
};

constexpr program_column program_columns[] = {
    {"source file", 42, cell::file_name},
    {"compile date", 12, cell::date, tag::link_date},
    {"time-UTC", 12, cell::time, tag::link_date},
    {"compile rawdate", 18, cell::number, tag::link_date},
    {"company name", 15, cell::text, tag::company_name},
    {"description", 8, cell::text, tag::file_description},
    {"file os", 18, cell::text, tag::verfileos},
    {"file size", 18, cell::number, tag::size},
    {"file type", 6, cell::text, tag::verfiletype},
    {"file version", 15, cell::text, tag::bin_file_version},
    {"internal name", 8, cell::text, tag::internal_name},
    {"copyright", 40, cell::text, tag::legal_copyright},
    {"linker ver", 18, cell::number, tag::linker_version},
    {"os major ver", 18, cell::number, tag::prevosmajorver},
    {"os minor ver", 18, cell::number, tag::prevosminorver},
    {"orig filename", 12, cell::text, tag::original_filename},
    {"PE checksum", 18, cell::number, tag::pe_checksum},
    {"product name", 20, cell::text, tag::product_name},
    {"product ver", 15, cell::text, tag::product_version},
    {"path of file", 0, cell::folder},
};

form::value cell_value(const program_column& column, const model::pe_list& list)
{
    const model::pe_property* const property = model::find_property(list, column.tag);
    if (property == nullptr) {
        return std::string(" ");
    }
    switch (column.shows) {
    case cell::date:
    case cell::time:
        return moment_of(*property);
    case cell::number:
        return form::count{property->number};
    default:
        return property->text;
    }
}

// What a program says of itself in the shapes that it takes in the forms.
class program_facts : public form::entry {
public:
    explicit program_facts(const job& work) : work_(work) {}

    // The properties in order of their names; of several of a name the first counts.
    form::labelled_lines lines() const override
    {
        std::map<std::string, const model::pe_property*> by_name;
        for (const model::pe_property& property : *work_.program) {
            by_name.try_emplace(form::marked_text(property.name, work_.options), &property);
        }
        form::labelled_lines made{.pads_values = true, .narrowest_value = 8};
        made.lines.push_back({.label = "Source file", .shown = work_.path, .sets_width = false});
        for (const auto& [name, property] : by_name) {
            form::labelled_line line{.label = name, .shown = value_of(*property)};
            if (property->tag == tag::link_date && property->text.empty()) {
                line.remark = moment_of(*property);
            }
            made.label_width = std::max(made.label_width, name.size());
            made.lines.push_back(std::move(line));
        }
        return made;
    }

    std::vector<form::column> columns() const override
    {
        std::string folder;
        std::string name;
        if (!uni::split_path(work_.path, folder, name)) {
            name = work_.path;
        }
        std::vector<form::column> made;
        made.reserve(std::size(program_columns));
        for (const program_column& column : program_columns) {
            form::column& one = made.emplace_back();
            one.head = column.head;
            one.width = column.width;
            if (column.shows == cell::file_name) {
                one.shown = name;
            } else if (column.shows == cell::folder) {
                one.shown = folder;
            } else {
                one.shown = cell_value(column, *work_.program);
            }
            if (column.shows == cell::date || column.shows == cell::time) {
                one.part =
                    column.shows == cell::date ? form::column_part::date : form::column_part::time;
                one.leads_head = one.leads_value = column.shows == cell::time;
            }
        }
        return made;
    }

    std::string_view kind() const override { return "program"; }
    void tell(form::fact_taker& to) const override
    {
        const model::pe_property* const date = model::find_property(*work_.program, tag::link_date);
        to.fact("path", work_.path);
        if (work_.source != nullptr) {
            program_digests digests;
            tell_digests(to, work_.source->size(),
                         digests.of(*work_.source, work_.path, work_.notices));
        }
        to.begin_list("times");
        tell_time(to, "program", "compiled", date != nullptr ? moment_of(*date) : form::moment());
        tell_file_times(to, work_.times, work_.source ? work_.source->history() : nullptr);
        to.end();
        to.begin_list("properties");
        for (const model::pe_property& property : *work_.program) {
            tell_property(to, property);
        }
        to.end();
        tell_flat(to);
    }

private:
    // Those of a further table of strings have its number behind their names.
    void tell_flat(form::fact_taker& to) const
    {
        std::uint16_t last = 0;
        std::size_t number = 0;
        for (const model::pe_property& property : *work_.program) {
            number = property.tag == last ? number + 1 : 1;
            last = property.tag;
            to.flat_fact("property_" + sdb::tag_name(property.tag) +
                             (number == 1 ? std::string() : "_" + std::to_string(number)),
                         told_value(property));
        }
    }

    // A version is told by its text alone: readers would round the number.
    static void tell_property(form::fact_taker& to, const model::pe_property& property)
    {
        const bool is_version =
            !property.text.empty() &&
            (sdb::tag_type(property.tag) == sdb::type::qword || property.tag == tag::file_version ||
             property.tag == tag::product_version);
        to.begin_item();
        to.fact("tag", form::tag_word{property.tag});
        to.fact("name", property.name);
        const bool is_text = sdb::tag_type(property.tag) == sdb::type::stringref;
        to.fact("text",
                property.text.empty() && !is_text ? form::value() : form::value(property.text));
        to.fact("value", told_value(property));
        // What is text alone has no number, and most have no language.
        const bool has_number =
            !is_version && (property.number != 0 || (property.text.empty() && !is_text));
        to.fact("number", has_number ? form::value(form::count{property.number}) : form::value());
        to.fact("language",
                property.sub_tag != 0 ? form::value(form::count{property.sub_tag}) : form::value());
        to.end();
    }

    const job& work_;
};

} // namespace

// What a program says of itself.
bool tell_program(const job& work)
{
    work.form.subject(program_facts(work));
    return true;
}

} // namespace report
