#include "report/explained_subject.h"

#include <string>

#include "model/patch_changes.h"
#include "model/record_facts.h"
#include "sdb/tags.h"
#include "uni/numbers.h"
#include "uni/utf.h"

namespace report {

namespace tag = sdb::tag;

void explained_subject::tell(form::fact_taker& to) const
{
    const sdb::sdb_database& database = *work_.database;
    to.fact("record", form::hex_number{seen_.record});
    to.fact("tag", form::tag_word{database.tag_from(seen_.record)});
    to.fact("name", model::text_in(database, seen_.record, tag::name));
    to.begin_list("recognised");
    const word_lines& recognised = recognition_.of(seen_.record);
    for (std::size_t i = 0; i < recognised.size(); ++i) {
        to.begin_item();
        to.fact("words", std::string(recognised[i]));
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
    for (const own_effect& effect : effects_.own(seen_.record, all_.groupings(), judge_)) {
        to.begin_item();
        to.fact("at", form::hex_number{effect.offset});
        to.fact("words", effect.words);
        to.end();
    }
    to.end();
    if (database.tag_from(seen_.record) == tag::patch) {
        tell_changes(to, seen_.record);
    }
    to.fact("complete", form::truth{seen_.is_whole});
}

void explained_subject::tell_fix(form::fact_taker& to, const model::fix_use& use) const
{
    const model::known_fix* const known = judge_.fix_of(use);
    const auto or_none = [&](auto member) {
        return known == nullptr || (known->*member).empty() ? form::value()
                                                            : form::value(known->*member);
    };
    to.begin_item();
    to.fact("at", form::hex_number{use.reference});
    to.fact("definition",
            use.definition == 0 ? form::value() : form::value(form::hex_number{use.definition}));
    to.fact("depth", form::count{use.depth});
    to.fact("name", model::text_in(*work_.database, use.reference, tag::name));
    to.fact("known", form::truth{known != nullptr});
    to.fact("family", or_none(&model::known_fix::family));
    to.fact("weight", known == nullptr ? form::value()
                                       : form::value(std::string(model::word_of(known->weighs))));
    to.fact("words", effects_.of(use, judge_));
    if (use.definition != 0 && work_.database->tag_from(use.definition) == tag::patch &&
        all_.is_first_to_tell(use.definition, seen_.record)) {
        tell_changes(to, use.definition);
    }
    to.end();
}

void explained_subject::tell_changes(form::fact_taker& to, std::uint32_t patch) const
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
                to.fact("address", form::hex_number{change.address});
                const std::vector<std::uint8_t> before = model::all_matched(change);
                to.fact("before", uni::hex_text(before));
                if (before.empty() && !change.before.empty()) {
                    to.begin_list("before_in_part");
                    for (const model::matched_part& part : change.before) {
                        to.begin_item();
                        to.fact("at", form::count{part.at});
                        to.fact("bytes", uni::hex_text(part.bytes.bytes()));
                        to.end();
                    }
                    to.end();
                }
                to.fact("after", change.shares_bytes
                                     ? form::value()
                                     : form::value(uni::hex_text(change.after.bytes())));
                to.fact("matched_at", change.matched_at
                                          ? form::value(form::hex_number{*change.matched_at})
                                          : form::value());
                to.end();
                return to.goes_on();
            });
    });
    to.end();
}

} // namespace report
