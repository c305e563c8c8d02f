#include <algorithm>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "model/database_facts.h"
#include "model/examination.h"
#include "model/explain_context.h"
#include "model/place.h"
#include "model/record_facts.h"
#include "report/bounded_text.h"
#include "report/finding_rows.h"
#include "report/reports.h"
#include "report/subject_teller.h"
#include "report/value_words.h"
#include "sdb/tags.h"
#include "uni/ordered_work.h"
#include "uni/text.h"
#include "uni/text_buffer.h"

namespace report {

namespace {

namespace tag = sdb::tag;

constexpr std::size_t in_a_stretch = 256; // subjects that one thread tells at a time
constexpr std::size_t fewest_stretches = 4;
constexpr std::size_t most_helpers = 3;

// What a thread tells at a time.
struct told_stretch {
    uni::text_buffer text;
    subject_teller::surplus_list left_out; // findings
    bool is_whole = false;
    form::stream_state began_in;
    form::stream_state ended_in;
};

// Tells of stretches of subjects on a thread of its own, with a writer of its own.
class stretch_maker {
public:
    stretch_maker(const job& work, const model::examination& all)
        : form_(work.form.fork(text_)), job_(work.with_form(*form_, console_, notices_)),
          teller_(job_, all)
    {}

    void make(std::size_t first, std::size_t end, told_stretch& made)
    {
        made.left_out.clear();
        made.began_in = form_->state();
        teller_.tell_all(first, end, made.left_out);
        made.ended_in = form_->state();
        made.is_whole = !form_->is_cut() && text_.good();
        form_->uncut();
        text_.hand_over(made.text);
    }

private:
    bounded_text text_;
    uni::text_buffer console_; // nothing goes there
    io::kept_notices notices_; // the same
    const std::unique_ptr<form::writer> form_;
    const job job_;
    subject_teller teller_;
};

// What was judged, and as whose, by names.
struct judged_facts : public form::told_facts {
    judged_facts(std::string_view of, const model::examination* judged) : whose(of), all(judged) {}

    std::string_view kind() const override { return "judged"; }
    void tell(form::fact_taker& to) const override
    {
        const auto number = [&](auto count) {
            return all == nullptr ? form::value() : form::value(form::count{count(*all)});
        };
        to.fact("as", std::string(whose));
        to.fact("explained", form::truth{all != nullptr});
        to.fact("subjects", number([](const auto& one) { return one.subject_count(); }));
        to.fact("with_high_finding",
                number([](const auto& one) { return one.with_high_finding(); }));
        to.fact("known", number([](const auto& one) { return one.known_subjects(); }));
    }

    std::string_view whose;
    const model::examination* all; // null where nothing was looked at inside
};

class explainer {
public:
    explainer(const job& work, const model::database_identity& identity, bool is_vendors_own)
        : work_(work), context_(*work.explained), identity_(identity),
          place_(model::place_of(work.path, context_.roots())), examined_{*work.database,
                                                                          context_.known,
                                                                          is_vendors_own,
                                                                          context_.now, work.known}
    {}

    // Tells what is known of the file and of its registration, and no more.
    void tell_outside()
    {
        model::finding_list outside;
        judge_outside(outside, {});
        head(words_of_own() + ": its programs are explained when it is named with -sdb");
        work_.form.facts(judged_facts(whose_word(), nullptr));
        tell_list(outside);
    }

    void tell_all()
    {
        model::finding_filter is_wanted;
        if (is_narrowed(work_.options)) {
            is_wanted = [this](const model::finding& one) {
                return is_asked_for(one, work_.options);
            };
        }
        const model::examination all(examined_, work_.options.bounds, is_wanted, work_.threads);
        model::finding_list outside;
        judge_outside(outside, work_.installed != nullptr ? names_of_programs()
                                                          : std::vector<std::string>());
        head(summary(all));
        work_.form.facts(judged_facts(whose_word(), &all));
        const bool any_outside = tell_list(outside);
        const bool any = tell_list(all.of_database()) || any_outside;
        if (all.subjects().empty() && !any && is_narrowed(work_.options)) {
            work_.form.line("  nothing was found that was asked for");
        }
        tell_subjects(all);
        if (all.cut_at() != 0) {
            work_.notices.fail("%s: not all fixes of its records could be looked at, from tag "
                               "0x%08x on\n",
                               work_.path.c_str(), all.cut_at());
        }
        if (!examined_.is_vendors_own) {
            context_.note({work_.path, identity_.compiler_version});
        }
    }

private:
    void judge_outside(model::finding_list& to, const std::vector<std::string>& programs) const
    {
        model::judge_place(to, examined_, place_, work_.path, identity_);
        if (work_.source != nullptr && work_.source->history() != nullptr) {
            model::judge_file(to, examined_, *work_.source->history(), identity_);
        }
        if (work_.installed != nullptr && place_) {
            context_.note_told(*work_.installed);
        }
        const bool is_orphan =
            context_.lists_for(work_.path).has_installed_key && work_.installed == nullptr &&
            place_ && !examined_.is_vendors_own &&
            model::kind_of_place(context_.known, *place_) == model::place_kind::custom_folder;
        if (is_orphan) {
            to.add(*model::found(examined_, model::signal::reg_orphan, 0));
        }
        model::judge_registration(to, examined_, identity_, work_.installed,
                                  context_.lists_for(work_.path), programs);
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

    bool lies_where_vendors_do() const
    {
        return place_ &&
               model::kind_of_place(context_.known, *place_) == model::place_kind::vendors;
    }

    // By what it is the vendor's own: not of all of theirs the identifier is known.
    std::string words_of_own() const
    {
        return model::has_known_identifier(context_.known, *place_)
                   ? "the vendor's own by place, name and identifier"
                   : "the vendor's own by place and name";
    }

    std::string_view whose_word() const
    {
        return examined_.is_vendors_own  ? "vendor"
               : lies_where_vendors_do() ? "custom in a place of the vendor"
                                         : "custom";
    }

    std::string summary(const model::examination& all) const
    {
        const auto counted = [](std::size_t number, const char* one, const char* more) {
            return std::to_string(number) + " " + (number == 1 ? one : more);
        };
        const std::string whose = examined_.is_vendors_own ? words_of_own()
                                  : lies_where_vendors_do()
                                      ? "in a place of the vendor's, judged as a custom one"
                                      : "custom";
        return whose + ", " +
               (identity_.name_at
                    ? '"' + shortened(model::internal_name(*work_.database, identity_)) + '"'
                    : std::string("without a name")) +
               "; " + counted(all.subject_count(), "subject", "subjects") + ", " +
               std::to_string(all.with_high_finding()) + " with a high finding" +
               (all.known_subjects() == 0
                    ? std::string()
                    : ", " + std::to_string(all.known_subjects()) + " known and left out");
    }

    void head(const std::string& words)
    {
        begin_findings(work_.form);
        work_.form.title(work_.path + ": " + words);
    }

    bool tell_list(const model::finding_list& list)
    {
        bool any = false;
        for (const model::finding& one : list.all()) {
            if (is_asked_for(one, work_.options) && work_.form.takes_more(one.offset)) {
                any = true;
                tell_finding(work_, one, {work_.path, {}});
            }
        }
        work_.form.end_rows();
        say_left_out(list.left_out());
        return any;
    }

    void say_left_out(const subject_teller::surplus_list& left_out) const
    {
        for (const auto& [kind, count] : left_out) {
            work_.notices.say("%s: %llu more findings of the kind %s\n", work_.path.c_str(),
                              static_cast<unsigned long long>(count), kind->id.c_str());
        }
    }

    void tell_subjects(const model::examination& all)
    {
        const bool is_long = all.subjects().size() >= fewest_stretches * in_a_stretch;
        uni::helping_threads helpers(is_long ? work_.threads : nullptr);
        if (helpers.take(most_helpers) == 0 || !tell_stretches(all, helpers.count() + 1)) {
            tell_some(all, 0, all.subjects().size());
        }
    }

    void tell_some(const model::examination& all, std::size_t first, std::size_t end)
    {
        subject_teller::surplus_list left_out;
        subject_teller(work_, all).tell_all(first, end, left_out);
        say_left_out(left_out);
    }

    // Has several threads tell of stretches of the subjects into memory, and takes these in their order. What
    // was begun in another state of the form, or is too long, is told again here. False where there are no threads.
    bool tell_stretches(const model::examination& all, std::size_t threads)
    {
        const std::size_t subjects = all.subjects().size();
        const std::size_t count = (subjects + in_a_stretch - 1) / in_a_stretch;
        const auto end_of = [=](std::size_t number) {
            return std::min((number + 1) * in_a_stretch, subjects);
        };
        const auto make_maker = [&] {
            auto maker = std::make_unique<stretch_maker>(work_, all);
            return [&, maker = std::move(maker)](std::size_t number, told_stretch& made) {
                maker->make(number * in_a_stretch, end_of(number), made);
            };
        };
        uni::ordered_work<told_stretch> work(0, count);
        if (!work.start(threads, make_maker)) {
            return false;
        }
        for (std::size_t number = 0; number < count; ++number) {
            if (!work_.form.takes_more(all.subjects()[number * in_a_stretch])) {
                break;
            }
            const told_stretch& made = work.next();
            if (made.is_whole && made.began_in == work_.form.state() &&
                work_.form.has_room_for(made.text.view().size())) {
                work_.form.take(made.text.view(), 0, made.ended_in);
                say_left_out(made.left_out);
            } else {
                tell_some(all, number * in_a_stretch, end_of(number));
            }
        }
        return true;
    }

    const job& work_;
    const model::explain_context& context_;
    const model::database_identity& identity_;
    const std::optional<std::string> place_;
    const model::examined_database examined_;
};

} // namespace

// What a database would do, subject by subject, and what is unusual about it.
bool explain_database(const job& work)
{
    const model::database_identity identity = model::identity_of(*work.database);
    const auto place = model::place_of(work.path, work.explained->roots());
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
