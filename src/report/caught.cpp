#include <algorithm>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "model/fix_uses.h"
#include "model/match.h"
#include "model/record_facts.h"
#include "report/finding_rows.h"
#include "report/reports.h"
#include "report/value_words.h"
#include "sdb/tags.h"
#include "sdb/vocabulary.h"
#include "uni/numbers.h"
#include "uni/text_buffer.h"

namespace report {

namespace {

namespace tag = sdb::tag;

constexpr std::size_t longest_name = 300;

// The sign between what the database asks for and what the program has.
std::string_view sign_of(std::uint16_t own)
{
    const std::string_view name = sdb::known_tag_name(own);
    return name.starts_with("upto_") ? " >= " : name.starts_with("from_") ? " <= " : " = ";
}

std::string text_of(const model::pe_property& found)
{
    if (sdb::tag_type(found.tag) == sdb::type::stringref) {
        return '"' + shortened(found.text) + '"';
    }
    if (!found.text.empty()) {
        return shortened(found.text);
    }
    uni::text_buffer text;
    text.literal("0x");
    text.hex_min(found.number, 8);
    return std::string(text.view());
}

// Tells the lists that catch a program, and with explanations those that nearly do.
class caught_teller : public model::comparison_listener {
public:
    caught_teller(const job& work, const model::matchable_database& candidate)
        : work_(work), candidate_(candidate)
    {}

    bool begin_list(const model::looked_at_list& list) override
    {
        list_ = list;
        facts_.clear();
        failed_ = tested_ = unknown_ = 0;
        return work_.form.goes_on();
    }

    bool property(const model::compared_property& one) override
    {
        const bool is_name = one.tag == tag::name; // which holds: that is why the list is looked at
        const bool agrees = is_name || one.agrees == model::agreement::yes;
        const bool is_known = is_name || one.agrees != model::agreement::unknown;
        tested_ += is_known && !is_name ? 1 : 0;
        failed_ += is_known && !agrees ? 1 : 0;
        unknown_ += is_known || one.tag == tag::match_logic_not ? 0 : 1;
        if (!work_.options.explain || is_name) {
            return work_.form.goes_on();
        }
        std::string fact(sdb::tag_name(one.tag));
        fact += ' ' + value_words(candidate_.database, one.offset, work_.options);
        const std::string_view sign = sign_of(one.tag);
        fact += sign;
        if (!is_known) {
            fact += "unknown";
        } else if (sign != " = ") {
            fact += text_of(*one.found) + (agrees ? " ok" : " no");
        } else {
            fact += agrees ? "ok" : text_of(*one.found) + " no";
        }
        facts_.push_back(std::move(fact));
        return work_.form.goes_on();
    }

    void end_list(bool, model::agreement verdict) override
    {
        using enum model::agreement;
        const bool is_negated =
            model::child_of(candidate_.database, list_.list, tag::match_logic_not) != 0;
        kept_list made{list_, std::move(facts_), verdict, false};
        if (!is_negated) {
            made.is_near = work_.options.explain && failed_ == 1 && tested_ >= 2;
        } else { // it is the other programs of that name that are meant
            made.verdict = failed_ != 0 ? yes : unknown_ != 0 ? unknown : no;
        }
        // All of a record's lists must hold; those of one record follow each other.
        if (!kept_.empty() && kept_.front().list.record != made.list.record) {
            tell_record();
        }
        kept_.push_back(std::move(made));
    }
    void finish()
    {
        if (!kept_.empty()) {
            tell_record();
        }
    }

    bool caught_any() const noexcept { return caught_any_; }

private:
    // A list that was held against the program.
    struct kept_list {
        model::looked_at_list list;
        std::vector<std::string> facts;
        model::agreement verdict;
        bool is_near;
    };

    // The names of the fixes that the record gives.
    std::string fixes() const
    {
        constexpr std::size_t longest = 1000;
        std::vector<model::fix_use> uses;
        model::gather_fix_uses(uses, candidate_.database, list_.record, work_.options.bounds);
        std::string names;
        for (const model::fix_use& use : uses) {
            if (use.depth == 0 && names.size() < longest) {
                names += (names.empty() ? "" : ", ") +
                         shortened(
                             model::name_of_list(candidate_.database, use.reference, longest_name));
            }
        }
        return names.empty() ? "no fix" : names;
    }

    // Adds what the record tests beside the file, of which nothing is known here; false for nothing.
    bool add_other_tests()
    {
        bool any = false;
        candidate_.database.for_each_child(
            list_.record, [&](std::uint32_t offset, std::uint16_t own) {
                constexpr std::size_t most = 100;
                const bool is_test = own == tag::matching_file || own == tag::matching_reg ||
                                     own == tag::matching_text || own == tag::matching_device;
                const bool is_kept = std::ranges::any_of(
                    kept_, [&](const kept_list& each) { return each.list.list == offset; });
                any = any || (is_test && !is_kept);
                if (is_test && !is_kept && work_.options.explain && facts_.size() < most) {
                    facts_.push_back(
                        sdb::tag_name(own) + " " +
                        shortened(model::name_of_list(candidate_.database, offset, longest_name)) +
                        " = unknown");
                }
            });
        return any;
    }

    // The lists of one record, which were kept.
    void tell_record()
    {
        using enum model::agreement;
        const auto count = [this](model::agreement verdict) {
            return std::ranges::count(kept_, verdict, &kept_list::verdict);
        };
        const auto failed = count(no);
        const bool is_near = failed == 1 && std::ranges::any_of(kept_, [](const kept_list& each) {
                                 return each.verdict == no && each.is_near;
                             });
        list_ = kept_.front().list;
        facts_.clear();
        for (kept_list& each : kept_) {
            std::ranges::move(each.facts, std::back_inserter(facts_));
        }
        is_known_ = count(unknown) == 0 && !add_other_tests();
        if (failed == 0 || is_near) {
            tell(failed == 0);
        }
        kept_.clear();
    }

    void tell(bool is_caught)
    {
        const sdb::sdb_database& database = candidate_.database;
        caught_any_ |= is_caught;
        const std::string record =
            shortened(model::name_of_list(database, list_.record, longest_name));
        const std::string kind = sdb::tag_name(database.tag_from(list_.record));
        const std::string verdict = !is_caught  ? "nearly caught"
                                    : is_known_ ? "caught"
                                                : "caught as far as is known";
        const std::string names = fixes();
        uni::text_buffer words;
        words.text(verdict + " by " + kind + " " + record + " of " + candidate_.path + ": " +
                   names + "  tag 0x");
        words.hex(list_.record, 8);
        std::vector<std::string> lines = {heading_line(work_.path, words.view())};
        std::string joined;
        for (const std::string& fact : facts_) {
            lines.push_back("    " + fact);
            joined += (joined.empty() ? "" : "; ") + fact;
        }
        const form::cell cells[] = {
            {.name = "program", .shown = work_.path},
            {.name = "database", .shown = candidate_.path},
            {.name = "verdict", .shown = verdict},
            {.name = "record", .shown = record},
            {.name = "record_offset", .shown = form::hex_number{list_.record}},
            {.name = "list_offset", .shown = form::hex_number{list_.list}},
            {.name = "fixes", .shown = names},
            {.name = "facts", .shown = joined.empty() ? form::value() : form::value(joined)},
        };
        work_.form.entry_row("caught", cells, lines);
    }

    const job& work_;
    const model::matchable_database& candidate_;
    model::looked_at_list list_;
    std::vector<std::string> facts_;
    std::vector<kept_list> kept_; // of one record
    bool is_known_ = false;
    std::uint64_t failed_ = 0;
    std::uint64_t tested_ = 0;
    std::uint64_t unknown_ = 0;
    bool caught_any_ = false;
};

} // namespace

// Which records of some databases would catch a program.
bool tell_caught(const job& work)
{
    bool any = false;
    for (const model::matchable_database& candidate : *work.candidates) {
        caught_teller teller(work, candidate);
        model::compare_lists(candidate.index.find(work.path), candidate.database, *work.program,
                             work.path, candidate.texts, work.options.bounds, teller);
        teller.finish();
        any |= teller.caught_any();
    }
    work.form.end_rows();
    return any;
}

} // namespace report
