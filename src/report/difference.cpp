#include <algorithm>
#include <string>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

#include "form/facts.h"
#include "model/database_facts.h"
#include "model/differences.h"
#include "model/patch_changes.h"
#include "model/record_facts.h"
#include "report/effect_words.h"
#include "report/finding_rows.h"
#include "report/reports.h"
#include "report/told_database.h"
#include "report/value_words.h"
#include "sdb/patch_op.h"
#include "sdb/tags.h"
#include "sdb/vocabulary.h"
#include "uni/byte_view.h"
#include "uni/marks.h"
#include "uni/numbers.h"
#include "uni/text_buffer.h"
#include "uni/utf.h"

namespace report {

namespace {

namespace tag = sdb::tag;

constexpr std::array<std::string_view, 12> difference_columns = {
    "database", "other",  "change", "record", "name",        "record_offset", "other_record_offset",
    "fact",     "before", "after",  "offset", "other_offset"};

constexpr std::string_view change_words[] = {"added", "removed", "changed"};

std::string_view word_of(model::change_kind kind)
{
    return change_words[static_cast<std::size_t>(kind)];
}

// How two databases compare, by names.
struct comparison_facts : public form::told_facts {
    std::string_view kind() const override { return "compared"; }
    void tell(form::fact_taker& to) const override
    {
        const model::database_identity identity = model::identity_of(*work.other);
        to.fact("other", work.other_path);
        to.fact("other_id",
                identity.identifier.empty() ? form::value() : form::value(identity.identifier));
        const std::string name = model::internal_name(*work.other, identity);
        to.fact("other_name", name.empty() ? form::value() : form::value(name));
        to.fact("unchanged", form::count{counts.unchanged});
        to.fact("changed", form::count{counts.changed});
        to.fact("added", form::count{counts.added});
        to.fact("removed", form::count{counts.removed});
    }

    comparison_facts(const job& from, const model::difference_counts& of) : work(from), counts(of)
    {}

    const job& work;
    const model::difference_counts& counts;
};

// Tells what differs, a row each.
class difference_teller : public model::difference_listener {
public:
    explicit difference_teller(const job& work) : work_(work) {}

    bool record(const model::record_change& one) override
    {
        record_ = one;
        const sdb::sdb_database& told = one.after != 0 ? *work_.other : *work_.database;
        const std::uint32_t offset = one.after != 0 ? one.after : one.before;
        const std::uint16_t own = told.tag_from(offset);
        kind_ = sdb::tag_name(own);
        name_.clear();
        if (own != tag::database) {
            write_name_of_list(name_, told, offset);
        }
        if (one.kind != model::change_kind::changed && !work_.form.shows_lines()) {
            return row(one, {}, {}, {});
        }
        line_.clear();
        line_.left(word_of(one.kind), 9);
        line_.left(kind_, 14);
        line_.text(name_.view());
        line_.blanks(columns_ - std::min<std::size_t>(columns_, line_.view().size()));
        line_.character(' ');
        write_places(line_, one);
        return work_.form.takes_more(offset) && work_.form.line(line_.view());
    }

    bool fact(const model::record_change& one) override
    {
        const sdb::sdb_database& told = one.after != 0 ? *work_.other : *work_.database;
        const std::uint32_t offset = one.after != 0 ? one.after : one.before;
        const std::uint16_t own = told.tag_from(offset);
        if (own == tag::patch_bits && one.kind == model::change_kind::changed) {
            return tell_patch(one);
        }
        std::string before = text_of(*work_.database, one.before);
        std::string after = text_of(*work_.other, one.after);
        if (one.kind == model::change_kind::changed && look_alike(before, after)) {
            show_difference(one, own, before, after);
        }
        if (one.kind == model::change_kind::changed && look_alike(before, after)) {
            const auto [from, to] = bytes_apart(stored_bytes(*work_.database, one.before),
                                                stored_bytes(*work_.other, one.after));
            before += " (" + from + ")";
            after += " (" + to + ")";
        }
        return tell_fact(one, sdb::tag_name(own), before, after);
    }

    bool reached(const model::record_change& one, bool is_reached_before,
                 bool is_reached_after) override
    {
        return tell_fact(one, "index", is_reached_before ? "leads here" : "none leads here",
                         !is_reached_after   ? "none leads here"
                         : is_reached_before ? "leads here by other entries"
                                             : "leads here");
    }

    bool astray(std::uint64_t before, std::uint64_t after) override
    {
        const auto words = [](std::uint64_t number) {
            return std::to_string(number) + (number == 1 ? " entry leads" : " entries lead") +
                   " to no record";
        };
        kind_ = "head";
        return tell_fact({}, "index", words(before),
                         before == after ? "other " + words(after) : words(after));
    }

    bool stands(const model::record_change& one, const model::record_place& before,
                const model::record_place& after) override
    {
        return tell_fact(one, "stands", place_words(before), place_words(after));
    }

    // What stands in front of the database.
    void tell_head()
    {
        const auto indexes = [](const sdb::sdb_database& of) {
            return of.indexes().empty() ? "none" : std::to_string(of.indexes().size());
        };
        tell_versions();
        if (work_.database->indexes().empty() != work_.other->indexes().empty()) {
            kind_ = "head";
            tell_fact({}, "indexes", indexes(*work_.database), indexes(*work_.other));
        }
    }

private:
    static std::string place_words(const model::record_place& place)
    {
        if (place.around == 0) {
            return "in no list";
        }
        const std::string kind = sdb::tag_name(place.around);
        return place.before_last == 0
                   ? "in the " + kind
                   : "in a " + kind + ", " + std::to_string(place.before_last) + " before the last";
    }

    void tell_versions()
    {
        const auto version = [](const sdb::sdb_database& of) {
            return std::to_string(of.version_major()) + "." + std::to_string(of.version_minor());
        };
        const std::string before = version(*work_.database);
        const std::string after = version(*work_.other);
        if (before != after) {
            kind_ = "head";
            tell_fact({}, "version", before, after);
        }
    }

    static constexpr std::size_t longest = 300;

    static bool look_alike(const std::string& before, const std::string& after)
    {
        return before == after || (before.size() < longest && after.size() < longest &&
                                   uni::marked(before) == uni::marked(after));
    }

    // Where two values begin to differ, and with which bytes.
    static std::pair<std::string, std::string> bytes_apart(uni::byte_view before,
                                                           uni::byte_view after)
    {
        constexpr std::uint64_t most_shown = 16;
        const std::uint64_t begin = static_cast<std::uint64_t>(
            std::ranges::mismatch(before.bytes(), after.bytes()).in1 - before.bytes().begin());
        const auto words = [&](uni::byte_view value) {
            const std::string place = " byte " + std::to_string(begin);
            return value.size() == begin
                       ? "ends at" + place
                       : "from" + place + " on " +
                             uni::hex_text(
                                 uni::beginning_of(value.from(begin), most_shown).bytes());
        };
        return {words(before), words(after)};
    }

    // Has values that look alike, as they are cut or lead to namesakes, show where they differ.
    void show_difference(const model::record_change& one, std::uint16_t own, std::string& before,
                         std::string& after)
    {
        if (sdb::tag_type(own) == sdb::type::dword) {
            const std::uint32_t from = work_.database->word_behind(one.before);
            const std::uint32_t to = work_.other->word_behind(one.after);
            before += " at " + hexadecimal(from);
            after = (from == to ? "another " : "") + after + " at " + hexadecimal(to);
            return;
        }
        if (sdb::tag_type(own) != sdb::type::stringref && sdb::tag_type(own) != sdb::type::string) {
            return;
        }
        const std::uint64_t key = std::uint64_t{work_.database->word_behind(one.before)} << 32 |
                                  work_.other->word_behind(one.after);
        const bool is_reference = sdb::tag_type(own) == sdb::type::stringref;
        if (const auto kept = shown_.find(key); is_reference && kept != shown_.end()) {
            std::tie(before, after) = kept->second;
            return;
        }
        const uni::byte_view from = stored_bytes(*work_.database, one.before);
        const uni::byte_view to = stored_bytes(*work_.other, one.after);
        constexpr std::uint64_t shown_before = 40; // bytes
        std::uint64_t begin = static_cast<std::uint64_t>(
            std::ranges::mismatch(from.bytes(), to.bytes()).in1 - from.bytes().begin());
        begin -= begin % 2 + std::min(begin - begin % 2, shown_before);
        if (begin != 0 && from.u16(begin) >= 0xdc00 && from.u16(begin) < 0xe000) {
            begin -= 2; // to the first half of a pair
        }
        if (begin != 0) {
            before = quoted_from(from, begin);
            after = quoted_from(to, begin);
        }
        if (is_reference) {
            shown_.emplace(key, std::pair(before, after));
        }
    }

    static uni::byte_view stored_bytes(const sdb::sdb_database& database, std::uint32_t offset)
    {
        return sdb::tag_type(database.tag_from(offset)) == sdb::type::stringref
                   ? database.string_bytes(database.word_behind(offset))
                   : database.payload_at(offset);
    }

    static std::string quoted_from(uni::byte_view stored, std::uint64_t begin)
    {
        std::string text;
        uni::utf16_to_text(uni::beginning_of(stored.from(begin), longest), text);
        return quoted("..." + shortened(std::move(text)));
    }

    // The text of a scalar, or the name of a list.
    std::string text_of(const sdb::sdb_database& database, std::uint32_t offset) const
    {
        if (offset == 0) {
            return {};
        }
        const std::uint16_t kind = sdb::tag_type(database.tag_from(offset));
        if (kind == sdb::type::stringref && !database.has_string(database.word_behind(offset))) {
            return "no text at " + hexadecimal(database.word_behind(offset));
        }
        return kind == sdb::type::list ? shortened(model::name_of_list(database, offset, longest))
                                       : value_words(database, offset, work_.options);
    }

    static void write_places(uni::text_buffer& text, const model::record_change& one)
    {
        const auto write = [&](std::uint32_t offset) {
            if (offset != 0) {
                text.literal("tag 0x");
                text.hex(offset, 8);
            }
        };
        write(one.before);
        text.text(one.before != 0 && one.after != 0 ? " -> " : "");
        write(one.after);
    }

    bool tell_fact(const model::record_change& one, const std::string& fact,
                   const std::string& before, const std::string& after)
    {
        if (!work_.form.shows_lines()) {
            return row(one, fact, before, after);
        }
        line_.clear();
        line_.blanks(2);
        line_.left(word_of(one.kind), 9);
        line_.left(fact, 24);
        line_.character(' ');
        line_.text(one.kind == model::change_kind::added ? "" : before);
        line_.text(one.kind == model::change_kind::changed ? " -> " : "");
        line_.text(one.kind == model::change_kind::removed ? "" : after);
        line_.text(one.before == 0 && one.after == 0 ? "" : "  ");
        write_places(line_, one);
        return work_.form.takes_more(one.after != 0 ? one.after : one.before) &&
               work_.form.line(line_.view());
    }

    static std::vector<std::string> lines_of(uni::byte_view patch)
    {
        constexpr std::size_t most = 10'000;
        std::vector<std::string> lines;
        model::for_each_change(patch, [&](const model::patch_change& change) {
            lines.push_back(change_line(change));
            return lines.size() < most;
        });
        std::ranges::sort(lines);
        return lines;
    }

    // What stands in a patch beside the changes that `told` lines tell of: its other operations, in order, and
    // how much is behind them.
    static std::string besides(uni::byte_view patch, const std::vector<std::string>& told)
    {
        std::string all;
        const auto add = [&](uni::byte_view bytes) {
            all += std::to_string(bytes.size()) + ":";
            all.append(bytes.bytes().begin(), bytes.bytes().end());
        };
        std::uint64_t behind = 0;
        sdb::for_each_patch_op(patch, [&](const sdb::patch_op& op, std::uint64_t position) {
            behind = position + op.next_size;
            if (sdb::op_name(op.opcode) != "replace") {
                all += std::to_string(op.opcode) + "," + std::to_string(op.address) + ",";
                add(op.module_name);
                add(op.data);
            }
            return true;
        });
        model::for_each_change(patch, [&](const model::patch_change& change) {
            if (!std::ranges::binary_search(told, change_line(change))) {
                all += std::to_string(change.address) + ",";
                add(change.after);
                for (const model::matched_part& part : change.before) {
                    all += std::to_string(part.at) + ":";
                    add(part.bytes);
                }
            }
            add(change.module);
            return true;
        });
        return all + std::to_string(patch.size() - std::min(behind, patch.size()));
    }

    // The changes that one patch makes and the other does not.
    bool tell_patch(const model::record_change& one)
    {
        const uni::byte_view value_before = work_.database->payload_at(one.before);
        const uni::byte_view value_after = work_.other->payload_at(one.after);
        const std::vector<std::string> before = lines_of(value_before);
        const std::vector<std::string> after = lines_of(value_after);
        const auto size_words = [](uni::byte_view value) {
            return std::to_string(value.size()) + (value.size() == 1 ? " byte" : " bytes");
        };
        std::vector<std::string> gone;
        std::vector<std::string> come;
        std::ranges::set_difference(before, after, std::back_inserter(gone));
        std::ranges::set_difference(after, before, std::back_inserter(come));
        if (!tell_fact(one, "patch_bits", size_words(value_before), size_words(value_after))) {
            return false;
        }
        const bool is_all_told = !(gone.empty() && come.empty()) &&
                                 besides(value_before, gone) == besides(value_after, come);
        if (!is_all_told) {
            const auto [from, to] = bytes_apart(value_before, value_after);
            tell_fact(one, "bytes", from, to);
        }
        for (const std::string& line : gone) {
            tell_fact({model::change_kind::removed, one.before, 0}, "change", line, {});
        }
        for (const std::string& line : come) {
            tell_fact({model::change_kind::added, 0, one.after}, "change", {}, line);
        }
        return work_.form.goes_on();
    }

    bool row(const model::record_change& one, const std::string& fact, const std::string& before,
             const std::string& after)
    {
        const auto place = [](std::uint32_t offset) {
            return offset == 0 ? form::value() : form::value(form::hex_number{offset});
        };
        auto cells = form::cells_of_table(
            difference_columns,
            {work_.path, work_.other_path, std::string(word_of(one.kind)), kind_,
             form::text_or_none(name_.view()), place(record_.before), place(record_.after),
             form::text_or_none(fact), form::text_or_none(before), form::text_or_none(after),
             place(one.before), place(one.after)});
        cells[0].names_document = true;
        return work_.form.takes_more(one.after != 0 ? one.after : one.before) &&
               work_.form.entry_row("difference", cells, {});
    }

    static constexpr std::size_t columns_ = 48; // of what a line begins with

    const job& work_;
    // The record in work.
    model::record_change record_;
    std::string kind_;
    uni::text_buffer name_;
    uni::text_buffer line_; // in work
    // How texts of which one place alone differs are shown, by the references to both.
    std::unordered_map<std::uint64_t, std::pair<std::string, std::string>> shown_;
};

} // namespace

// What another database has that this one has not, and the other way round.
bool tell_differences(const job& work)
{
    const told_database about(work);
    work.form.begin({work.database, work.path, &about});
    difference_teller teller(work);
    work.form.table_head(form::cells_of_table(difference_columns));
    work.form.title(work.path + " -> " + work.other_path + ":");
    teller.tell_head();
    const model::difference_counts counts =
        model::compare_databases(*work.database, *work.other, teller, work.threads);
    const auto words = [](std::uint64_t number, const char* what) {
        return std::to_string(number) + " " + what;
    };
    const bool is_same = counts.changed + counts.added + counts.removed == 0;
    const std::string summary =
        (is_same ? "no record differs; " : "") +
        words(counts.unchanged,
              counts.unchanged == 1 ? "record stands unchanged, " : "records stand unchanged, ") +
        words(counts.changed, "changed, ") + words(counts.added, "added, ") +
        words(counts.removed, "removed");
    work.form.line(summary);
    if (!work.form.shows_lines() && !work.form.shows_facts()) {
        work.notices.say("%s -> %s: %s\n", work.path.c_str(), work.other_path.c_str(),
                         summary.c_str());
    }
    work.form.line({});
    work.form.facts(comparison_facts(work, counts));
    work.form.end();
    return true;
}

// That one of two folders or volumes alone has a database.
bool tell_lone_database(const job& work)
{
    const bool is_added = work.path.empty();
    const std::string& path = is_added ? work.other_path : work.path;
    const model::record_change change{is_added ? model::change_kind::added
                                               : model::change_kind::removed};
    uni::text_buffer line;
    line.left(word_of(change.kind), 9);
    line.left("database", 14);
    line.text(path);
    auto cells = form::cells_of_table(
        difference_columns, {form::text_or_none(work.path), form::text_or_none(work.other_path),
                             std::string(word_of(change.kind)), std::string("database"), path});
    cells[0].names_document = true;
    const std::string lines[] = {std::string(line.view())};
    return work.form.entry_row("difference", cells, lines) && work.form.end_rows();
}

} // namespace report
