#include <algorithm>
#include <iterator>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "form/tag_text.h"
#include "model/fix_uses.h"
#include "model/match.h"
#include "model/match_index.h"
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

enum class verdict_on_program { caught, perhaps_caught, nearly_caught, beside };
constexpr std::string_view verdicts[] = {"caught", "caught as far as is known", "nearly caught",
                                         "looked for"};

// The sign between what the database asks for and what the program has.
std::string_view sign_of(std::uint16_t own)
{
    const std::string_view name = sdb::known_tag_name(own);
    return name.starts_with("upto_") ? " >= " : name.starts_with("from_") ? " <= " : " = ";
}

std::string text_of(const model::pe_property& found, const request::cmd_params& style)
{
    if (sdb::tag_type(found.tag) == sdb::type::stringref) {
        return '"' + shortened(found.text) + '"';
    }
    if (!found.text.empty()) {
        return shortened(found.text);
    }
    uni::text_buffer text;
    form::write_number_of(text, found.tag, found.number, style);
    return std::string(text.view());
}

// Tells the lists that catch a program, and with explanations those that nearly do.
class caught_teller : public model::comparison_listener {
public:
    caught_teller(const job& work, const model::matchable_database& candidate,
                  std::span<const model::named_record> named)
        : work_(work), candidate_(candidate), named_(named)
    {}

    bool begin_list(const model::looked_at_list& list) override
    {
        list_ = list;
        facts_.clear();
        failed_ = tested_ = unknown_ = 0;
        is_named_otherwise_ = false;
        is_negated_ = model::child_of(candidate_.database, list.list, tag::match_logic_not) != 0;
        return work_.form.goes_on();
    }

    bool property(const model::compared_property& one) override
    {
        const bool agrees = one.agrees == model::agreement::yes;
        const bool is_known = one.agrees != model::agreement::unknown;
        if (one.tag == tag::name) {
            // Of a list that was found by a whole path. A pattern is held against the name elsewhere.
            const model::named_record* const named = named_of(list_.record);
            is_named_otherwise_ |= is_known && !agrees && !(named != nullptr && named->is_pattern);
            return work_.form.goes_on();
        }
        tested_ += is_known ? 1 : 0;
        failed_ += is_known && !agrees ? 1 : 0;
        unknown_ += is_known || one.tag == tag::match_logic_not ? 0 : 1;
        if (!work_.options.explain || one.tag == tag::match_logic_not) {
            return work_.form.goes_on();
        }
        std::string fact(is_negated_ ? "unless " : "");
        fact += sdb::tag_name(one.tag);
        fact += ' ' + value_words(candidate_.database, one.offset, work_.options);
        const std::string_view sign = sign_of(one.tag);
        fact += sign;
        if (!is_known) {
            fact += "unknown";
        } else if (sign != " = ") {
            fact += text_of(*one.found, work_.options) + (agrees ? " ok" : " no");
        } else {
            fact += agrees ? "ok" : text_of(*one.found, work_.options) + " no";
        }
        facts_.push_back(std::move(fact));
        return work_.form.goes_on();
    }

    void end_list(bool, model::agreement) override
    {
        using enum model::agreement;
        const model::agreement verdict = failed_ != 0 || is_named_otherwise_ ? no
                                         : unknown_ != 0                     ? unknown
                                                                             : yes;
        kept_list made{list_, std::move(facts_), verdict, 0, 0};
        if (!is_negated_) {
            made.failed = is_named_otherwise_ ? 2 : failed_; // which is near to nothing
            made.tested = tested_;
        } else { // it is the other programs of that name that are meant
            made.verdict = failed_ != 0 ? yes : unknown_ != 0 ? unknown : no;
            made.failed = made.verdict == no ? 2 : 0;
        }
        // All of a record's lists must hold; those of one record follow each other.
        if (!kept_.empty() && kept_.front().list.record != made.list.record) {
            tell_record(kept_.front().list);
        }
        tell_named(made.list.record);
        kept_.push_back(std::move(made));
    }
    void finish()
    {
        if (!kept_.empty()) {
            tell_record(kept_.front().list);
        }
        constexpr std::uint32_t behind_all = 0xffffffff;
        tell_named(behind_all);
    }

    bool caught_any() const noexcept { return caught_any_; }

private:
    // A list that was held against the program.
    struct kept_list {
        model::looked_at_list list;
        std::vector<std::string> facts;
        model::agreement verdict;
        std::uint64_t failed; // facts
        std::uint64_t tested; // facts that are known
    };

    // The names of the fixes that the record gives.
    std::string fixes() const
    {
        constexpr std::size_t longest = 1000;
        std::vector<model::fix_use> uses;
        model::use_gatherer(candidate_.database, work_.options.bounds).gather(uses, list_.record);
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
                // A list of files in which nothing stands asks for nothing.
                const bool is_test =
                    model::is_matching_list(own) &&
                    (own != tag::matching_file || candidate_.database.list_size_from(offset) != 0);
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

    // Which of the records of the program's name it is; null for none.
    const model::named_record* named_of(std::uint32_t record) const
    {
        const auto found =
            std::ranges::lower_bound(named_, record, {}, &model::named_record::record);
        return found != named_.end() && found->record == record ? &*found : nullptr;
    }

    // The records of the program's name up to one of which there are lists.
    void tell_named(std::uint32_t record)
    {
        for (; told_named_ < named_.size() && named_[told_named_].record <= record; ++told_named_) {
            if (named_[told_named_].record != record && work_.form.goes_on()) {
                tell_record({named_[told_named_].record, 0});
            }
        }
    }

    // What the name of the program agrees with.
    std::string fact_of_name(const model::named_record& named) const
    {
        return sdb::tag_name(candidate_.database.tag_from(named.name)) + ' ' +
               value_words(candidate_.database, named.name, work_.options) + " = ok";
    }

    // A record, with those of its lists that were kept.
    void tell_record(const model::looked_at_list& list)
    {
        using enum model::agreement;
        const auto count = [this](model::agreement verdict) {
            return std::ranges::count(kept_, verdict, &kept_list::verdict);
        };
        const auto failed = count(no);
        std::uint64_t failed_facts = 0;
        std::uint64_t tested_facts = 0;
        for (const kept_list& each : kept_) {
            failed_facts += each.failed;
            tested_facts += each.tested;
        }
        const bool is_near = work_.options.explain && failed_facts == 1 && tested_facts >= 2;
        list_ = list;
        facts_.clear();
        const model::named_record* const named = named_of(list.record);
        if (work_.options.explain && named != nullptr && (named->is_pattern || kept_.empty())) {
            facts_.push_back(fact_of_name(*named));
        }
        for (kept_list& each : kept_) {
            std::ranges::move(each.facts, std::back_inserter(facts_));
        }
        const bool is_beside = named == nullptr && is_about_another();
        if (is_beside && failed == 0) {
            tell(verdict_on_program::beside);
        } else if (!is_beside && (failed == 0 || is_near)) {
            const bool is_known = count(unknown) == 0 && !add_other_tests();
            tell(failed != 0 ? verdict_on_program::nearly_caught
                 : is_known  ? verdict_on_program::caught
                             : verdict_on_program::perhaps_caught);
        }
        kept_.clear();
    }

    // Whether the record in work is about programs of another name.
    bool is_about_another() const
    {
        const std::uint16_t own = candidate_.database.tag_from(list_.record);
        return (own == tag::exe || own == tag::kdriver) &&
               !model::text_in(candidate_.database, list_.record, tag::name, longest_name).empty();
    }

    void tell(verdict_on_program what)
    {
        using enum verdict_on_program;
        const sdb::sdb_database& database = candidate_.database;
        caught_any_ |= what == caught || what == perhaps_caught;
        const std::string record =
            shortened(model::name_of_list(database, list_.record, longest_name));
        const std::string kind = sdb::tag_name(database.tag_from(list_.record));
        const std::string verdict(verdicts[static_cast<std::size_t>(what)]);
        // The fixes of a record are for the program that it is about.
        const std::string names = what == beside ? std::string() : fixes();
        uni::text_buffer words;
        words.text(verdict + " by " + kind + " " + record + " of " + candidate_.path +
                   (what == beside ? " beside that program" : ": " + names) + "  tag 0x");
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
            {.name = "list_offset",
             .shown = list_.list == 0 ? form::value() : form::value(form::hex_number{list_.list})},
            {.name = "fixes", .shown = what == beside ? form::value() : form::value(names)},
            {.name = "facts", .shown = joined.empty() ? form::value() : form::value(joined)},
        };
        work_.form.entry_row("caught", cells, lines);
    }

    const job& work_;
    const model::matchable_database& candidate_;
    std::span<const model::named_record> named_; // of the program's name
    std::size_t told_named_ = 0;
    model::looked_at_list list_;
    std::vector<std::string> facts_;
    std::vector<kept_list> kept_; // of one record
    bool is_named_otherwise_ = false;
    bool is_negated_ = false;
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
        const model::found_by_name found = candidate.index.find(work.path);
        caught_teller teller(work, candidate, found.records);
        model::compare_lists(found.lists, candidate.database, *work.program, work.path,
                             candidate.texts, work.options.bounds, teller);
        teller.finish();
        any |= teller.caught_any();
    }
    work.form.end_rows();
    return any;
}

} // namespace report
