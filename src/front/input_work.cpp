#include "front/input_work.h"

#include <future>
#include <memory>
#include <optional>

#include "form/forms.h"
#include "form/tag_text.h"
#include "front/registry_words.h"
#include "io/byte_source.h"
#include "model/database_facts.h"
#include "model/differences.h"
#include "model/image_digests.h"
#include "model/pe_properties.h"
#include "platform/digests.h"
#include "platform/redirection.h"
#include "report/read_program.h"
#include "report/reports.h"
#include "report/told_database.h"
#include "sdb/database.h"

namespace front {

// A database with the file that it comes from.
struct loaded_file {
    std::unique_ptr<io::byte_source> source;
    sdb::sdb_database database;
    model::image_digests digests; // of the database's image, where they are told
    std::string reason;           // in words, where it did not load
};

namespace {

const char* words_of(sdb::load_result result)
{
    switch (result) {
    case sdb::load_result::unreadable:
        return "reading failed";
    case sdb::load_result::not_inflated:
        return "it does not inflate";
    case sdb::load_result::too_large:
        return "it inflates to more than quilt takes";
    default:
        return "is no database";
    }
}

// The writer of an input, which begins where the one before it in the stream ended.
class stream_writer {
public:
    stream_writer(const request::sdb_opts& options, const input_output& out)
        : place_(out.place),
          form_(form::form_of(options.form).make(out.report, options, out.place.state_before()))
    {
        form_->name_place(place_.next_name());
        place_.follow(*form_);
    }
    ~stream_writer() { place_.unfollow(*form_); }
    stream_writer(const stream_writer&) = delete;
    stream_writer& operator=(const stream_writer&) = delete;

    form::writer& form() noexcept { return *form_; }
    // To be called when all was said.
    void keep(kept_texts& texts) const
    {
        if (!form_->kept().empty()) {
            texts.add(form_->kept());
        }
    }

private:
    stream_place& place_;
    const std::unique_ptr<form::writer> form_;
};

report::job job_of(const std::string& path, const request::sdb_opts& options, form::writer& form,
                   const input_output& out)
{
    report::job work{options, form, out.console, out.notices, &out.threads};
    work.path = path;
    return work;
}

// Tells what of a file its report could not hold.
void say_extent(const loaded_file& file, const std::string& path, io::notices& notices)
{
    const sdb::image_extent extent = file.database.extent();
    if (extent.is_file_longer) {
        notices.fail("%s is too long: the report ends at byte %llu of %llu\n", path.c_str(),
                     static_cast<unsigned long long>(file.database.image().size()),
                     static_cast<unsigned long long>(extent.file_size));
    }
    if (extent.cut_off_at) {
        notices.fail("%s is cut off: its %llu bytes end before those of tag 0x%08x, "
                     "which go up to byte %llu\n",
                     path.c_str(), static_cast<unsigned long long>(file.database.image().size()),
                     *extent.cut_off_at, static_cast<unsigned long long>(extent.claimed_end));
    } else if (extent.trailing_at < file.database.image().size()) {
        notices.say("%s: behind its lists, from byte %llu on, stand %llu bytes that form "
                    "no list\n",
                    path.c_str(), static_cast<unsigned long long>(extent.trailing_at),
                    static_cast<unsigned long long>(extent.file_size - extent.trailing_at));
    }
    if (file.database.database_offset() == 0) {
        notices.say("%s holds no database list\n", path.c_str());
    }
    if (const std::uint64_t unused = file.database.bytes_behind_stream()) {
        notices.say("%s: behind its compressed stream stand %llu bytes\n", path.c_str(),
                    static_cast<unsigned long long>(unused));
    }
    if (file.source->has_failed()) {
        notices.fail("%s could not be read once more\n", path.c_str());
    }
    if (file.source->has_changed()) {
        notices.fail("%s changed while it was read\n", path.c_str());
    }
}

} // namespace

outcome input_work::load(loaded_file& file, const std::string& path, const input_output& out) const
{
    file.source = tree_.open(path, file.reason);
    if (!file.source) {
        return outcome::failed;
    }
    report::say_doubts(path, *file.source, out.notices);
    sdb::sdb_database::image_user on_image;
    // What tells of a database in its own way tells all its digests.
    const bool tells_all = form::form_of(options_.form).header == form::banner::in_the_form;
    if (options_.stats || tells_all) {
        on_image = [&, tells_all](std::span<const std::uint8_t> image) {
            file.digests.start(image, &out.threads, tells_all);
        };
    }
    const sdb::load_result result =
        file.database.load(*file.source, options_.bounds.inflated_bytes, on_image);
    if (file.database.was_compressed()) {
        out.log.write("Compressed file");
    }
    if (result == sdb::load_result::loaded) {
        return outcome::told;
    }
    file.reason = words_of(result);
    return result == sdb::load_result::no_database ? outcome::passed_over : outcome::failed;
}

void input_work::say_processing(const std::string& path, const input_output& out) const
{
    if (options_.show_progress && !options_.draws_progress) {
        out.notices.say("processing %s\n", path.c_str());
    }
}

// Makes the report of a loaded database, or its statistics.
void input_work::report_database(loaded_file& file, const std::string& path, bool is_one_of_several,
                                 const input_output& out) const
{
    std::uint64_t failures = 0;
    std::uint64_t records = 0;
    {
        stream_writer writer(options_, out);
        report::job work = job_of(path, options_, writer.form(), out);
        work.database = &file.database;
        work.times = file.source->times();
        work.source = file.source.get();
        work.digests = &file.digests;
        work.files = &tree_;
        std::optional<model::known_filter> known_here;
        if (known_ != nullptr) {
            work.known = &known_here.emplace(*known_, file.database);
        }
        work.explained = explained_;
        work.is_named = path == options_.sdb_path;
        work.digests_of_program = &digests_of_program_;
        if (options_.stats || explained_ != nullptr) {
            const model::registry_facts known = targets_.find_installed(path);
            say_doubts(known.how, path, out.notices);
            work.installed = known.facts;
        }
        if (!options_.stats) {
            report::make_database_report(work);
        } else {
            if (!report::report_of("stats").make(work)) {
                constexpr const char* reason = "its database list holds nothing";
                out.notices.fail("Prob analyzing file %s: its database list holds nothing\n",
                                 path.c_str());
                writer.form().failure(path, reason);
            } else if (is_one_of_several) {
                writer.form().separate();
            }
        }
        failures = writer.form().failures();
        records = writer.form().records();
        writer.keep(out.kept);
    }
    say_extent(file, path, out.notices);
    // Counted last: what fails may be done again.
    out.counts.failed += failures;
    out.counts.records += records;
    out.counts.databases += options_.stats && failures != 0 ? 0 : 1;
}

// Tells of an input that could not be told about, in forms that do.
void input_work::tell_failure(const std::string& path, const std::string& reason,
                              const input_output& out, io::byte_source* source) const
{
    if (form::form_of(options_.form).header == form::banner::in_the_form) {
        stream_writer writer(options_, out);
        std::optional<report::told_file> known;
        if (source != nullptr) {
            known.emplace(*source);
        }
        writer.form().failure(path, reason, known ? &*known : nullptr);
        writer.keep(out.kept);
    }
    ++out.counts.failed;
}

void input_work::tell_target(const std::string& path, const input_output& out) const
{
    if (options_.stats) {
        say_processing(path, out);
    }
    loaded_file file;
    if (load(file, path, out) != outcome::told) {
        out.notices.fail("Prob analyzing file %s: %s\n", path.c_str(), file.reason.c_str());
        tell_failure(path, file.reason, out, file.source.get());
        return;
    }
    if (!options_.stats) {
        say_processing(path, out);
    }
    report_database(file, path, targets_.files.size() > 1, out);
}

bool input_work::tell_difference(const std::string& before, const std::string& after,
                                 const input_output& out) const
{
    say_processing(before, out);
    loaded_file files[2];
    const std::string* const paths[] = {&before, &after};
    outcome outcomes[2]{};
    {
        uni::possible_helper helper(&out.threads);
        auto other = std::async(helper.policy(), [&] { return load(files[1], after, out); });
        outcomes[0] = load(files[0], before, out);
        outcomes[1] = other.get();
    }
    for (std::size_t i = 0; i < 2; ++i) {
        if (outcomes[i] != outcome::told) {
            out.notices.fail("Prob analyzing file %s: %s\n", paths[i]->c_str(),
                             files[i].reason.c_str());
            tell_failure(*paths[i], files[i].reason, out, files[i].source.get());
            return false;
        }
    }
    {
        stream_writer writer(options_, out);
        report::job work = job_of(before, options_, writer.form(), out);
        work.database = &files[0].database;
        work.times = files[0].source->times();
        work.source = files[0].source.get();
        work.digests = &files[0].digests;
        work.other = &files[1].database;
        work.other_path = after;
        report::report_of("diff").make(work);
    }
    say_extent(files[0], before, out.notices);
    say_extent(files[1], after, out.notices);
    ++out.counts.databases;
    return true;
}

void input_work::tell_lone_database(const std::string& before, const std::string& after,
                                    const input_output& out) const
{
    stream_writer writer(options_, out);
    report::job work = job_of(before, options_, writer.form(), out);
    work.other_path = after;
    report::report_of("lone").make(work);
}

std::optional<input_work::likeness> input_work::likeness_of(const std::string& path,
                                                            const input_output& out) const
{
    loaded_file file;
    if (load(file, path, out) != outcome::told) {
        out.notices.fail("Prob analyzing file %s: %s\n", path.c_str(), file.reason.c_str());
        tell_failure(path, file.reason, out, file.source.get());
        return std::nullopt;
    }
    const auto digest =
        platform::compute_digest(platform::digest_kind::sha256, file.database.image().bytes());
    return likeness{model::identity_of(file.database).identifier,
                    std::string(digest.begin(), digest.end())};
}

void input_work::load_candidates(const input_output& out)
{
    for (const std::string& path : targets_.files) {
        auto file = std::make_shared<loaded_file>();
        if (load(*file, path, out) != outcome::told) {
            out.notices.fail("Prob analyzing file %s: %s\n", path.c_str(), file->reason.c_str());
            tell_failure(path, file->reason, out, file->source.get());
            continue;
        }
        const sdb::sdb_database& database = file->database;
        database.make_shared_indexes();
        candidates_.emplace_back(
            path, database,
            [this, &database](std::uint32_t offset, std::size_t longest) {
                return form::comparable_text(database, offset, longest, options_);
            },
            options_.bounds);
        if (!candidates_.back().index.is_complete()) {
            out.notices.fail("Not all nested records could be matched: %s\n", path.c_str());
        }
        if (!candidates_.back().index.has_all_patterns()) {
            out.notices.fail("Not all names with wildcards could be matched: %s\n", path.c_str());
        }
        say_extent(*file, path, out.notices);
        candidate_files_.push_back(std::move(file));
        ++out.counts.databases;
    }
    if (candidates_.empty()) {
        out.notices.fail("no database to match with\n");
    }
}

bool input_work::match_program_entry(const std::string& path, const input_output& out) const
{
    model::pe_list properties;
    std::string reason;
    std::unique_ptr<io::byte_source> source;
    const report::program_state state =
        report::read_program(properties, source, tree_, path, out.notices, reason);
    if (state == report::program_state::unreadable) {
        out.notices.fail("Prob analyzing file %s: %s\n", path.c_str(), reason.c_str());
        tell_failure(path, reason, out);
    }
    if (state != report::program_state::read) {
        return false;
    }
    stream_writer writer(options_, out);
    report::job work = job_of(path, options_, writer.form(), out);
    work.program = &properties;
    work.source = source.get();
    work.candidates = &candidates_;
    if (report::report_of("caught").make(work)) {
        ++out.counts.caught;
    } else if (!options_.is_list_form()) {
        out.notices.say("no matches found: %s\n", path.c_str());
    }
    ++out.counts.programs;
    return true;
}

void input_work::match_program_alone(const input_output& out) const
{
    const platform::wow64_redirect_adt redirection;
    const std::uint64_t failed_before = out.counts.failed;
    if (!match_program_entry(options_.pe_path, out)) {
        constexpr const char* reason = "is no program";
        out.notices.fail("Problem pulling PE stats from file %s: %s\n", options_.pe_path.c_str(),
                         reason);
        if (out.counts.failed == failed_before) { // otherwise that was told
            tell_failure(options_.pe_path, reason, out);
        }
    }
}

bool input_work::tell_entry(const std::string& path, const input_output& out) const
{
    if (options_.matches_many()) {
        return match_program_entry(path, out);
    }
    return options_.pe_stats ? tell_program_entry(path, out) : tell_database_entry(path, out);
}

bool input_work::tell_database_entry(const std::string& path, const input_output& out) const
{
    say_processing(path, out);
    loaded_file file;
    const outcome result = load(file, path, out);
    if (result == outcome::told) {
        report_database(file, path, true, out);
    } else if (result == outcome::failed) {
        out.notices.fail("Prob analyzing file %s: %s\n", path.c_str(), file.reason.c_str());
        tell_failure(path, file.reason, out, file.source.get());
    } else if (options_.stats) {
        out.notices.say("Prob analyzing file %s: %s\n", path.c_str(), file.reason.c_str());
    }
    return result == outcome::told;
}

outcome input_work::tell_program(const std::string& path, bool is_one_of_several,
                                 std::string& reason, const input_output& out) const
{
    model::pe_list properties;
    std::unique_ptr<io::byte_source> source;
    const report::program_state state =
        report::read_program(properties, source, tree_, path, out.notices, reason);
    if (state != report::program_state::read) {
        return state == report::program_state::no_program ? outcome::passed_over : outcome::failed;
    }
    stream_writer writer(options_, out);
    report::job work = job_of(path, options_, writer.form(), out);
    work.program = &properties;
    work.source = source.get();
    work.times = source->times();
    report::report_of("pe").make(work);
    if (is_one_of_several) {
        writer.form().separate();
    }
    writer.keep(out.kept);
    ++out.counts.programs;
    return outcome::told;
}

void input_work::tell_program_alone(const input_output& out) const
{
    const platform::wow64_redirect_adt redirection;
    std::string reason;
    if (tell_program(options_.pe_path, false, reason, out) != outcome::told) {
        out.notices.fail("Problem pulling PE stats from file %s: %s\n", options_.pe_path.c_str(),
                         reason.c_str());
        tell_failure(options_.pe_path, reason, out);
    }
}

bool input_work::tell_program_entry(const std::string& path, const input_output& out) const
{
    std::string reason;
    const outcome result = tell_program(path, true, reason, out);
    if (result == outcome::failed) {
        out.notices.fail("Prob analyzing file %s: %s\n", path.c_str(), reason.c_str());
        tell_failure(path, reason, out);
    }
    return result == outcome::told;
}

} // namespace front
