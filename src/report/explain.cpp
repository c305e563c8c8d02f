#include <algorithm>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

#include "model/database_facts.h"
#include "model/examination.h"
#include "model/explain_context.h"
#include "model/patch_changes.h"
#include "model/place.h"
#include "model/record_facts.h"
#include "report/effect_words.h"
#include "report/explained_subject.h"
#include "report/finding_rows.h"
#include "report/recognition_words.h"
#include "report/reports.h"
#include "report/value_words.h"
#include "sdb/tags.h"
#include "uni/text.h"

namespace report {

namespace {

namespace tag = sdb::tag;

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
            work_.form.line(effect_line(line_, effect.words, effect.offset, 0));
        }
        for (const model::fix_use& use : seen.uses) {
            if (!work_.form.takes_more(use.reference)) {
                break;
            }
            work_.form.line(effect_line(line_, effects_.of(use, all.fix_of(use.reference)),
                                        use.reference, use.depth));
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
    uni::text_buffer line_; // in work
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

} // namespace report
