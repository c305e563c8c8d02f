#include <memory>

#include "model/match.h"
#include "report/read_program.h"
#include "report/record_listing.h"
#include "report/reports.h"
#include "report/told_database.h"
#include "sdb/tags.h"
#include "sdb/vocabulary.h"

namespace report {

namespace {

std::string word_of(model::agreement agrees)
{
    switch (agrees) {
    case model::agreement::no:
        return "no";
    case model::agreement::yes:
        return "yes";
    default:
        return "unknown";
    }
}

// Tells lists that were held against a program, each with what it asks for.
class list_teller : public model::comparison_listener {
public:
    explicit list_teller(form::fact_taker& to) : to_(to) {}

    bool begin_list(const model::looked_at_list& list) override
    {
        place_ = list.list;
        to_.begin_item();
        to_.fact("record", form::hex_number{list.record});
        to_.fact("list", form::hex_number{list.list});
        to_.begin_list("facts");
        return to_.goes_on();
    }
    bool property(const model::compared_property& one) override
    {
        to_.begin_item();
        to_.fact("tag", form::tag_word{one.tag});
        to_.fact("at", form::hex_number{one.offset});
        to_.fact("database", form::stored_value{one.offset});
        to_.fact("program", one.found != nullptr ? told_value(*one.found) : form::value());
        to_.fact("agrees", word_of(one.agrees));
        if (one.text_from != 0) {
            to_.fact("compared", form::stored_value{one.text_from});
            to_.fact("compared_at", form::hex_number{one.text_from});
        }
        to_.end();
        return to_.goes_on();
    }
    void end_list(bool is_caught, model::agreement verdict) override
    {
        to_.end();
        to_.fact("verdict", word_of(verdict));
        to_.fact("listed", form::truth{is_caught});
        to_.end();
    }

    // The last list that was begun.
    std::uint32_t place() const noexcept { return place_; }

private:
    form::fact_taker& to_;
    std::uint32_t place_ = 0;
};

// A program held against a database.
struct match_facts : public form::told_facts {
    std::string_view kind() const override { return "match"; }
    void tell(form::fact_taker& to) const override
    {
        to.fact("program", job.options.pe_path);
        tell_program_file(to);
        to.fact("by", looked_at.lists.empty()
                          ? form::value()
                          : form::value(std::string(looked_at.by_path ? "path" : "name")));
        to.begin_list("records");
        for (const auto& [record, lists] : results) {
            for (const std::uint32_t list : lists) {
                if (to.goes_on()) {
                    to.begin_item();
                    to.fact("record", form::hex_number{record});
                    to.fact("tagid", form::hex_number{list});
                    to.end();
                }
            }
        }
        to.end();
        to.begin_list("lists");
        list_teller teller(to);
        model::compare_lists(looked_at, *job.database, program, job.options.pe_path, texts,
                             job.options.bounds, teller);
        to.end();
        ends_at = teller.place();
        to.fact("complete", form::truth{is_complete && looked_at.are_all && to.goes_on()});
    }

    explicit match_facts(const report::job& work, const model::tag_texts& texts_of_tags)
        : job(work), texts(texts_of_tags)
    {}

    void tell_program_file(form::fact_taker& to) const
    {
        const model::pe_property* const date = model::find_property(program, sdb::tag::link_date);
        report::program_digests own;
        report::program_digests& digests =
            job.digests_of_program != nullptr ? *job.digests_of_program : own;
        to.begin_object("program_file");
        tell_digests(to, source->size(), digests.of(*source, job.options.pe_path, job.notices));
        to.begin_list("times");
        tell_time(to, "program", "compiled",
                  {date != nullptr ? date->number : 0, uni::time_kind::unix_seconds});
        tell_file_times(to, source->times(), source->history());
        to.end();
        to.end();
    }

    const report::job& job;
    const model::tag_texts& texts;
    model::pe_list program;
    std::unique_ptr<io::byte_source> source; // of the program
    model::match_results results;
    model::looked_at_lists looked_at;
    bool is_complete = false;
    mutable std::uint32_t ends_at = 0; // the list that was told last
};

} // namespace

// The records that would catch the program at options.pe_path, and on standard output a line for
// each list that catches it.
bool list_matches(const job& work)
{
    const std::string& path = work.options.pe_path;
    const model::tag_texts text_of = [&](std::uint32_t offset, std::size_t longest) {
        return work.form.tag_text(offset, longest);
    };
    match_facts match(work, text_of);
    std::string reason;
    if (read_program(match.program, match.source, *work.files, path, work.notices, reason) !=
        program_state::read) {
        work.notices.fail("Problem pulling PE stats from file %s: %s\n", path.c_str(),
                          reason.c_str());
        work.form.failure(path, reason);
        return false;
    }
    match.is_complete = model::match_program(match.results, *work.database, match.program, path,
                                             text_of, work.options.bounds, &match.looked_at);
    if (!match.is_complete) {
        work.notices.fail("Not all nested records could be matched: %s\n", work.path.c_str());
    }
    work.form.facts(match);
    work.form.takes_more(match.ends_at); // lists that are too long to be told cut the document
    record_listing listing(*work.database, *work.search, work.form);
    for (const auto& [record, lists] : match.results) {
        if (!work.form.takes_more(record)) {
            break;
        }
        for (const std::uint32_t list : lists) {
            uni::text_buffer line;
            line.literal("match tagid ");
            line.hex(list, 8);
            work.form.aside(work.console, line.view());
        }
        listing.print_record(record);
        work.form.end_asides(work.console);
    }
    listing.say_what_is_missing(work);
    return !match.results.empty();
}

} // namespace report
