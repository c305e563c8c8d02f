#include "report/told_database.h"

#include <string>

#include "form/tag_text.h"
#include "sdb/vocabulary.h"

namespace report {

namespace {

form::value text_if_any(const std::string& text)
{
    return text.empty() ? form::value() : form::value(text);
}

std::uint64_t size_of(const job& work)
{
    return work.source != nullptr && !work.database->was_compressed()
               ? work.source->size()
               : work.database->image().size();
}

bool is_file_longer(const job& work)
{
    return work.source != nullptr && work.database->extent().is_file_longer;
}

// Where the report of it ends before it does.
void tell_extent(form::fact_taker& to, const job& work)
{
    const sdb::image_extent extent = work.database->extent();
    const std::uint64_t read = work.database->image().size();
    const bool has_trailing = !extent.cut_off_at && extent.trailing_at < read;
    to.begin_object("extent");
    to.fact("read", form::count{read});
    to.fact("whole", form::truth{!extent.is_file_longer && !extent.cut_off_at});
    to.fact("cut_off_at",
            extent.cut_off_at ? form::value(form::count{*extent.cut_off_at}) : form::value());
    to.fact("claimed_end",
            extent.cut_off_at ? form::value(form::count{extent.claimed_end}) : form::value());
    to.fact("trailing_at",
            has_trailing ? form::value(form::count{extent.trailing_at}) : form::value());
    to.fact("behind_stream", form::count{work.database->bytes_behind_stream()});
    to.end();
}

} // namespace

void tell_digests(form::fact_taker& to, std::uint64_t size, const model::digest_texts& digests)
{
    to.fact("size", form::count{size});
    to.fact("md5", text_if_any(digests.md5));
    to.fact("sha1", text_if_any(digests.sha1));
    to.fact("sha256", text_if_any(digests.sha256));
}

model::digest_texts digests_of(const job& work)
{
    if (is_file_longer(work)) {
        return model::file_digests(*work.source);
    }
    if (work.digests != nullptr && work.digests->is_started()) {
        return work.digests->all();
    }
    model::image_digests own;
    own.start(work.database->image().bytes(), work.threads);
    return own.all();
}

std::string sha256_of(const job& work)
{
    if (is_file_longer(work)) {
        return model::file_digests(*work.source).sha256;
    }
    if (work.digests != nullptr && work.digests->is_started()) {
        return work.digests->sha256();
    }
    model::image_digests own;
    own.start(work.database->image().bytes(), nullptr);
    return own.sha256();
}

form::value told_value(const model::pe_property& found)
{
    const std::uint16_t type = sdb::tag_type(found.tag);
    const bool is_number = type >= sdb::type::byte_ && type <= sdb::type::qword;
    if (form::form_of(found.tag) == form::value_form::unix_time) {
        return form::moment{found.number, uni::time_kind::unix_seconds}; // unsigned in programs
    }
    return is_number ? form::value(form::tag_number{found.tag, found.number})
                     : form::value(found.text);
}

void tell_identity(form::fact_taker& to, const job& work, const model::database_identity& identity,
                   const model::digest_texts& digests)
{
    to.fact("database", work.path);
    tell_digests(to, size_of(work), digests);
    to.fact("compressed", form::truth{work.database->was_compressed()});
    to.begin_object("file");
    if (work.database->was_compressed() && work.source != nullptr) {
        tell_digests(to, work.source->size(), model::file_digests(*work.source));
    } else {
        tell_digests(to, size_of(work), digests);
    }
    to.end();
    to.fact("version", std::to_string(work.database->version_major()) + "." +
                           std::to_string(work.database->version_minor()));
    to.fact("id", text_if_any(identity.identifier));
    const auto text_at = [](std::optional<std::uint32_t> offset) {
        return offset ? form::value(form::stored_value{*offset}) : form::value();
    };
    to.fact("name", text_at(identity.name_at));
    to.fact("compiler_version", text_at(identity.compiler_at));
    to.fact("platform",
            identity.platform ? form::value(form::dword_value{*identity.platform}) : form::value());
    tell_extent(to, work);
    const io::file_history* const kept = work.source ? work.source->history() : nullptr;
    if (kept != nullptr && kept->is_deleted) {
        to.begin_object("deleted");
        to.fact("clusters", form::count{kept->clusters});
        to.fact("unallocated", kept->free_clusters ? form::value(form::count{*kept->free_clusters})
                                                   : form::value());
        to.end();
    }
}

void tell_time(form::fact_taker& to, std::string_view source, std::string_view event,
               const form::moment& when, const std::string* name)
{
    to.begin_item();
    to.fact("source", std::string(source));
    to.fact("event", std::string(event));
    if (name != nullptr) {
        to.fact("name", *name);
    }
    to.fact("time", when);
    to.end();
}

void tell_file_times(form::fact_taker& to, const io::file_times& times,
                     const io::file_history* kept)
{
    const auto tell_usual = [&](const char* source, const io::file_times& usual,
                                const std::string* name) {
        tell_time(to, source, "modified", {usual.write}, name);
        tell_time(to, source, "accessed", {usual.access}, name);
        tell_time(to, source, "created", {usual.creation}, name);
    };
    tell_usual("file", times, nullptr);
    if (kept == nullptr) {
        return;
    }
    tell_time(to, "file", "record changed", {kept->record_change});
    for (const io::kept_times& each : kept->names) {
        tell_usual("file name", each.times, &each.name);
        tell_time(to, "file name", "record changed", {each.record_change}, &each.name);
    }
}

void tell_times(form::fact_taker& to, const job& work, const model::database_identity& identity)
{
    tell_time(to, "database", "compiled", {identity.time.value_or(0)});
    tell_file_times(to, work.times, work.source ? work.source->history() : nullptr);
}

void told_file::tell(form::fact_taker& to) const
{
    tell_digests(to, source_.size(), model::file_digests(source_));
    to.begin_list("times");
    tell_file_times(to, source_.times(), source_.history());
    to.end();
}

void told_database::tell(form::fact_taker& to) const
{
    const model::database_identity identity = model::identity_of(*work_.database);
    tell_identity(to, work_, identity, digests_of(work_));
    to.begin_list("times");
    tell_times(to, work_, identity);
    to.end();
}

} // namespace report
