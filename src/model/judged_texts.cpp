#include "model/judged_texts.h"

#include <algorithm>
#include <utility>

#include "model/record_facts.h"
#include "model/suspect_paths.h"
#include "sdb/tags.h"
#include "uni/text.h"

namespace model {

namespace {

constexpr std::pair<std::string_view, special_fix> special_fixes[] = {
    {"injectdll", special_fix::inject},
    {"redirectexe", special_fix::redirect_program},
    {"correctfilepaths", special_fix::redirect_paths},
    {"redirectshortcut", special_fix::redirect_paths},
    {"modifyshelllinkpath", special_fix::redirect_paths},
    {"setenvironmentvariable", special_fix::redirect_paths},
    {"terminateexe", special_fix::block},
    {"ignoreloadlibrary", special_fix::block},
};

// Kinds of fixes, as the tables call them.
constexpr std::size_t shim_kind = 0;

std::size_t kind_of_reference(std::uint16_t reference)
{
    switch (reference) {
    case sdb::tag::layer:
        return 1;
    case sdb::tag::flag_ref:
    case sdb::tag::kflag_ref:
        return 2;
    case sdb::tag::kshim_ref:
        return 3;
    default:
        return shim_kind;
    }
}

constexpr std::size_t key_length = 4; // characters of a name, up to its dot

std::uint32_t key_part(char c, std::size_t place)
{
    return std::uint32_t{static_cast<unsigned char>(uni::lower_ascii(c))} << (place * 8);
}

std::size_t place_of_key(std::uint32_t key)
{
    constexpr std::uint32_t spread = 0x9e3779b1; // 2^32 divided by the golden ratio
    return key * spread >> 16;
}

} // namespace

judged_texts::judged_texts(const sdb::sdb_database& database, const knowledge& known)
    : database_(database), known_(known), texts_(database)
{
    for (const name_list list : program_lists) {
        for (const auto& [name, note] : known_.entries(list)) {
            std::uint8_t& classes = classes_by_stem_[name];
            classes = static_cast<std::uint8_t>(classes | bit_of(list));
            note_beginning(name);
        }
    }
}

void judged_texts::note_beginning(std::string_view listed)
{
    std::uint32_t key = 0;
    for (std::size_t i = 0; i < std::min(key_length, listed.find('.')) && i < listed.size(); ++i) {
        key |= key_part(listed[i], i);
    }
    begins_name_[place_of_key(key)] = true;
}

// `bit` tells as what the text is looked at, and `is_new` whether for the first time.
judged_texts::text_facts& judged_texts::facts_of(std::uint32_t text, std::uint8_t bit, bool& is_new)
{
    text_facts& facts = texts_.of(database_.word_behind(text), [] { return text_facts(); });
    is_new = (facts.looked & bit) == 0;
    facts.looked = static_cast<std::uint8_t>(facts.looked | bit);
    return facts;
}

program_name judged_texts::program_called(std::uint32_t name)
{
    bool is_new = false;
    text_facts& facts = facts_of(name, as_name, is_new);
    if (is_new && may_be_listed(name, facts.has_wildcard)) {
        const auto known = classes_by_stem_.find(stem_of(text_at(database_, name)));
        if (known != classes_by_stem_.end()) {
            facts.classes = known->second;
        }
    }
    return {facts.classes, facts.has_wildcard};
}

// Whether a name begins like one of a list, which most do not: it spares them the rest.
bool judged_texts::may_be_listed(std::uint32_t name, bool& has_wildcard) const
{
    const uni::byte_view stored = database_.string_bytes(database_.word_behind(name));
    std::uint64_t begin = 0; // of the last part
    std::uint16_t unit = stored.u16(0);
    for (std::uint64_t at = 0; unit != 0; at += 2, unit = stored.u16(at)) {
        has_wildcard = has_wildcard || unit == '*' || unit == '?';
        begin = unit == '\\' || unit == '/' ? at + 2 : begin;
    }
    std::uint32_t key = 0;
    for (std::size_t i = 0; i < key_length; ++i) {
        unit = stored.u16(begin + i * 2);
        if (unit >= 0x80) {
            return true; // as a byte it may be several
        }
        if (unit == 0 || unit == '.') {
            break;
        }
        key |= key_part(static_cast<char>(unit), i);
    }
    return begins_name_[place_of_key(key)];
}

fix_name judged_texts::fix_called(std::uint32_t name, std::uint16_t reference)
{
    const std::size_t kind = kind_of_reference(reference);
    bool is_new = false;
    text_facts& facts = facts_of(name, static_cast<std::uint8_t>(as_fix << kind), is_new);
    if (is_new) {
        find_fix(facts, text_at(database_, name), kind);
    }
    const std::uint32_t number = facts.fixes[kind];
    return {number == 0 ? nullptr : fixes_[number - 1],
            kind == shim_kind ? facts.is : special_fix::none};
}

void judged_texts::find_fix(text_facts& facts, const std::string& text, std::size_t kind)
{
    if (const known_fix* const fix = known_.fix(text, fix_kinds[kind])) {
        fixes_.push_back(fix);
        facts.fixes[kind] = static_cast<std::uint32_t>(fixes_.size());
    }
    for (const auto& [special_name, is] : special_fixes) {
        if (uni::equal_ignoring_case(text, special_name)) {
            facts.is = is;
        }
    }
}

const line_facts& judged_texts::line(std::uint32_t line)
{
    bool is_new = false;
    text_facts& facts = facts_of(line, as_line, is_new);
    if (is_new) {
        const std::string text = text_at(database_, line);
        facts.line.suspect_module = first_suspect_module(known_, text);
        facts.line.has_item_without_dll = has_item_without_dll(text);
        facts.line.redirects = redirects_to_writable(known_, text);
    }
    return facts.line;
}

bool judged_texts::is_maker(std::uint32_t vendor)
{
    bool is_new = false;
    text_facts& facts = facts_of(vendor, as_vendor, is_new);
    if (is_new) {
        const std::string text = uni::lowered(text_at(database_, vendor));
        facts.is_maker = known_.holds_word(name_list::system_maker, text);
    }
    return facts.is_maker;
}

} // namespace model
