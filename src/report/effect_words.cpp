#include "report/effect_words.h"

#include <algorithm>

#include "model/record_facts.h"
#include "report/value_words.h"
#include "sdb/tags.h"
#include "sdb/vocabulary.h"

namespace report {

namespace {

namespace tag = sdb::tag;
namespace type = sdb::type;

std::string words_of_patch(const sdb::sdb_database& database, std::uint32_t bits)
{
    if (bits == 0) {
        return "A patch without operations.";
    }
    const uni::byte_view value = database.payload_at(bits);
    const std::uint64_t changes = model::summarize_patch(value).changes;
    const std::string places = changes == 0   ? "nothing"
                               : changes == 1 ? "a place"
                                              : grouped(changes) + " places";
    return "Changes " + places + " of " + model::patched_modules(value) + " in memory.";
}

// The first value of a list of data, with its name.
std::string words_of_datum(const sdb::sdb_database& database, std::uint32_t list,
                           const request::cmd_params& style)
{
    std::string value;
    database.for_each_child(list, [&](std::uint32_t offset, std::uint16_t own) {
        if (value.empty() && own != tag::name && own != tag::data_valuetype &&
            sdb::tag_type(own) != type::list) {
            value = scalar_text(database, offset, style);
        }
    });
    return shortened(model::text_in(database, list, tag::name, longest_part)) + " = " + value;
}

std::string severity_words(std::uint32_t level)
{
    std::string words;
    if ((level & 1) != 0) {
        append_item(words, "soft block");
    }
    if ((level & 2) != 0) {
        append_item(words, "hard block");
    }
    return words.empty() ? hexadecimal(level) : words;
}

// Whether what stands in a record is told by other words than its tag and its values.
bool is_told_elsewhere(std::uint16_t record, std::uint16_t own)
{
    switch (own) {
    case tag::name:
    case tag::wildcard_name:
    case tag::app_name:
    case tag::vendor:
    case tag::exe_id:
    case tag::app_id:
    case tag::fix_id:
    case tag::msi_package_id:
    case tag::match_mode:
    case tag::layer_tagid:
    // Of a definition.
    case tag::command_line:
    case tag::dllfile:
    case tag::module:
    case tag::description:
    case tag::patch_bits:
    case tag::inexclude:
    case tag::kdata:
    // Subjects themselves.
    case tag::exe:
    case tag::msi_package:
    case tag::kdriver:
    case tag::shim:
    case tag::patch:
        return true;
    default:
        return model::is_fix_reference(own) || model::is_test(own) ||
               model::is_test_of_system(own) ||
               (record == tag::kdriver && model::is_fact_of_program(own));
    }
}

} // namespace

effect_words::list_words effect_words::read(std::uint32_t list) const
{
    constexpr std::size_t most = 500; // of what is told of modules and of data
    const std::uint16_t kind = database_.tag_from(list);
    const bool tells_others =
        kind != tag::patch && kind != tag::layer && !model::is_fix_reference(kind);
    list_words made;
    std::string included;
    std::string excluded;
    std::string data;
    const auto note = [&](std::string& to, const std::string& item) {
        if (to.size() < most) {
            append_item(to, item);
        } else if (!to.ends_with("...")) {
            to += ", ...";
        }
    };
    database_.for_each_child(list, [&](std::uint32_t offset, std::uint16_t own) {
        const auto take = [&](std::uint32_t& place) { place = place != 0 ? place : offset; };
        switch (own) {
        case tag::name:
            return take(made.name);
        case tag::command_line:
            return take(made.command_line);
        case tag::dllfile:
            return take(made.dllfile);
        case tag::module:
            return take(made.module);
        case tag::description:
            return take(made.description);
        case tag::patch_bits:
            return take(made.patch_bits);
        case tag::inexclude: {
            const std::uint32_t module = model::child_of(database_, offset, tag::module);
            note(model::child_of(database_, offset, tag::include) != 0 ? included : excluded,
                 module == 0 ? "those without a name" : stored_text(database_, module));
            break;
        }
        case tag::data:
        case tag::kdata:
            note(data, words_of_datum(database_, offset, style_));
            break;
        default:
            // What other kinds of definitions say, such as the masks of a flag.
            if (tells_others && sdb::tag_type(own) != type::list && own != tag::tagid &&
                !sdb::is_expanded_dword_tag(own) && made.others.size() < longest_list &&
                !is_told_elsewhere(kind, own)) {
                made.others +=
                    "; " + words_of_tag(own) + ' ' + scalar_text(database_, offset, style_);
            }
            break;
        }
    });
    if (kind == tag::patch) {
        made.patch = words_of_patch(database_, made.patch_bits);
    }
    made.more += included.empty() ? "" : "; for calls of " + included;
    made.more += excluded.empty() ? "" : "; not for calls of " + excluded;
    made.more += data.empty() ? "" : "; with " + data;
    return made;
}

const effect_words::list_words& effect_words::words_of(std::uint32_t definition)
{
    constexpr std::uint32_t short_list = 1024; // bytes
    if (database_.list_size_from(definition) <= short_list) {
        return last_ = read(definition);
    }
    const auto [place, is_new] = kept_.try_emplace(definition);
    if (is_new) {
        place->second = read(definition);
    }
    return place->second;
}

// What a definition that is not known tells of itself.
std::string effect_words::words_of_unknown(const model::fix_use& use,
                                           const list_words& definition) const
{
    if (use.is_broken) {
        return "It refers to what is no definition of its kind.";
    }
    if (use.definition == 0) {
        return "Not a known name; it refers to no definition in this database.";
    }
    const std::uint16_t own = database_.tag_from(use.definition);
    if (own == tag::patch) {
        return definition.patch;
    }
    if (own == tag::layer) {
        const std::uint32_t shown =
            model::child_of(database_, use.definition, tag::layer_displayname);
        return "A mode that this database defines" +
               (shown == 0 ? std::string()
                           : ", shown as " + quoted(stored_text(database_, shown))) +
               '.';
    }
    std::string words = "Not a known name";
    for (const std::uint32_t file : {definition.dllfile, definition.module}) {
        words += file == 0 ? "" : "; module " + stored_text(database_, file);
    }
    return words + definition.others + '.';
}

const std::string& effect_words::of(const model::fix_use& use, model::subject_judge& judge)
{
    constexpr std::size_t most_bytes = 0x400000;
    const bool is_plain =
        use.definition != 0 && use.name != 0 && use.command_line == 0 && !use.has_data;
    if (!is_plain) {
        made_ = make(use, read(use.reference), judge.fix_of(use));
        return made_;
    }
    const std::uint64_t key = std::uint64_t{use.definition} << 32 | database_.word_behind(use.name);
    if (const auto found = whole_.find(key); found != whole_.end()) {
        return found->second;
    }
    made_ = make(use, read(use.reference), judge.fix_of(use));
    if (whole_bytes_ < most_bytes) {
        whole_bytes_ += made_.size() + sizeof(std::string);
        whole_.emplace(key, made_);
    }
    return made_;
}

std::string effect_words::make(const model::fix_use& use, const list_words& reference,
                               const model::known_fix* known)
{
    static const list_words nothing;
    const list_words& definition = use.definition == 0 ? nothing : words_of(use.definition);
    std::string words =
        shortened(model::name_of_list(database_, use.reference, longest_part)) + ": ";
    words += known != nullptr ? known->words : words_of_unknown(use, definition);
    if (known != nullptr && use.is_broken) {
        words += " It refers to what is no definition of its kind.";
    }
    const bool has_other_name =
        definition.name != 0 && (use.name == 0 || database_.word_behind(use.name) !=
                                                      database_.word_behind(definition.name));
    if (has_other_name && stored_text(database_, definition.name) !=
                              (use.name == 0 ? std::string() : stored_text(database_, use.name))) {
        words +=
            " Its definition is called " + quoted(stored_text(database_, definition.name)) + ".";
    }
    if (known != nullptr && definition.dllfile != 0) { // the words are those of the name
        words += " Here it is of the module " + stored_text(database_, definition.dllfile) + ".";
    }
    const std::uint32_t line =
        reference.command_line != 0 ? reference.command_line : definition.command_line;
    words += line == 0 ? "" : " With " + quoted(stored_text(database_, line)) + ".";
    std::string more = reference.more + definition.more;
    if (definition.description != 0 && known == nullptr) {
        more += "; in its own words: " + quoted(stored_text(database_, definition.description));
    }
    return words + (more.empty() ? "" : " [" + more.substr(2) + "]");
}

// What a message says, and where it leads.
std::string effect_words::said_by(std::uint32_t message)
{
    constexpr std::uint32_t short_list = 1024; // bytes
    const bool is_long = database_.list_size_from(message) > short_list;
    if (is_long) {
        if (const auto kept = said_.find(message); kept != said_.end()) {
            return kept->second;
        }
    }
    std::string words;
    for (const std::uint16_t own : {tag::apphelp_title, tag::apphelp_details}) {
        const std::uint32_t text = model::child_of(database_, message, own);
        words += text == 0 ? "" : ", " + quoted(stored_text(database_, text));
    }
    database_.for_each_child(message, [&](std::uint32_t link, std::uint16_t own) {
        const std::uint32_t address = own == tag::link && words.size() < longest_list
                                          ? model::child_of(database_, link, tag::link_url)
                                          : 0;
        words += address == 0 ? "" : ", link " + quoted(stored_text(database_, address));
    });
    if (is_long) {
        said_.emplace(message, words);
    }
    return words;
}

// How severe a message is, which one it is, and what it says in `words_at`, which is 0 for nothing.
std::string effect_words::words_of_message(std::uint32_t message, std::uint32_t words_at)
{
    const std::uint32_t severity = model::child_of(database_, message, tag::problemseverity);
    const std::uint32_t help = model::child_of(database_, message, tag::htmlhelpid);
    std::string words = "a message of the system";
    words += severity == 0 ? "" : ": " + severity_words(database_.word_behind(severity));
    words += help == 0 ? "" : ", text number " + scalar_text(database_, help, style_);
    return words_at == 0 ? words : words + said_by(words_at);
}

std::vector<own_effect> effect_words::own(std::uint32_t record,
                                          const model::record_groupings& groupings,
                                          model::subject_judge& judge)
{
    std::vector<own_effect> made;
    std::uint64_t more = 0;
    std::uint32_t first_more = 0;
    const std::uint16_t kind = database_.tag_from(record);
    const bool is_definition = model::is_definition(database_, record);
    if (is_definition) {
        model::fix_use itself;
        itself.reference = itself.definition = record;
        itself.name = model::child_of(database_, record, tag::name);
        made.push_back({record, make(itself, {}, judge.fix_of(itself))});
    }
    database_.for_each_child(record, [&](std::uint32_t offset, std::uint16_t own) {
        if (is_told_elsewhere(kind, own) || (is_definition && own == tag::data)) {
            return;
        }
        if (made.size() == most_lines) {
            first_more = more++ == 0 ? offset : first_more;
        } else if (own == tag::apphelp) {
            made.push_back({offset, words_of_message(offset, groupings.words_of(offset))});
        } else if (sdb::tag_type(own) == type::null_) {
            made.push_back({offset, sdb::tag_name(own) + " is set"});
        } else if (sdb::tag_type(own) == type::list) {
            made.push_back(
                {offset, words_of_tag(own) + ": " + scalars_of(database_, offset, style_)});
        } else {
            made.push_back(
                {offset, words_of_tag(own) + ' ' + scalar_text(database_, offset, style_)});
        }
    });
    if (more != 0) {
        made.push_back({first_more, "and " + grouped(more) + " more messages, data and switches"});
    }
    return made;
}

namespace {

// "??" for what was not matched.
std::string bytes_before_text(const model::patch_change& change)
{
    std::string text;
    std::uint64_t at = 0;
    const auto add = [&](uni::byte_view bytes, std::uint64_t count) {
        if (at < most_bytes_shown && count != 0) {
            text += text.empty() ? "" : " ";
            text += bytes_text(bytes, std::min(count, most_bytes_shown - at));
        }
        at += count;
    };
    for (const model::matched_part& part : change.before) {
        add({}, part.at - at);
        add(part.bytes, part.bytes.size());
    }
    add({}, change.after.size() - at);
    return at > most_bytes_shown ? text + " ... (" + grouped(at) + " bytes)" : text;
}

} // namespace

std::string change_line(const model::patch_change& change)
{
    std::string line = "+" + hexadecimal(change.address) + "  ";
    if (change.shares_bytes) {
        return line + grouped(change.after.size()) + " bytes, which other operations use as well";
    }
    if (change.after.size() == 0) {
        return line + "no bytes";
    }
    const std::string after = model::text_spelt(change.after);
    const std::vector<std::uint8_t> bytes_before =
        after.empty() ? std::vector<std::uint8_t>() : model::all_matched(change);
    const uni::byte_view all_before(bytes_before);
    const std::string before = model::text_spelt(all_before);
    const auto is_wide = [](uni::byte_view text) { return text.u8(1) == 0; };
    if (!before.empty() && before != after && is_wide(all_before) == is_wide(change.after)) {
        line += quoted(shortened(before)) + " -> " + quoted(shortened(after));
    } else {
        line += bytes_before_text(change) + " -> " + bytes_text(change.after, change.after.size());
        line += after.empty() ? "" : " " + quoted(shortened(after));
    }
    if (change.matched_at && *change.matched_at != change.address) {
        line += "   (after a match at " + hexadecimal(*change.matched_at) + ")";
    } else if (!change.matched_at) {
        line += change.is_blind         ? "   (nothing was matched before)"
                : change.before.empty() ? "   (not matched there)"
                                        : "   (not matched where it begins)";
    }
    return line;
}

} // namespace report
