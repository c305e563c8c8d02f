#include "model/match.h"
#include "report/read_program.h"
#include "report/record_listing.h"
#include "report/reports.h"
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

// What a program tells under the tag of a property, as a database would hold it.
form::value told_value(const model::pe_property& found)
{
    const std::uint16_t type = sdb::tag_type(found.tag);
    const bool is_number = type >= sdb::type::byte_ && type <= sdb::type::qword;
    return is_number ? form::value(form::tag_number{found.tag, found.number})
                     : form::value(found.text);
}

// Tells lists that were held against a program, each with what it asks for.
class list_teller : public model::comparison_listener {
public:
    explicit list_teller(form::fact_taker& to) : to_(to) {}

    bool begin_list(const model::looked_at_list& list) override
    {
        to_.begin_item();
        to_.fact("record", form::count{list.record});
        to_.fact("list", form::count{list.list});
        to_.begin_list("facts");
        return to_.goes_on();
    }
    bool property(const model::compared_property& one) override
    {
        to_.begin_item();
        to_.fact("tag", form::tag_word{one.tag});
        to_.fact("at", form::count{one.offset});
        to_.fact("database", form::stored_value{one.offset});
        to_.fact("program", one.found != nullptr ? told_value(*one.found) : form::value());
        to_.fact("agrees", word_of(one.agrees));
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

private:
    form::fact_taker& to_;
};

// A program held against a database.
struct match_facts : public form::told_facts {
    std::string_view kind() const override { return "match"; }
    void tell(form::fact_taker& to) const override
    {
        to.fact("program", job.options.pe_path);
        to.fact("by", std::string(looked_at.by_path ? "path" : "name"));
        to.fact("complete", form::truth{is_complete && looked_at.are_all});
        to.begin_list("records");
        for (const auto& [record, lists] : results) {
            for (const std::uint32_t list : lists) {
                if (to.goes_on()) {
                    to.begin_item();
                    to.fact("record", form::count{record});
                    to.fact("tagid", form::count{list});
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
    }

    explicit match_facts(const report::job& work, const model::tag_texts& texts_of_tags)
        : job(work), texts(texts_of_tags)
    {}

    const report::job& job;
    const model::tag_texts& texts;
    model::pe_list program;
    model::match_results results;
    model::looked_at_lists looked_at;
    bool is_complete = false;
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
    if (read_program(match.program, *work.files, path, work.notices, reason) !=
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
