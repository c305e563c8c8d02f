#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "form/value_text.h"
#include "model/database_facts.h"
#include "report/reports.h"
#include "report/told_database.h"
#include "sdb/tags.h"
#include "uni/paths.h"
#include "uni/text.h"
#include "uni/text_targets.h"

namespace report {

namespace {

namespace tag = sdb::tag;

constexpr std::size_t label_columns = 22;
constexpr std::string_view utc_mark = " [UTC]";

// Labelled lines, one by one.
class line_list {
public:
    explicit line_list(const request::cmd_params& style) : style_(style)
    {
        made.label_width = label_columns;
    }

    void add(std::string_view label, form::value shown)
    {
        made.lines.push_back({.label = std::string(label), .shown = std::move(shown)});
    }
    void add_if_any(std::string_view label, const std::string& text)
    {
        if (!text.empty()) {
            add(label, text);
        }
    }
    void add_moment_if_any(std::string_view label, std::uint64_t filetime)
    {
        const form::moment shown{filetime};
        if (filetime != 0 && !form::moment_text(shown, style_).date.empty()) {
            add(label, shown);
        }
    }

    form::labelled_lines made;

private:
    const request::cmd_params& style_;
};

// Columns, one by one.
class column_list {
public:
    explicit column_list(const request::cmd_params& style) : style_(style) {}

    void add(std::string_view head, std::size_t width, form::value shown)
    {
        made.push_back({.head = head, .width = width, .shown = std::move(shown)});
    }

    // A date and a time, each in a column. The last two times have no blank in front in the head, as
    // readers of these rows know it.
    void add_moment(std::string_view date_head, std::string_view time_head, std::uint64_t filetime,
                    bool leads_head)
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
        made.push_back(std::move(date));
        made.push_back(std::move(time));
    }

    std::vector<form::column> made;

private:
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

    const request::cmd_params& style_;
};

// The facts of one database in the shapes that they take in the forms.
class statistics : public form::entry {
public:
    statistics(const job& work, const model::database_facts& facts)
        : work_(work), style_(work.options), facts_(facts)
    {
        if (!uni::split_path(work.path, folder_, name_)) {
            name_ = work.path;
        }
    }

    form::labelled_lines lines() const override
    {
        line_list list(style_);
        list.add("Database Path/File", work_.path);
        if (!uni::equal_ignoring_case(registry_path(), work_.path)) {
            list.add_if_any("Reg DB Path/File", registry_path());
        }
        list.add_if_any("Database MD5", facts_.digest_md5);
        list.add_if_any("Database SHA1", facts_.digest_sha1);
        list.add("File ModTime", form::moment{work_.times.write});
        list.add("File AccessTime", form::moment{work_.times.access});
        list.add("File CreateTime", form::moment{work_.times.creation});
        if (facts_.time) {
            list.add("Database ModTime", form::moment{*facts_.time});
        }
        list.add_moment_if_any("Reg DB InstallTime", install_time());
        list.add_moment_if_any("Registry ModTime", key_time());
        list.add_if_any("Compiler Version", facts_.compiler_version);
        list.add("Database Version", version());
        if (facts_.name_at) {
            list.add("Database Internal Name", internal_name());
        }
        if (facts_.platform) {
            list.add("Database Platform", platform());
        }
        list.add_if_any("Database Identifier", facts_.identifier);
        list.add_if_any("Host machine", style_.hostname);
        for (const model::record_count& counted : facts_.counts) {
            list.add(counted.name, form::tag_count{counted.tag, counted.count});
        }
        return std::move(list.made);
    }

    std::vector<form::column> columns() const override
    {
        const std::size_t value_width = style_.no_whitespace ? 0 : widest_value();
        column_list list(style_);
        list.add("source file", 42, name_);
        list.add_moment("file mdate", "time-UTC", work_.times.write, true);
        list.add_moment("file adate", "time-UTC", work_.times.access, true);
        list.add_moment("file cdate", "ctime-UTC", work_.times.creation, false);
        list.add_moment("DB date", "time-UTC", facts_.time.value_or(0), false);
        list.add("MD5", 32, facts_.digest_md5);
        list.add("SHA1", 40, facts_.digest_sha1);
        list.add("Compiler", 8, facts_.compiler_version);
        list.add("DB ver", 8, version());
        list.add("DB name", value_width, internal_name());
        list.add("platform", 8, platform());
        list.add("DB ID", 36, facts_.identifier);
        list.add("DB stats", value_width, all_counts());
        list.made.back().is_padded = false;
        if (!style_.hostname.empty()) {
            list.add("Host name", style_.hostname.size(), style_.hostname);
        }
        list.add("Extra info", 20, registry_text());
        list.add("Source DB path", value_width, folder_);
        return std::move(list.made);
    }

    std::string_view kind() const override { return "statistics"; }
    const sdb::sdb_database* database() const override { return work_.database; }
    void tell(form::fact_taker& to) const override
    {
        tell_identity(to, work_, facts_, {facts_.digest_md5, facts_.digest_sha1, sha256_of(work_)});
        to.begin_list("times");
        tell_times(to, work_, facts_);
        if (work_.installed != nullptr) {
            tell_time(to, "registry", "installed", {install_time()});
            tell_time(to, "registry", "key written", {key_time()});
        }
        to.end();
        to.begin_list("counts");
        for (const model::record_count& counted : facts_.counts) {
            to.begin_item();
            to.fact("tag", form::tag_word{counted.tag});
            to.fact("name", counted.name);
            to.fact("count", form::count{counted.count});
            to.fact("counts", std::string(counted.counts_values ? "values" : "tags"));
            to.end();
        }
        to.end();
        for (const model::record_count& counted : facts_.counts) {
            to.flat_fact("count_" + counted.name, form::count{counted.count});
        }
        to.fact("counts_are_exact", form::truth{facts_.counts_are_exact});
        tell_registry(to);
        to.fact("host", style_.hostname.empty() ? form::value() : form::value(style_.hostname));
        to.fact("user", style_.username.empty() ? form::value() : form::value(style_.username));
    }

    std::optional<form::timeline_item> events() const override
    {
        form::timeline_item item;
        item.stamps = {{{facts_.time.value_or(0), "DB Modified"},
                        {work_.times.write, "File Modified"},
                        {install_time(), "DB Installed"},
                        {work_.times.creation, "File Created"}}};
        item.source = "SHIM";
        item.source_type = "Shim Database";
        item.short_text = name_;
        if (facts_.name_at) {
            item.description = "Name: " + model::internal_name(*work_.database, facts_) + "; ";
        }
        item.description += "DB GUID: " + facts_.identifier;
        item.file_name = work_.path;
        item.notes = "Compiler Ver: " + facts_.compiler_version +
                     "; Platform: " + form::value_text(platform(), style_);
        item.extra = all_counts();
        return item;
    }

    std::optional<form::file_facts> file() const override
    {
        form::file_facts file;
        file.path = work_.path;
        file.size = work_.source ? work_.source->size() : work_.database->image().size();
        file.access = work_.times.access;
        file.write = work_.times.write;
        file.creation = work_.times.creation;
        file.events = {{facts_.time.value_or(0), "database"}, {install_time(), "installed"}};
        // The image is the file, unless that was inflated.
        file.digest_md5 = !work_.database->was_compressed() || work_.source == nullptr
                              ? facts_.digest_md5
                              : model::file_digests(*work_.source).md5;
        return file;
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

    // The name is often long, and stays where it stands.
    form::value internal_name() const
    {
        return facts_.name_at ? form::value(form::stored_value{*facts_.name_at})
                              : form::value(std::string());
    }
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

    void tell_registry(form::fact_taker& to) const
    {
        if (work_.installed == nullptr) {
            to.fact("registry", {});
            return;
        }
        to.begin_object("registry");
        to.fact("key", work_.installed->key_path);
        to.fact("path", work_.installed->database_path);
        to.fact("description", work_.installed->description);
        to.fact("type", form::dword_value{work_.installed->database_type});
        to.end();
    }

    // The widest of what stands in the database list and of its counts.
    std::size_t widest_value() const
    {
        std::size_t width = 0;
        for (const std::uint32_t offset : facts_.scalars) {
            width = std::max(width, width_of(offset));
        }
        for (const model::record_count& counted : facts_.counts) {
            if (!counted.counts_values) {
                width = std::max(width, std::to_string(counted.count).size());
            }
        }
        return width;
    }
    std::size_t width_of(std::uint32_t offset) const
    {
        const std::uint16_t scalar = work_.database->image().u16(offset);
        const form::stored_value shown{offset};
        if (scalar == tag::compiler_version) {
            std::string text = form::value_text(shown, style_, work_.database);
            uni::remove_char(text, 'v');
            return text.size();
        }
        uni::text_counter counted;
        form::write_value(counted, shown, style_, work_.database);
        return static_cast<std::size_t>(counted.total()) +
               (scalar == tag::time ? utc_mark.size() : 0);
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

    const job& work_;
    const request::cmd_params& style_;
    const model::database_facts& facts_;
    std::string folder_;
    std::string name_;
};

} // namespace

// The statistics of a database; nothing for one whose list holds nothing.
bool tell_statistics(const job& work)
{
    model::database_facts facts;
    if (!model::gather_facts(facts, *work.database, work.options.bounds, work.digests,
                             work.known)) {
        return false;
    }
    if (!facts.counts_are_exact) {
        work.notices.fail(
            "%s: not all counts are exact, as its lists hold one another again and again\n",
            work.path.c_str());
    }
    if (work.source != nullptr && work.database->extent().is_file_longer) {
        const model::digest_texts digests = model::file_digests(*work.source);
        facts.digest_md5 = digests.md5;
        facts.digest_sha1 = digests.sha1;
    }
    if (facts.digest_md5.empty() || facts.digest_sha1.empty()) {
        work.notices.fail("no digest of %s is to be had\n", work.path.c_str());
    }
    work.form.subject(statistics(work, facts));
    return true;
}

} // namespace report
