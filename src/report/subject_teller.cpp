#include "report/subject_teller.h"

#include <string>

#include "model/patch_changes.h"
#include "model/record_facts.h"
#include "report/explained_subject.h"
#include "report/finding_rows.h"
#include "report/value_words.h"
#include "sdb/tags.h"
#include "uni/utf.h"

namespace report {

namespace {

namespace tag = sdb::tag;

constexpr std::string_view gets = "gets";

// The changes that a patch makes, a line each.
std::vector<std::string> change_lines(const sdb::sdb_database& database, std::uint32_t patch)
{
    constexpr std::size_t most_changes = 1000;
    std::vector<std::string> lines;
    std::uint64_t changes = 0;
    std::string last_module;
    database.for_each_child(patch, [&](std::uint32_t offset, std::uint16_t own) {
        if (own == tag::patch_bits) {
            model::for_each_change(database.payload_at(offset),
                                   [&](const model::patch_change& change) {
                                       std::string module;
                                       uni::utf16_to_text(change.module, module);
                                       const bool is_other = changes != 0 && module != last_module;
                                       if (++changes <= most_changes) {
                                           lines.push_back((is_other ? "in " + module + ": " : "") +
                                                           change_line(change));
                                       }
                                       last_module = std::move(module);
                                       return true;
                                   });
        }
    });
    if (changes > most_changes) {
        lines.push_back("and " + std::to_string(changes - most_changes) + " more changes");
    }
    return lines;
}

} // namespace

void subject_teller::tell_all(std::size_t first, std::size_t end, surplus_list& left_out)
{
    for (std::size_t place = first; place < end; ++place) {
        const std::uint32_t record = all_.subjects()[place];
        if (!work_.form.takes_more(record)) {
            return;
        }
        if (all_.is_plain(place)) {
            judge_->look_at_plain(seen_, record);
        } else {
            judge_->look_at(seen_, record);
        }
        tell();
        const surplus_list of_one = seen_.findings.left_out();
        left_out.insert(left_out.end(), of_one.begin(), of_one.end());
    }
}

void subject_teller::tell()
{
    if (work_.form.shows_lines()) {
        tell_recognition();
        tell_effects();
    }
    work_.form.facts(explained_subject(work_, all_, *judge_, seen_, effects_, recognition_));
    tell_findings();
}

void subject_teller::tell_recognition()
{
    const word_lines& lines = recognition_.of(seen_.record);
    title_.clear();
    // Once a record is cut, definitions that records use come by themselves too.
    write_title(title_, *work_.database, seen_.record, all_.cut_at() == 0);
    work_.form.line({});
    work_.form.title(
        heading_line(line_, title_.view(), lines.size() == 0 ? std::string_view() : lines[0]));
    for (std::size_t i = 1; i < lines.size(); ++i) {
        work_.form.line(heading_line(line_, {}, lines[i]));
    }
}

void subject_teller::tell_effects()
{
    for (const own_effect& effect : effects_.own(seen_.record, all_.groupings(), *judge_)) {
        work_.form.line(effect_line(line_, effect.offset == seen_.record ? "gives" : gets,
                                    effect.words, effect.offset, 0));
    }
    for (const model::fix_use& use : seen_.uses) {
        if (!work_.form.takes_more(use.reference)) {
            return;
        }
        work_.form.line(
            effect_line(line_, gets, effects_.of(use, *judge_), use.reference, use.depth));
    }
    if (!seen_.is_whole) {
        work_.form.line(effect_line(line_, gets,
                                    "more, which was not looked at: its layers open up to too much",
                                    seen_.record, 0));
    }
}

void subject_teller::tell_findings()
{
    if (seen_.findings.count() == 0) {
        work_.form.end_rows();
        return;
    }
    const std::string program =
        shortened(model::name_of_list(*work_.database, seen_.record, longest_part));
    std::uint32_t last_patch = 0;
    for (const model::finding& one : seen_.findings.all()) {
        if (!is_asked_for(one, work_.options) || !work_.form.takes_more(one.offset)) {
            continue;
        }
        std::vector<std::string> more;
        const bool is_patch = work_.form.shows_lines() && work_.database->is_recorded(one.offset) &&
                              work_.database->tag_from(one.offset) == tag::patch;
        if (is_patch && one.offset != last_patch) {
            last_patch = one.offset;
            more = all_.is_first_to_tell(one.offset, seen_.record)
                       ? change_lines(*work_.database, one.offset)
                       : std::vector<std::string>{"its changes are shown above"};
        }
        tell_finding(work_, one, {work_.path, program}, more);
    }
    work_.form.end_rows();
}

} // namespace report
