#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "form/value_text.h"
#include "model/database_facts.h"
#include "report/reports.h"
#include "sdb/tags.h"
#include "uni/paths.h"
#include "uni/text.h"

namespace report {

namespace {

namespace tag = sdb::tag;

constexpr std::size_t label_columns = 22;
constexpr std::string_view utc_mark = " [UTC]";

// The facts of one database, and the shapes that they take in the forms.
class statistics {
public:
    statistics(const job& work, const model::database_facts& facts)
        : work_(work), style_(work.options), facts_(facts)
    {
        if (!uni::split_path(work.path, folder_, name_)) {
            name_ = work.path;
        }
    }

    form::entry all()
    {
        entry_.label_width = label_columns;
        add_lines();
        add_columns();
        add_events();
        add_file();
        return std::move(entry_);
    }

private:
    std::string registry_path() const
    {
        return work_.installed ? work_.installed->database_path : std::string();
    }
    std::uint64_t install_time() const
    {
        return work_.installed ? work_.installed->install_time : 0;
    }
    std::uint64_t key_time() const { return work_.installed ? work_.installed->key_modtime : 0; }

    std::string version() const
    {
        return std::to_string(work_.database->version_major()) + "." +
               std::to_string(work_.database->version_minor());
    }
    form::value platform() const
    {
        return facts_.platform ? form::value(form::dword_value{*facts_.platform})
                               : form::value(std::string());
    }

    void line(std::string_view label, form::value shown)
    {
        entry_.lines.push_back({.label = std::string(label), .shown = std::move(shown)});
    }
    void line_if_any(std::string_view label, const std::string& text)
    {
        if (!text.empty()) {
            line(label, text);
        }
    }
    void moment_if_any(std::string_view label, std::uint64_t filetime)
    {
        const form::moment shown{filetime};
        if (filetime != 0 && !form::moment_text(shown, style_).date.empty()) {
            line(label, shown);
        }
    }

    void add_lines()
    {
        line("Database Path/File", work_.path);
        if (!uni::equal_ignoring_case(registry_path(), work_.path)) {
            line_if_any("Reg DB Path/File", registry_path());
        }
        line_if_any("Database MD5", facts_.digest_md5);
        line_if_any("Database SHA1", facts_.digest_sha1);
        line("File ModTime", form::moment{work_.times.write});
        line("File AccessTime", form::moment{work_.times.access});
        line("File CreateTime", form::moment{work_.times.creation});
        if (facts_.time) {
            line("Database ModTime", form::moment{*facts_.time});
        }
        moment_if_any("Reg DB InstallTime", install_time());
        moment_if_any("Registry ModTime", key_time());
        line_if_any("Compiler Version", facts_.compiler_version);
        line("Database Version", version());
        line_if_any("Database Internal Name", facts_.internal_name);
        if (facts_.platform) {
            line("Database Platform", platform());
        }
        line_if_any("Database Identifier", facts_.identifier);
        line_if_any("Host machine", style_.hostname);
        for (const model::record_count& counted : facts_.counts) {
            line(counted.name, form::tag_count{counted.tag, counted.count});
        }
    }

    void text_column(std::string_view head, std::size_t width, form::value shown)
    {
        entry_.columns.push_back({.head = head, .width = width, .shown = std::move(shown)});
    }

    // A date and a time, each in a column. The last two times have no blank in front in the head, as
    // readers of these rows know it.
    void moment_columns(std::string_view date_head, std::string_view time_head,
                        std::uint64_t filetime, bool leads_head)
    {
        form::column date{.head = date_head,
                          .width = 12,
                          .shown = form::moment{filetime},
                          .part = form::column_part::date,
                          .is_blank_if_empty = true};
        form::column time = date;
        time.head = time_head;
        time.width = time_width();
        time.part = form::column_part::time;
        time.leads_head = leads_head;
        time.leads_value = true;
        entry_.columns.push_back(std::move(date));
        entry_.columns.push_back(std::move(time));
    }

    std::size_t time_width() const
    {
        const std::string& format = style_.timeformat;
        const bool has_colon = format.find(':') != std::string::npos;
        const bool has_fraction = format.find(".xxx") != std::string::npos;
        if (format.size() == 8 && has_colon) {
            return 8;
        }
        return format.size() >= 12 && format.size() <= 18 && has_colon && has_fraction
                   ? format.size()
                   : 0;
    }

    // The widest of what stands in the database list and of its counts.
    std::size_t widest_value() const
    {
        std::size_t width = 0;
        for (const std::uint32_t offset : facts_.scalars) {
            const std::uint16_t scalar = work_.database->image().u16(offset);
            std::string text = form::value_text(form::stored_value{offset}, style_, work_.database);
            if (scalar == tag::time) {
                text += utc_mark;
            } else if (scalar == tag::compiler_version) {
                uni::remove_char(text, 'v');
            }
            width = std::max(width, text.size());
        }
        for (const model::record_count& counted : facts_.counts) {
            if (!counted.counts_values) {
                width = std::max(width, std::to_string(counted.count).size());
            }
        }
        return width;
    }

    void add_columns()
    {
        const std::size_t value_width = style_.no_whitespace ? 0 : widest_value();
        text_column("source file", 42, name_);
        moment_columns("file mdate", "time-UTC", work_.times.write, true);
        moment_columns("file adate", "time-UTC", work_.times.access, true);
        moment_columns("file cdate", "ctime-UTC", work_.times.creation, false);
        moment_columns("DB date", "time-UTC", facts_.time.value_or(0), false);
        text_column("MD5", 32, facts_.digest_md5);
        text_column("SHA1", 40, facts_.digest_sha1);
        text_column("Compiler", 8, facts_.compiler_version);
        text_column("DB ver", 8, version());
        text_column("DB name", value_width, facts_.internal_name);
        text_column("platform", 8, platform());
        text_column("DB ID", 36, facts_.identifier);
        text_column("DB stats", value_width, all_counts());
        entry_.columns.back().is_padded = false;
        if (!style_.hostname.empty()) {
            text_column("Host name", style_.hostname.size(), style_.hostname);
        }
        text_column("Extra info", 20, registry_text());
        text_column("Source DB path", value_width, folder_);
    }

    // The counts, and behind them the rows that the registry gives.
    std::string all_counts() const
    {
        std::string text;
        const auto add = [&text](std::string_view name, std::string_view value) {
            text.append(text.empty() ? "" : "; ").append(name).append(": ").append(value);
        };
        for (const model::record_count& counted : facts_.counts) {
            add(counted.name, std::to_string(counted.count));
        }
        if (work_.installed != nullptr) {
            add("Install Timestamp", "");
            add("Reg LastMod Timestamp", "");
            add("Database Description", work_.installed->description);
            add("Database Types", "");
            add("Database Path", work_.installed->database_path);
        }
        return text;
    }

    std::string registry_text() const
    {
        std::string text = "RegDB Path: " + registry_path();
        const form::moment_text installed_at({install_time()}, style_);
        const form::moment_text modified({key_time()}, style_);
        if (!installed_at.date.empty()) {
            text += "; Install time: " + installed_at.joined();
        }
        if (!modified.date.empty()) {
            text += "; Reg modtime: " + modified.joined();
        }
        return text;
    }

    void add_events()
    {
        form::timeline_item& item = entry_.events.emplace();
        item.stamps = {{{facts_.time.value_or(0), "DB Modified"},
                        {work_.times.write, "File Modified"},
                        {install_time(), "DB Installed"},
                        {work_.times.creation, "File Created"}}};
        item.source = "SHIM";
        item.source_type = "Shim Database";
        item.short_text = name_;
        if (!facts_.internal_name.empty()) {
            item.description = "Name: " + facts_.internal_name + "; ";
        }
        item.description += "DB GUID: " + facts_.identifier;
        item.file_name = work_.path;
        item.notes = "Compiler Ver: " + facts_.compiler_version +
                     "; Platform: " + form::value_text(platform(), style_);
        item.extra = all_counts();
    }

    void add_file()
    {
        form::file_facts& file = entry_.file.emplace();
        file.path = work_.path;
        file.size = work_.source ? work_.source->size() : work_.database->image().size();
        file.access = work_.times.access;
        file.write = work_.times.write;
        file.creation = work_.times.creation;
        file.events = {{facts_.time.value_or(0), "database"}, {install_time(), "installed"}};
        // The image is the whole file, unless that was inflated or is too long.
        const bool is_whole =
            !work_.database->was_compressed() && !work_.database->extent().is_file_longer;
        file.digest_md5 = [source = work_.source, is_whole, digest = facts_.digest_md5] {
            return is_whole || source == nullptr ? digest : model::file_digest_md5(*source);
        };
    }

    const job& work_;
    const request::cmd_params& style_;
    const model::database_facts& facts_;
    std::string folder_;
    std::string name_;
    form::entry entry_;
};

} // namespace

// The statistics of a database; nothing for one whose list holds nothing.
bool tell_statistics(const job& work)
{
    model::database_facts facts;
    if (!model::gather_facts(facts, *work.database)) {
        return false;
    }
    work.form.subject(statistics(work, facts).all());
    return true;
}

} // namespace report
