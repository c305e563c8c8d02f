#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

#include "form/facts.h"
#include "model/database_facts.h"
#include "model/examination.h"
#include "model/explain_context.h"
#include "model/place.h"
#include "model/record_facts.h"
#include "report/explained_words.h"
#include "report/finding_rows.h"
#include "report/reports.h"
#include "sdb/tags.h"
#include "uni/numbers.h"
#include "uni/text.h"
#include "uni/utf.h"

namespace report {

namespace {

namespace tag = sdb::tag;

// A subject with what it gets, by names.
class explained_subject : public form::told_facts {
public:
    explained_subject(const job& work, model::examination& all, const model::subject& seen,
                      effect_words& effects, std::unordered_set<std::uint32_t>& told_patches)
        : work_(work), all_(all), seen_(seen), effects_(effects), told_patches_(told_patches)
    {}

    std::string_view kind() const override { return "explained"; }
    void tell(form::fact_taker& to) const override
    {
        const sdb::sdb_database& database = *work_.database;
        to.fact("record", form::count{seen_.record});
        to.fact("tag", form::tag_word{database.tag_from(seen_.record)});
        to.fact("name", model::text_in(database, seen_.record, tag::name));
        to.begin_list("recognised");
        for (const std::string& words : recognition_of(database, seen_.record, work_.options)) {
            to.begin_item();
            to.fact("words", words);
            to.end();
        }
        to.end();
        to.begin_list("fixes");
        for (const model::fix_use& use : seen_.uses) {
            if (to.goes_on()) {
                tell_fix(to, use);
            }
        }
        to.end();
        to.begin_list("effects");
        for (const own_effect& effect : own_effects_of(database, seen_.record, work_.options)) {
            to.begin_item();
            to.fact("at", form::count{effect.offset});
            to.fact("words", effect.words);
            to.end();
        }
        to.end();
        to.fact("complete", form::truth{seen_.is_whole});
    }

private:
    void tell_fix(form::fact_taker& to, const model::fix_use& use) const
    {
        const model::known_fix* const known = all_.fix_of(use.reference);
        const auto or_none = [&](auto member) {
            return known == nullptr || (known->*member).empty() ? form::value()
                                                                : form::value(known->*member);
        };
        to.begin_item();
        to.fact("at", form::count{use.reference});
        to.fact("definition",
                use.definition == 0 ? form::value() : form::value(form::count{use.definition}));
        to.fact("depth", form::count{use.depth});
        to.fact("name", model::text_in(*work_.database, use.reference, tag::name));
        to.fact("known", form::truth{known != nullptr});
        to.fact("family", or_none(&model::known_fix::family));
        to.fact("weight", known == nullptr
                              ? form::value()
                              : form::value(std::string(model::word_of(known->weighs))));
        to.fact("words", effects_.of(use, known));
        if (use.definition != 0 && work_.database->tag_from(use.definition) == tag::patch &&
            told_patches_.insert(use.definition).second) {
            tell_changes(to, use.definition);
        }
        to.end();
    }

    void tell_changes(form::fact_taker& to, std::uint32_t patch) const
    {
        to.begin_list("changes");
        work_.database->for_each_child(patch, [&](std::uint32_t offset, std::uint16_t own) {
            if (own != tag::patch_bits) {
                return;
            }
            model::for_each_change(
                work_.database->payload_at(offset), [&](const model::patch_change& change) {
                    std::string module;
                    uni::utf16_to_text(change.module, module);
                    to.begin_item();
                    to.fact("module", module);
                    to.fact("address", form::count{change.address});
                    to.fact("before", uni::hex_text(change.before.bytes()));
                    to.fact("after", change.shares_bytes
                                         ? form::value()
                                         : form::value(uni::hex_text(change.after.bytes())));
                    to.fact("matched_at", change.matched_at
                                              ? form::value(form::count{*change.matched_at})
                                              : form::value());
                    to.end();
                    return to.goes_on();
                });
        });
        to.end();
    }

    const job& work_;
    model::examination& all_;
    const model::subject& seen_;
    effect_words& effects_;
    std::unordered_set<std::uint32_t>& told_patches_;
};

// The changes that a patch makes, a line each.
std::vector<std::string> change_lines(const sdb::sdb_database& database, std::uint32_t patch)
{
    constexpr std::size_t most_changes = 1000;
    std::vector<std::string> lines;
    std::uint64_t changes = 0;
    database.for_each_child(patch, [&](std::uint32_t offset, std::uint16_t own) {
        if (own == tag::patch_bits) {
            model::for_each_change(database.payload_at(offset),
                                   [&](const model::patch_change& change) {
                                       if (++changes <= most_changes) {
                                           lines.push_back(change_line(change));
                                       }
                                       return true;
                                   });
        }
    });
    if (changes > most_changes) {
        lines.push_back("and " + std::to_string(changes - most_changes) + " more changes");
    }
    return lines;
}

class explainer {
public:
    explainer(const job& work, const model::database_identity& identity, bool is_vendors_own)
        : work_(work), context_(*work.explained), identity_(identity),
          place_(model::place_of(work.path, context_.root)), examined_{*work.database,
                                                                       context_.known,
                                                                       is_vendors_own, context_.now,
                                                                       work.known},
          effects_(*work.database, work.options)
    {}

    // Tells what is known of the file and of its registration, and no more.
    void tell_outside()
    {
        model::finding_list outside;
        judge_outside(outside, {});
        head(
            "the vendor's own by place, name and identifier: its programs are explained when it is "
            "named with -sdb");
        tell_list(outside);
    }

    void tell_all()
    {
        model::examination all(examined_, work_.options.bounds);
        std::vector<std::string> programs;
        if (work_.installed != nullptr) {
            programs = names_of_programs();
        }
        model::finding_list outside;
        judge_outside(outside, programs);
        head(summary(all));
        bool any = tell_list(outside);
        any |= tell_list(all.of_database());
        model::subject seen;
        for (const std::uint32_t record : all.subjects()) {
            if (!work_.form.takes_more(record)) {
                break;
            }
            all.look_at(seen, record);
            any |= tell_subject(all, seen);
        }
        if (!any && is_narrowed(work_.options)) {
            work_.form.line("  nothing was found that was asked for");
        }
        if (cut_ != 0) {
            work_.notices.fail("%s: not all fixes of its records could be looked at, from tag "
                               "0x%08x on\n",
                               work_.path.c_str(), cut_);
        }
        if (!examined_.is_vendors_own) {
            context_.note({work_.path, identity_.compiler_version});
        }
    }

private:
    void judge_outside(model::finding_list& to, const std::vector<std::string>& programs) const
    {
        model::judge_place(to, examined_, place_, work_.path, identity_);
        if (work_.installed != nullptr && place_) {
            context_.note_told(work_.installed->key_path);
        }
        const bool is_orphan =
            context_.lists.has_installed_key && work_.installed == nullptr && place_ &&
            !examined_.is_vendors_own &&
            model::kind_of_place(context_.known, *place_) == model::place_kind::custom_folder;
        if (is_orphan) {
            to.add(*model::found(examined_, model::signal::reg_orphan, 0));
        }
        model::judge_registration(to, examined_, identity_, work_.installed, context_.lists,
                                  programs);
        to.settle();
    }

    // Of the executables, lower-case, ascending, each once.
    std::vector<std::string> names_of_programs() const
    {
        std::vector<std::string> names;
        for (const sdb::tag_table::list_row& list : work_.database->children().lists()) {
            constexpr std::size_t longest = 512;
            if (list.tag == tag::exe) {
                names.push_back(uni::lowered(model::text_in(
                    *work_.database, work_.database->offset_at(list.ordinal), tag::name, longest)));
            }
        }
        std::ranges::sort(names);
        names.erase(std::unique(names.begin(), names.end()), names.end());
        return names;
    }

    std::string summary(const model::examination& all) const
    {
        const auto counted = [](std::size_t number, const char* one, const char* more) {
            return std::to_string(number) + " " + (number == 1 ? one : more);
        };
        const std::string whose =
            examined_.is_vendors_own ? "the vendor's own by place, name and identifier"
            : place_ && model::kind_of_place(context_.known, *place_) == model::place_kind::vendors
                ? "in a place of the vendor's, judged as a custom one"
                : "custom";
        return whose + ", " +
               (identity_.internal_name.empty() ? std::string("without a name")
                                                : '"' + shortened(identity_.internal_name) + '"') +
               "; " + counted(all.subjects().size(), "subject", "subjects") + ", " +
               std::to_string(all.with_high_finding()) + " with a high finding" +
               (all.known_subjects() == 0
                    ? std::string()
                    : ", " + std::to_string(all.known_subjects()) + " known and left out");
    }

    void head(const std::string& words) { work_.form.line(work_.path + ": " + words); }

    bool tell_list(const model::finding_list& list)
    {
        bool any = false;
        for (const model::finding& one : list.all()) {
            if (is_asked_for(one, work_.options) && work_.form.takes_more(one.offset)) {
                any = true;
                tell_finding(work_, one, {work_.path, {}});
            }
        }
        say_left_out(list);
        return any;
    }

    void say_left_out(const model::finding_list& list) const
    {
        for (const auto& [kind, count] : list.left_out()) {
            work_.notices.say("%s: %llu more findings of the kind %s\n", work_.path.c_str(),
                              static_cast<unsigned long long>(count), kind->id.c_str());
        }
    }

    bool tell_subject(model::examination& all, const model::subject& seen)
    {
        const bool has_any =
            std::ranges::any_of(seen.findings.all(), [&](const model::finding& one) {
                return is_asked_for(one, work_.options);
            });
        if (!seen.is_whole && cut_ == 0) {
            cut_ = seen.record;
        }
        if (!has_any && is_narrowed(work_.options)) {
            return false;
        }
        const sdb::sdb_database& database = *work_.database;
        const std::vector<std::string> recognised =
            recognition_of(database, seen.record, work_.options);
        work_.form.line({});
        work_.form.line(heading_line(title_of(database, seen.record),
                                     recognised.empty() ? std::string() : recognised.front()));
        for (std::size_t i = 1; i < recognised.size(); ++i) {
            work_.form.line(heading_line({}, recognised[i]));
        }
        for (const own_effect& effect : own_effects_of(database, seen.record, work_.options)) {
            work_.form.line(effect_line(effect.words, effect.offset, 0));
        }
        for (const model::fix_use& use : seen.uses) {
            if (!work_.form.takes_more(use.reference)) {
                break;
            }
            work_.form.line(
                effect_line(effects_.of(use, all.fix_of(use.reference)), use.reference, use.depth));
        }
        work_.form.facts(explained_subject(work_, all, seen, effects_, told_patches_));
        tell_findings(seen);
        return has_any;
    }

    void tell_findings(const model::subject& seen)
    {
        constexpr std::size_t longest = 512;
        const std::string program =
            shortened(model::name_of_list(*work_.database, seen.record, longest));
        std::uint32_t last_patch = 0;
        for (const model::finding& one : seen.findings.all()) {
            if (!is_asked_for(one, work_.options) || !work_.form.takes_more(one.offset)) {
                continue;
            }
            std::vector<std::string> more;
            const bool is_patch = work_.database->is_recorded(one.offset) &&
                                  work_.database->tag_from(one.offset) == tag::patch;
            if (is_patch && one.offset != last_patch) {
                last_patch = one.offset;
                more = shown_patches_.insert(one.offset).second
                           ? change_lines(*work_.database, one.offset)
                           : std::vector<std::string>{"its changes are shown above"};
            }
            tell_finding(work_, one, {work_.path, program}, more);
        }
        say_left_out(seen.findings);
    }

    const job& work_;
    const model::explain_context& context_;
    const model::database_identity& identity_;
    const std::optional<std::string> place_;
    const model::examined_database examined_;
    effect_words effects_;
    // Patches whose changes were told, which is done once.
    std::unordered_set<std::uint32_t> shown_patches_;
    std::unordered_set<std::uint32_t> told_patches_;
    std::uint32_t cut_ = 0;
};

} // namespace

// What a database would do, subject by subject, and what is unusual about it.
bool explain_database(const job& work)
{
    const model::database_identity identity = model::identity_of(*work.database);
    const auto place = model::place_of(work.path, work.explained->root);
    const bool is_own = model::is_vendors_own(work.explained->known, place, identity);
    explainer made(work, identity, is_own);
    if (is_own && !work.is_named) {
        made.tell_outside();
    } else {
        made.tell_all();
    }
    return true;
}

namespace {

// What is told of one database stands together, the database with the heaviest finding first.
void put_heaviest_first(std::vector<model::placed_finding>& all)
{
    std::map<std::string, model::weight> heaviest;
    for (const model::placed_finding& one : all) {
        model::weight& weight = heaviest[one.database];
        weight = std::max(weight, one.found.weighs);
    }
    std::ranges::stable_sort(all, [&](const auto& a, const auto& b) {
        const model::weight of_a = heaviest[a.database];
        const model::weight of_b = heaviest[b.database];
        return of_a != of_b               ? of_a > of_b
               : a.database != b.database ? a.database < b.database
                                          : a.found.weighs > b.found.weighs;
    });
}

} // namespace

// What the registry says of compatibility and does not fit together, and what tells one database from the
// others.
bool explain_machine(const job& work)
{
    const model::explain_context& context = *work.explained;
    model::registry_lists lists = context.lists;
    lists.told = context.told();
    std::vector<model::placed_finding> all =
        model::judge_registry(context.known, work.targets->installed, lists, work.is_there);
    for (model::placed_finding& one : model::judge_compilers(context.known, context.seen())) {
        all.push_back(std::move(one));
    }
    std::erase_if(all, [&](const model::placed_finding& one) {
        return !is_asked_for(one.found, work.options);
    });
    if (all.empty()) {
        return false;
    }
    put_heaviest_first(all);
    work.form.line({});
    work.form.line("the registry and the databases together:");
    std::string_view last;
    for (const model::placed_finding& one : all) {
        if (one.database != last && !one.database.empty()) {
            work.form.line(heading_line(shortened(one.database), {}));
        }
        last = one.database;
        if (!tell_finding(work, one.found, {one.database, one.program})) {
            break;
        }
    }
    return true;
}

} // namespace report
