#include "report/pe_report.h"

#include <algorithm>
#include <iterator>
#include <map>

#include "sdb/tags.h"
#include "uni/paths.h"
#include "uni/text.h"
#include "uni/text_buffer.h"
#include "uni/time.h"

namespace report {

namespace {

namespace tag = sdb::tag;

// Seconds since 1970 as the run prints them; both texts empty for what is no moment.
struct moment_text {
    moment_text(std::uint64_t seconds, const front::sdb_opts& options)
    {
        const std::int64_t stored = static_cast<std::int32_t>(seconds);
        const uni::time_value moment =
            uni::time_value_from(static_cast<std::uint64_t>(stored), uni::time_kind::unix_seconds);
        uni::filetime_text(date, time, moment, options.date_style);
    }
    std::string date;
    std::string time;
};

std::string on_one_line(std::string text)
{
    uni::keep_on_one_line(text);
    return text;
}

std::string shown_value(const pe_property& property)
{
    if (!property.text.empty()) {
        return on_one_line(property.text);
    }
    uni::text_buffer text;
    text.literal("0x");
    text.hex_min(property.number, 8);
    return std::string(text.view());
}

void print_lines(io::output_sink& out, const pe_list& list, const front::sdb_opts& options)
{
    constexpr std::string_view path_label = "Source file";
    constexpr std::size_t narrowest_value = 8;
    std::map<std::string, std::string> lines;
    std::size_t name_width = 0;
    std::size_t value_width = narrowest_value;
    for (const pe_property& property : list) {
        const std::string value = shown_value(property);
        const auto [line, is_new] = lines.try_emplace(on_one_line(property.name), value);
        name_width = std::max(name_width, line->first.size());
        value_width = std::max(value_width, value.size());
        // The readable date does not count for the width: meant.
        if (is_new && property.tag == tag::link_date && property.text.empty()) {
            const moment_text moment(property.number, options);
            line->second += " [" + moment.date + " " + moment.time + " UTC]";
        }
    }
    const auto write_line = [&](std::string_view name, std::string_view value) {
        out.left(name, name_width);
        out.text(options.csv_separator);
        out.left(value, value_width);
        out.line_end();
    };
    write_line(path_label, on_one_line(options.pe_path));
    for (const auto& [name, value] : lines) {
        write_line(name, value);
    }
}

// What a column of the delimited form shows of the property under its tag.
enum class cell { file_name, date, time, number, text, folder };

struct csv_column {
    std::string_view header;
    std::size_t width;
    cell shows;
    std::uint16_t tag = 0;
};

// The dates are those of the checksum, and numbers show their text, which they do not have: meant.
constexpr csv_column columns[] = {
    {"source file", 42, cell::file_name},
    {"compile date", 12, cell::date, tag::pe_checksum},
    {"time-UTC", 12, cell::time, tag::pe_checksum},
    {"compile rawdate", 18, cell::number, tag::pe_checksum},
    {"company name", 15, cell::text, tag::company_name},
    {"description", 8, cell::text, tag::file_description},
    {"file os", 18, cell::text, tag::verfileos},
    {"file size", 18, cell::text, tag::size},
    {"file type", 6, cell::text, tag::verfiletype},
    {"file version", 15, cell::text, tag::bin_file_version},
    {"internal name", 8, cell::text, tag::internal_name},
    {"copyright", 40, cell::text, tag::legal_copyright},
    {"linker ver", 18, cell::text, tag::linker_version},
    {"os major ver", 18, cell::text, tag::prevosmajorver},
    {"os minor ver", 18, cell::text, tag::prevosminorver},
    {"orig filename", 12, cell::text, tag::original_filename},
    {"PE checksum", 18, cell::text, tag::pe_checksum},
    {"product name", 20, cell::text, tag::product_name},
    {"product ver", 15, cell::text, tag::product_version},
    {"path of file", 0, cell::folder},
};

class csv_writer {
public:
    csv_writer(io::output_sink& out, const front::sdb_opts& options)
        : out_(out), options_(options),
          lead_(options.no_whitespace && !options.pad_separator ? "" : " ")
    {}

    void write_header()
    {
        for (const csv_column& column : columns) {
            write_cell(column, column.header);
        }
    }
    void write_row(const pe_list& list)
    {
        std::string folder;
        std::string name;
        if (!uni::split_path(options_.pe_path, folder, name)) {
            name = options_.pe_path;
        }
        for (const csv_column& column : columns) {
            if (column.shows == cell::file_name) {
                write_cell(column, field(name));
            } else if (column.shows == cell::folder) {
                write_cell(column, field(folder));
            } else {
                const pe_property* property = find_property(list, column.tag);
                write_cell(column, property == nullptr ? " " : field(value_of(column, *property)));
            }
        }
    }

private:
    std::string value_of(const csv_column& column, const pe_property& property) const
    {
        switch (column.shows) {
        case cell::date:
            return moment_text(property.number, options_).date;
        case cell::time:
            return moment_text(property.number, options_).time;
        case cell::number:
            return std::to_string(property.number);
        default:
            return property.text;
        }
    }

    std::string field(std::string text) const
    {
        if (options_.field_char_from != '\0' && options_.field_char_to != '\0') {
            uni::replace_char(text, options_.field_char_from, options_.field_char_to);
        }
        return on_one_line(std::move(text));
    }

    void write_cell(const csv_column& column, std::string_view text)
    {
        if (column.shows == cell::time) {
            out_.text(lead_);
        }
        out_.left(text, options_.no_whitespace ? 0 : column.width);
        if (&column == std::end(columns) - 1) {
            out_.line_end();
        } else {
            out_.text(options_.csv_separator);
        }
    }

    io::output_sink& out_;
    const front::sdb_opts& options_;
    std::string_view lead_;
};

} // namespace

void print_pe_stats(io::output_sink& out, const pe_list& list, front::sdb_opts& options)
{
    if (options.csvl2t) {
        return;
    }
    if (!options.csv) {
        print_lines(out, list, options);
        return;
    }
    csv_writer writer(out, options);
    if (options.print_header) {
        writer.write_header();
        options.print_header = false;
    }
    writer.write_row(list);
}

} // namespace report
