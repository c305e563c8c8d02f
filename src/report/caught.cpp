#include <algorithm>
#include <array>
#include <iterator>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "form/tag_text.h"
#include "form/value_text.h"
#include "model/file_keys.h"
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
constexpr std::array<std::string_view, 8> caught_columns = {
    "program", "database", "verdict", "record", "record_offset", "list_offset", "fixes", "facts"};

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

// The facts that were compared for a record. Of very many only so much is kept, but what speaks against
// the program has room of its own.
class fact_list {
public:
    template <typename maker>
    void add(maker&& make, bool speaks_against = false)
    {
        constexpr std::size_t most = 1'000;
        constexpr std::size_t most_with_those_against = 1'100;
        if (texts_.size() < (speaks_against ? most_with_those_against : most)) {
            texts_.push_back(make());
        } else {
            ++more_;
        }
    }
    void add_in_front(std::string fact) { texts_.insert(texts_.begin(), std::move(fact)); }

    // All that are kept, and how many more there were.
    std::vector<std::string> take()
    {
        if (more_ != 0) {
            texts_.push_back("and " + grouped(std::exchange(more_, 0)) + " more");
        }
        return std::exchange(texts_, {});
    }

private:
    std::vector<std::string> texts_;
    std::uint64_t more_ = 0;
};

// Tells the lists that catch a program, and with explanations those that nearly do.
class caught_teller : public model::comparison_listener {
public:
    caught_teller(const job& work, const model::matchable_database& candidate,
                  std::span<const model::named_record> named)
        : work_(work), candidate_(candidate), named_(named)
    {}

    bool begin_list(const model::looked_at_list& list) override
    {
        // All of a record's lists must hold; those of one record follow each other.
        if (!kept_.empty() && kept_.front().list.record != list.record) {
            tell_record(kept_.front().list);
        }
        tell_named(list.record);
        list_ = list;
        choice_ = choice_around(list);
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
            is_named_otherwise_ |= is_known && !agrees && !is_own_name(one) &&
                                   !(named != nullptr && named->is_pattern);
            return work_.form.goes_on();
        }
        tested_ += is_known ? 1 : 0;
        failed_ += is_known && !agrees ? 1 : 0;
        unknown_ += is_known || one.tag == tag::match_logic_not ? 0 : 1;
        if (!work_.options.explain || one.tag == tag::match_logic_not) {
            return work_.form.goes_on();
        }
        facts_.add([&] { return fact_of(one); }, is_known && !agrees);
        return work_.form.goes_on();
    }

    void end_list(bool, model::agreement) override
    {
        using enum model::agreement;
        const model::agreement verdict = failed_ != 0 || is_named_otherwise_ ? no
                                         : unknown_ != 0                     ? unknown
                                                                             : yes;
        kept_list made{list_, choice_, verdict, 0, 0};
        if (!is_negated_) {
            made.failed = is_named_otherwise_ ? 2 : failed_; // which is near to nothing
            made.tested = tested_;
        } else { // it is the other programs of that name that are meant
            made.verdict = failed_ != 0 ? yes : unknown_ != 0 ? unknown : no;
            made.failed = made.verdict == no ? 2 : 0;
        }
        kept_.push_back(made);
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
        std::uint32_t choice; // the list of several that it is one of; 0 for none
        model::agreement verdict;
        std::uint64_t failed; // facts
        std::uint64_t tested; // facts that are known
    };

    std::string fact_of(const model::compared_property& one) const
    {
        const bool agrees = one.agrees == model::agreement::yes;
        std::string fact(choice_ != 0 ? "one of: " : "");
        fact += is_negated_ ? "unless " : "";
        fact += sdb::tag_name(one.tag);
        fact += ' ' + value_words(candidate_.database, one.offset, work_.options);
        const std::string_view sign = sign_of(one.tag);
        fact += sign;
        if (one.agrees == model::agreement::unknown) {
            fact += "unknown";
        } else if (sign != " = ") {
            fact += text_of(*one.found, work_.options) + (agrees ? " ok" : " no");
        } else {
            fact += agrees ? "ok" : text_of(*one.found, work_.options) + " no";
        }
        return fact;
    }

    // The names of the fixes that the record gives.
    std::vector<std::string> fixes() const
    {
        constexpr std::uint64_t most = 50;
        std::vector<model::fix_use> uses;
        model::use_gatherer(candidate_.database, work_.options.bounds)
            .gather_own(uses, list_.record);
        std::vector<std::string> names;
        std::uint64_t more = 0;
        for (const model::fix_use& use : uses) {
            if (names.size() == most) {
                ++more;
            } else {
                names.push_back(shortened(
                    model::name_of_list(candidate_.database, use.reference, longest_name)));
            }
        }
        if (more != 0) {
            names.push_back("and " + grouped(more) + " more");
        }
        return names;
    }

    // How a record's tests went together.
    struct tally {
        std::uint64_t failed_tests = 0;
        std::uint64_t failed_facts = 0;
        std::uint64_t tested_facts = 0;
        bool is_known = true;
    };

    static void count(tally& all, const kept_list& one)
    {
        all.failed_tests += one.verdict == model::agreement::no ? 1 : 0;
        all.failed_facts += one.failed;
        all.tested_facts += one.tested;
        all.is_known &= one.verdict != model::agreement::unknown;
    }

    // Of a choice one list has to hold: the best of those that were held against the program, if all were.
    void count_choice(tally& all, std::uint32_t choice) const
    {
        const kept_list* best = nullptr;
        const auto rank = [](const kept_list& one) {
            return std::pair(one.verdict == model::agreement::yes       ? 0
                             : one.verdict == model::agreement::unknown ? 1
                                                                        : 2,
                             one.failed);
        };
        for (auto each = first_from(choice); each != kept_.end() && each->choice == choice;
             ++each) {
            if (best == nullptr || rank(*each) < rank(*best)) {
                best = &*each;
            }
        }
        bool are_all_kept = best != nullptr;
        candidate_.database.for_each_child(choice, [&](std::uint32_t offset, std::uint16_t own) {
            are_all_kept = are_all_kept && (!is_asking(offset, own) || is_kept(offset));
        });
        if (best != nullptr && (are_all_kept || best->verdict == model::agreement::yes)) {
            count(all, *best);
        } else {
            all.is_known = false;
        }
    }

    // Those of a record are kept as they stand.
    std::vector<kept_list>::const_iterator first_from(std::uint32_t offset) const
    {
        return std::ranges::lower_bound(kept_, offset, {},
                                        [](const kept_list& one) { return one.list.list; });
    }

    bool is_kept(std::uint32_t list) const
    {
        const auto found = first_from(list);
        return found != kept_.end() && found->list.list == list;
    }

    // A list of files in which nothing stands asks for nothing.
    bool is_asking(std::uint32_t offset, std::uint16_t own) const
    {
        return model::is_test(own) &&
               (own != tag::matching_file || candidate_.database.list_size_from(offset) != 0);
    }

    // What the record tests beside the file, of which nothing is known here.
    void count_other_tests(tally& all)
    {
        candidate_.database.for_each_child(list_.record, [&](std::uint32_t offset,
                                                             std::uint16_t own) {
            const bool is_of_system = model::is_test_of_system(own);
            if (own == tag::pick_one) {
                count_choice(all, offset);
            } else if ((is_of_system || is_asking(offset, own)) && !is_kept(offset)) {
                all.is_known = false;
            } else {
                return;
            }
            if (!work_.options.explain) {
                return;
            }
            if (is_of_system) {
                facts_.add([&] {
                    return sdb::tag_name(own) + ' ' +
                           value_words(candidate_.database, offset, work_.options) + " = unknown";
                });
            } else if (own != tag::pick_one) {
                add_unknown(offset, "");
            } else {
                candidate_.database.for_each_child(
                    offset, [&](std::uint32_t inner, std::uint16_t kind) {
                        if (is_asking(inner, kind) && !is_kept(inner)) {
                            add_unknown(inner, "one of: ");
                        }
                    });
            }
        });
    }

    void add_unknown(std::uint32_t list, std::string_view in_front)
    {
        facts_.add([&] {
            return std::string(in_front) + sdb::tag_name(candidate_.database.tag_from(list)) + ' ' +
                   shortened(model::name_of_list(candidate_.database, list, longest_name)) +
                   " = unknown";
        });
    }

    // Which of a record's lists stand in a choice.
    void note_choices(std::uint32_t record)
    {
        struct open_list {
            sdb::tag_ordinal end;
            std::uint32_t choice; // 0 for what is none
        };
        choices_.clear();
        choices_of_ = record;
        const sdb::sdb_database& database = candidate_.database;
        const sdb::tag_table& relation = database.children();
        const auto ordinal = database.ordinal_of(record);
        if (!ordinal) {
            return;
        }
        std::vector<open_list> open;
        for (const sdb::tag_table::list_row& row :
             relation.lists_in(ordinal->next(), relation.end(*ordinal))) {
            while (!open.empty() && open.back().end <= row.ordinal) {
                open.pop_back();
            }
            const std::uint32_t offset = database.offset_at(row.ordinal);
            if (row.tag == tag::matching_file && !open.empty() && open.back().choice != 0) {
                choices_.push_back({offset, open.back().choice});
            }
            const bool is_choice = row.tag != tag::matching_file && model::is_test(row.tag);
            open.push_back({row.end(), is_choice ? offset : 0});
        }
    }

    // The list of several in which one of a record's lists stands; 0 for none.
    std::uint32_t choice_around(const model::looked_at_list& one)
    {
        if (choices_of_ != one.record) {
            note_choices(one.record);
        }
        const auto found = std::ranges::lower_bound(choices_, one.list, {}, &chosen_list::list);
        return found != choices_.end() && found->list == one.list ? found->choice : 0;
    }

    // Whether the name that a list asks for is that of the program, whatever its case.
    bool is_own_name(const model::compared_property& one) const
    {
        const std::uint32_t at = one.text_from != 0 ? one.text_from : one.offset;
        return uni::equal_ignoring_case(
            model::text_at(candidate_.database, at, model::longest_name_of_file), one.found->text);
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
        list_ = list;
        const model::named_record* const named = named_of(list.record);
        if (work_.options.explain && named != nullptr && (named->is_pattern || kept_.empty())) {
            facts_.add_in_front(fact_of_name(*named));
        }
        tally all;
        for (const kept_list& each : kept_) {
            if (each.choice == 0) {
                count(all, each);
            }
        }
        count_other_tests(all);
        const bool is_near =
            work_.options.explain && all.failed_facts == 1 && all.tested_facts >= 2;
        const bool has_failed = all.failed_tests != 0;
        const bool is_beside = named == nullptr && is_about_another();
        const std::vector<std::string> facts = facts_.take();
        if (is_beside && !has_failed) {
            tell(verdict_on_program::beside, facts);
        } else if (!is_beside && (!has_failed || is_near)) {
            tell(has_failed     ? verdict_on_program::nearly_caught
                 : all.is_known ? verdict_on_program::caught
                                : verdict_on_program::perhaps_caught,
                 facts);
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

    void tell(verdict_on_program what, const std::vector<std::string>& facts)
    {
        using enum verdict_on_program;
        const sdb::sdb_database& database = candidate_.database;
        caught_any_ |= what == caught || what == perhaps_caught;
        const std::string record =
            shortened(model::name_of_list(database, list_.record, longest_name));
        const std::string kind = sdb::tag_name(database.tag_from(list_.record));
        const std::string verdict(verdicts[static_cast<std::size_t>(what)]);
        // The fixes of a record are for the program that it is about.
        form::texts names;
        if (what != beside) {
            names.all = fixes();
        }
        const std::string fixes_text =
            names.all.empty() ? "no fix" : form::value_text(names, work_.options);
        uni::text_buffer words;
        words.text(verdict + " by " + kind + " " + record + " of " + candidate_.path +
                   (what == beside ? " beside that program" : ": " + fixes_text) + "  tag 0x");
        words.hex(list_.record, 8);
        std::vector<std::string> lines = {heading_line(work_.path, words.view())};
        for (const std::string& fact : facts) {
            lines.push_back("    " + fact);
        }
        const auto cells = form::cells_of_table(
            caught_columns,
            {work_.path, candidate_.path, verdict, record, form::hex_number{list_.record},
             list_.list == 0 ? form::value() : form::value(form::hex_number{list_.list}),
             what == beside ? form::value() : form::value(names),
             work_.options.explain ? form::value(form::texts{facts, "; "}) : form::value()});
        work_.form.entry_row("caught", cells, lines);
    }

    struct chosen_list {
        std::uint32_t list;
        std::uint32_t choice;
    };

    const job& work_;
    const model::matchable_database& candidate_;
    std::span<const model::named_record> named_; // of the program's name
    std::size_t told_named_ = 0;
    model::looked_at_list list_;
    std::uint32_t choice_ = 0;         // around it
    std::vector<chosen_list> choices_; // of the record below, ascending
    std::uint32_t choices_of_ = 0;
    fact_list facts_;             // of that record
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
    work.form.table_head(form::cells_of_table(caught_columns));
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
