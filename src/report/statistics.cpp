#include "report/statistics.h"

#include <string_view>

#include "sdb/tags.h"
#include "sdb/vocabulary.h"
#include "uni/paths.h"
#include "uni/text.h"
#include "uni/time.h"
#include "uni/timeline.h"

namespace report {

namespace {

constexpr std::size_t label_columns = 22;
constexpr std::size_t count_columns = 5;
constexpr std::string_view utc_mark = " [UTC]";

// A moment as the run prints it; both texts empty for none.
struct moment_text {
    moment_text(std::uint64_t filetime, const front::sdb_opts& options)
    {
        uni::filetime_text(date, time, uni::time_value_from(filetime, uni::time_kind::filetime),
                           options.date_style);
    }
    std::string joined() const { return date + " " + time; }

    std::string date;
    std::string time;
};

// The path of the database in work, cut into folder and name.
struct path_texts {
    explicit path_texts(const std::string& path)
    {
        if (!uni::split_path(path, folder, name)) {
            name = path;
        }
    }
    std::string folder;
    std::string name;
};

std::string version_text(const sdb::sdb_database& database)
{
    return std::to_string(database.version_major()) + "." +
           std::to_string(database.version_minor());
}

std::string all_rows_text(const database_facts& facts)
{
    std::string text;
    for (const stat_row& row : facts.rows) {
        text.append(text.empty() ? "" : "; ").append(row.name).append(": ");
        text.append(row.value_text);
    }
    return text;
}

// The plain form, line by line.
class plain_form {
public:
    plain_form(io::output_sink& out, const front::sdb_opts& options) : out_(out), options_(options)
    {}

    void line(std::string_view label, std::string_view value)
    {
        out_.left(label, label_columns);
        out_.text(options_.csv_separator);
        out_.text(value);
        out_.line_end();
    }
    void line_if_any(std::string_view label, std::string_view value)
    {
        if (!value.empty()) {
            line(label, value);
        }
    }
    void moment(std::string_view label, std::uint64_t filetime)
    {
        line(label, moment_text(filetime, options_).joined().append(utc_mark));
    }
    void moment_if_any(std::string_view label, std::uint64_t filetime)
    {
        if (filetime != 0 && !moment_text(filetime, options_).date.empty()) {
            moment(label, filetime);
        }
    }
    void row(const stat_row& row)
    {
        out_.left(row.name, label_columns);
        out_.text(options_.csv_separator);
        out_.literal("tag 0x");
        out_.hex(row.key, 4);
        out_.literal(": ");
        out_.right(row.value_text, count_columns);
        out_.text(row.count > 1 ? " items" : " item");
        out_.line_end();
    }

private:
    io::output_sink& out_;
    const front::sdb_opts& options_;
};

void write_plain(const database_facts& facts, const sdb::sdb_database& database,
                 io::output_sink& out, const front::sdb_opts& options)
{
    plain_form form(out, options);
    const auto on_one_line = [](std::string path) { // the registry may hold any text
        uni::keep_on_one_line(path);
        return path;
    };
    form.line("Database Path/File", on_one_line(options.current_path));
    if (!uni::equal_ignoring_case(facts.registry_path, options.current_path)) {
        form.line_if_any("Reg DB Path/File", on_one_line(facts.registry_path));
    }
    form.line_if_any("Database MD5", facts.digest_md5);
    form.line_if_any("Database SHA1", facts.digest_sha1);
    form.moment("File ModTime", options.file_write_time);
    form.moment("File AccessTime", options.file_access_time);
    form.moment("File CreateTime", options.file_creation_time);
    form.line_if_any("Database ModTime", facts.database_modtime_text);
    form.moment_if_any("Reg DB InstallTime", facts.reg_install_time);
    form.moment_if_any("Registry ModTime", facts.registry_modtime);
    form.line_if_any("Compiler Version", facts.compiler_version);
    form.line("Database Version", version_text(database));
    form.line_if_any("Database Internal Name", facts.internal_name);
    form.line_if_any("Database Platform", facts.platform);
    form.line_if_any("Database Identifier", facts.database_identifier);
    form.line_if_any("Host machine", options.hostname);
    for (const stat_row& row : facts.rows) {
        if (!sdb::is_pseudo_tag(row.key)) {
            form.row(row);
        }
    }
}

// One column of the delimited form. The header and the data take their widths from here; only the
// lead, a blank in front of a time, is not the same everywhere: the last two times have none in the
// header. Meant.
struct csv_column {
    std::string_view header;
    std::size_t width = 0;
    std::string data;
    bool leads_header = false;
    bool leads_data = false;
    bool pads_data = true;
};

class csv_table {
public:
    csv_table(const database_facts& facts, const sdb::sdb_database& database,
              const front::sdb_opts& options)
        : options_(options), pads_(!options.no_whitespace),
          lead_(options.no_whitespace && !options.pad_separator ? "" : " ")
    {
        const path_texts path(options.current_path);
        add("source file", 42, path.name);
        add_moment("file mdate", "time-UTC", options.file_write_time, true);
        add_moment("file adate", "time-UTC", options.file_access_time, true);
        add_moment("file cdate", "ctime-UTC", options.file_creation_time, false);
        add_moment("DB date", "time-UTC", facts.database_time, false);
        add("MD5", 32, facts.digest_md5);
        add("SHA1", 40, facts.digest_sha1);
        add("Compiler", 8, facts.compiler_version);
        add("DB ver", 8, version_text(database));
        add("DB name", facts.value_width, facts.internal_name);
        add("platform", 8, facts.platform);
        add("DB ID", 36, facts.database_identifier);
        add("DB stats", facts.value_width, all_rows_text(facts));
        columns_.back().pads_data = false;
        if (!options.hostname.empty()) {
            add("Host name", options.hostname.size(), options.hostname);
        }
        add("Extra info", 20, registry_text(facts));
        add("Source DB path", facts.value_width, path.folder);
    }

    void write_header(io::output_sink& out) const
    {
        for (const csv_column& column : columns_) {
            write_cell(out, column, column.leads_header, column.header, column.width);
        }
    }
    void write_data(io::output_sink& out) const
    {
        for (const csv_column& column : columns_) {
            write_cell(out, column, column.leads_data, column.data,
                       column.pads_data ? column.width : 0);
        }
    }

private:
    void add(std::string_view header, std::size_t width, std::string text)
    {
        if (options_.field_char_from != '\0' && options_.field_char_to != '\0') {
            uni::replace_char(text, options_.field_char_from, options_.field_char_to);
        }
        uni::keep_on_one_line(text);
        columns_.push_back({header, pads_ ? width : 0, std::move(text)});
    }

    void add_moment(std::string_view date_header, std::string_view time_header,
                    std::uint64_t filetime, bool leads_header)
    {
        const moment_text moment(filetime, options_);
        const bool is_empty = moment.date.empty();
        add(date_header, 12, is_empty ? " " : moment.date);
        add(time_header, time_width(), is_empty ? " " : moment.time);
        columns_.back().leads_header = leads_header;
        columns_.back().leads_data = !is_empty;
    }

    std::size_t time_width() const
    {
        const std::string& format = options_.timeformat;
        const bool has_colon = format.find(':') != std::string::npos;
        const bool has_fraction = format.find(".xxx") != std::string::npos;
        if (format.size() == 8 && has_colon) {
            return 8;
        }
        return format.size() >= 12 && format.size() <= 18 && has_colon && has_fraction
                   ? format.size()
                   : 0;
    }

    std::string registry_text(const database_facts& facts) const
    {
        std::string text = "RegDB Path: " + facts.registry_path;
        const moment_text installed(facts.reg_install_time, options_);
        const moment_text modified(facts.registry_modtime, options_);
        if (!installed.date.empty()) {
            text += "; Install time: " + installed.joined();
        }
        if (!modified.date.empty()) {
            text += "; Reg modtime: " + modified.joined();
        }
        return text;
    }

    void write_cell(io::output_sink& out, const csv_column& column, bool leads,
                    std::string_view text, std::size_t width) const
    {
        out.text(leads ? lead_ : std::string_view());
        out.left(text, width);
        if (&column == &columns_.back()) {
            out.line_end();
        } else {
            out.text(options_.csv_separator);
        }
    }

    const front::sdb_opts& options_;
    bool pads_;
    std::string_view lead_;
    std::vector<csv_column> columns_;
};

void write_csv(const database_facts& facts, const sdb::sdb_database& database,
               io::output_sink& out, front::sdb_opts& options)
{
    const csv_table table(facts, database, options);
    if (options.print_header) {
        table.write_header(out);
        options.print_header = false;
    }
    table.write_data(out);
}

void write_timeline(const database_facts& facts, io::output_sink& out, front::sdb_opts& options)
{
    uni::timeline_writer writer;
    uni::configure(writer, options);
    writer.options = &options;
    writer.short_text = path_texts(options.current_path).name;
    if (!facts.internal_name.empty()) {
        writer.desc_text = "Name: " + facts.internal_name + "; ";
    }
    writer.desc_text += "DB GUID: " + facts.database_identifier;
    writer.notes_text = "Compiler Ver: " + facts.compiler_version + "; Platform: " + facts.platform;
    writer.extra_text = all_rows_text(facts);
    writer.source = "SHIM";
    writer.sourcetype = "Shim Database";
    writer.filename = options.current_path;
    writer.m_time = facts.database_time;
    writer.a_time = options.file_write_time;
    writer.c_time = facts.reg_install_time;
    writer.b_time = options.file_creation_time;
    writer.m_desc = "DB Modified";
    writer.a_desc = "File Modified";
    writer.c_desc = "DB Installed";
    writer.b_desc = "File Created";
    uni::write_rows(options.print_header, out, writer);
}

} // namespace

void run_database_stats(const sdb::sdb_database& database, io::output_sink& out,
                        front::sdb_opts& options)
{
    database_facts facts;
    if (!gather_facts(facts, database, options)) {
        return;
    }
    if (options.csvl2t || options.bodyfile) {
        write_timeline(facts, out, options);
    } else if (options.csv) {
        write_csv(facts, database, out, options);
    } else {
        write_plain(facts, database, out, options);
    }
}

} // namespace report
