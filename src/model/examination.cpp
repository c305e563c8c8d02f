#include "model/examination.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <unordered_map>
#include <utility>

#include "io/large_vector.h"
#include "model/content.h"
#include "model/patch_changes.h"
#include "model/record_facts.h"
#include "model/suspect_paths.h"
#include "model/text_memo.h"
#include "sdb/tags.h"
#include "uni/guid.h"
#include "uni/text.h"
#include "uni/utf.h"

namespace model {

namespace {

namespace tag = sdb::tag;

constexpr std::uint64_t worth[] = {0, 1, 3, 9}; // of weights, in the sum that orders subjects
constexpr std::uint32_t hard_block = 2;         // of PROBLEMSEVERITY

// What a program is, by its name: a bit for each of these lists.
constexpr auto program_lists = std::to_array<std::pair<name_list, signal>>({
    {name_list::core_process, signal::target_core},
    {name_list::security_product, signal::target_security},
    {name_list::elevating_program, signal::target_elevating},
    {name_list::script_host, signal::target_host},
    {name_list::keeper_of_secrets, signal::target_secrets},
    {name_list::updater, signal::count},
    {name_list::administration_tool, signal::count},
});
constexpr unsigned bit_of(name_list list)
{
    for (std::size_t i = 0; i < program_lists.size(); ++i) {
        if (program_lists[i].first == list) {
            return 1u << i;
        }
    }
    return 0;
}
constexpr unsigned guards = bit_of(name_list::core_process) | bit_of(name_list::security_product);
constexpr unsigned not_to_be_blocked = bit_of(name_list::security_product) |
                                       bit_of(name_list::updater) |
                                       bit_of(name_list::administration_tool);

// Fixes for which there is more to look at than their family.
enum class special : std::uint8_t { none, inject, redirect_program, redirect_paths, block };
constexpr std::pair<std::string_view, special> special_fixes[] = {
    {"injectdll", special::inject},
    {"redirectexe", special::redirect_program},
    {"correctfilepaths", special::redirect_paths},
    {"redirectshortcut", special::redirect_paths},
    {"modifyshelllinkpath", special::redirect_paths},
    {"setenvironmentvariable", special::redirect_paths},
    {"terminateexe", special::block},
    {"ignoreloadlibrary", special::block},
};

std::string_view kind_of_reference(std::uint16_t tag)
{
    switch (tag) {
    case tag::layer:
        return "layer";
    case tag::flag_ref:
    case tag::kflag_ref:
        return "flag";
    case tag::kshim_ref:
        return "kernel-shim";
    default:
        return "shim";
    }
}

bool is_fact_of_file(std::uint16_t tag)
{
    return tag != tag::name && sdb::tag_type(tag) != sdb::type::null_;
}

bool is_matching_list(std::uint16_t tag)
{
    return tag == tag::matching_file || tag == tag::matching_reg || tag == tag::matching_text ||
           tag == tag::matching_device || tag == tag::matching_info_block;
}

} // namespace

std::optional<finding> found(const examined_database& examined, signal what, std::uint32_t offset)
{
    const finding_kind& kind = examined.known.of(what);
    if (kind.is_custom_only && examined.is_vendors_own) {
        return std::nullopt;
    }
    const bool is_weightless = examined.is_vendors_own && (kind.group == finding_group::target ||
                                                           kind.group == finding_group::effect ||
                                                           kind.group == finding_group::shape);
    finding made;
    made.kind = &kind;
    made.weighs = is_weightless ? weight::none : kind.weighs;
    made.offset = offset;
    return made;
}

void finding_list::add(finding one)
{
    ++count_;
    auto count = std::ranges::find(counts_, one.kind, &surplus::kind);
    if (count == counts_.end()) {
        count = counts_.insert(counts_.end(), surplus{one.kind, 0});
    }
    if (++count->count <= most_of_a_kind) {
        findings_.push_back(std::move(one));
    }
}

void finding_list::clear()
{
    findings_.clear();
    counts_.clear();
    count_ = 0;
}

void finding_list::settle()
{
    std::ranges::stable_sort(findings_, [](const finding& a, const finding& b) {
        return std::make_pair(-static_cast<int>(a.weighs), std::string_view(a.kind->id)) <
               std::make_pair(-static_cast<int>(b.weighs), std::string_view(b.kind->id));
    });
}

std::vector<finding_list::surplus> finding_list::left_out() const
{
    std::vector<surplus> made;
    for (const surplus& one : counts_) {
        if (one.count > most_of_a_kind) {
            made.push_back({one.kind, one.count - most_of_a_kind});
        }
    }
    return made;
}

// Judges one subject after the other. What it takes to judge a text or a definition is kept, as many refer
// to one.
class examination::subject_judge {
public:
    subject_judge(const examined_database& examined, const request::bounds& bounds)
        : examined_(examined), database_(examined.database),
          known_(examined.known), first_allowance_{bounds.record_items,
                                                   bounds.listing_items +
                                                       bounds.listing_items_of_a_tag *
                                                           examined.database.tag_count()},
          allowance_(first_allowance_), names_(database_), hashes_(database_), fixes_(database_),
          lines_(database_), makers_(database_)
    {
        for (std::size_t i = 0; i < program_lists.size(); ++i) {
            for (const auto& [name, note] : known_.entries(program_lists[i].first)) {
                classes_by_stem_[name] |= 1u << i;
            }
        }
        note_messages();
        note_duplicates();
    }

    void begin_anew() { allowance_ = first_allowance_; }

    void look_at(subject& seen, std::uint32_t record)
    {
        seen.record = record;
        seen.uses.clear();
        seen.findings.clear();
        to_ = &seen.findings;
        record_ = record;
        const std::uint16_t own = database_.tag_from(record);
        look_at_own_tags(own);
        if (own == tag::exe) {
            judge_exe();
        } else if (own == tag::patch) {
            judge_patch(record, record);
        } else if (own == tag::shim) {
            judge_lines(record, record, special::none);
        } else if (own == tag::kdriver) {
            add(signal::driver_entries, record, finding_part(record));
        }
        seen.is_whole = gather_fix_uses(seen.uses, database_, record, allowance_);
        for (const fix_use& use : seen.uses) {
            judge_use(use);
        }
        seen.findings.settle();
    }

    const known_fix* fix_of(std::uint32_t reference) { return name_of(reference).fix; }

private:
    // What there is to know of the name of a fix.
    struct fix_name {
        const known_fix* fix = nullptr;
        special is = special::none;
    };
    // What a command line does.
    struct line_facts {
        bool has_suspect_module = false;
        bool has_item_without_dll = false;
        bool redirects = false;
    };
    struct definition_facts {
        std::uint32_t command_line = 0; // tag
        std::uint32_t bits = 0;         // the first of a patch
        std::uint32_t changes = 0;
        bool is_suspect_code = false;
        bool names_core_module = false;
    };
    struct fix_names {
        std::array<fix_name, 4> of_kind; // shim, layer, flag, kernel-shim
        std::array<bool, 4> is_known{};
    };
    struct name_facts {
        unsigned classes = 0;
        bool has_wildcard = false;
    };

    void add(signal what, std::uint32_t offset, finding_part first = {}, finding_part second = {},
             std::size_t variant = 0, std::uint64_t number = 0)
    {
        if (std::optional<finding> made = found(examined_, what, offset)) {
            made->first = std::move(first);
            made->second = std::move(second);
            made->variant = variant;
            made->number = number;
            to_->add(*std::move(made));
        }
    }

    std::uint32_t reference_of(std::uint32_t text_tag) const
    {
        return database_.word_behind(text_tag);
    }

    const name_facts& facts_of_name(std::uint32_t name)
    {
        return names_.of(reference_of(name), [&] {
            name_facts facts;
            const std::string text = uni::lowered(text_at(database_, name));
            facts.has_wildcard = text.find_first_of("*?") != std::string::npos;
            const auto known = classes_by_stem_.find(stem_of(text));
            facts.classes = known == classes_by_stem_.end() ? 0 : known->second;
            return facts;
        });
    }

    // Of a text, ASCII case aside.
    std::uint64_t hash_of_text(std::uint32_t text)
    {
        return hashes_.of(reference_of(text), [&] {
            const std::string lower = uni::lowered(text_at(database_, text));
            return keyed_digest(key_, 0, uni::byte_view(uni::bytes_of(lower))).low;
        });
    }

    fix_name name_of(std::uint32_t reference)
    {
        const std::uint32_t name = child_of(database_, reference, tag::name);
        if (name == 0) {
            return {};
        }
        const std::string_view kind = kind_of_reference(database_.tag_from(reference));
        fix_names& names = fixes_.of(reference_of(name), [] { return fix_names(); });
        const std::size_t number = kind == "shim"    ? 0
                                   : kind == "layer" ? 1
                                   : kind == "flag"  ? 2
                                                     : 3;
        if (!names.is_known[number]) {
            names.is_known[number] = true;
            names.of_kind[number] = find_fix(text_at(database_, name), kind);
        }
        return names.of_kind[number];
    }

    fix_name find_fix(const std::string& text, std::string_view kind) const
    {
        fix_name found{known_.fix(text, kind), special::none};
        for (const auto& [special_name, is] : special_fixes) {
            if (kind == "shim" && uni::equal_ignoring_case(text, special_name)) {
                found.is = is;
            }
        }
        return found;
    }

    const line_facts& facts_of_line(std::uint32_t line)
    {
        return lines_.of(reference_of(line), [&] {
            line_facts facts;
            const std::string text = text_at(database_, line);
            const std::vector<std::string> modules = modules_named(text);
            facts.has_suspect_module = std::ranges::any_of(modules, [&](const std::string& module) {
                return is_suspect_module(known_, module);
            });
            facts.has_item_without_dll = has_item_without_dll(text);
            facts.redirects = redirects_to_writable(known_, text);
            return facts;
        });
    }

    const definition_facts& facts_of(std::uint32_t definition)
    {
        const auto [place, is_new] = definitions_.try_emplace(definition);
        if (is_new) {
            place->second = read_definition(definition);
        }
        return place->second;
    }

    definition_facts read_definition(std::uint32_t definition) const
    {
        definition_facts facts;
        database_.for_each_child(definition, [&](std::uint32_t offset, std::uint16_t own) {
            if (own == tag::command_line && facts.command_line == 0) {
                facts.command_line = offset;
            } else if (own == tag::patch_bits) {
                const uni::byte_view value = database_.payload_at(offset);
                const patch_summary patch = summarize_patch(value);
                facts.bits = facts.bits != 0 ? facts.bits : offset;
                facts.changes += static_cast<std::uint32_t>(patch.changes);
                facts.is_suspect_code |=
                    patch.writes_branch || patch.writes_long_run || patch.writes_blindly;
                facts.names_core_module |= names_core_module(value);
            }
        });
        return facts;
    }

    bool names_core_module(uni::byte_view value) const
    {
        bool does = false;
        sdb::for_each_patch_op(value, [&](const sdb::patch_op& op, std::uint64_t) {
            std::string module;
            uni::utf16_to_text(op.module_name, module);
            const std::string stem = stem_of(module);
            does = known_.holds(name_list::core_process, stem) ||
                   known_.holds(name_list::core_module, stem);
            return !does;
        });
        return does;
    }

    // The tags of the record itself.
    void look_at_own_tags(std::uint16_t own)
    {
        name_ = child_of(database_, record_, tag::name);
        classes_ = own == tag::exe && name_ != 0 ? facts_of_name(name_).classes : 0;
        facts_ = 0;
        const bool is_record = own == tag::exe || own == tag::msi_package || own == tag::kdriver;
        database_.for_each_child(record_, [&](std::uint32_t offset, std::uint16_t child) {
            if (child == tag::vendor && is_maker(offset)) {
                add(signal::who_vendor, offset, finding_part(offset), {}, 1);
            } else if (child == tag::apphelp) {
                judge_message(offset);
            } else if (is_matching_list(child)) {
                database_.for_each_child(offset, [&](std::uint32_t, std::uint16_t fact) {
                    facts_ += is_fact_of_file(fact) ? 1 : 0;
                });
                const std::uint32_t file = child_of(database_, offset, tag::name);
                facts_ += file != 0 && !is_own_name(file) ? 1 : 0;
            } else if (sdb::tag_type(child) == sdb::type::null_ && is_record &&
                       known_.holds(name_list::engine_switch, sdb::known_tag_name(child))) {
                add(signal::engine_off, offset, finding_part(offset));
            }
        });
    }

    // Whether the name of a matching file means the program itself.
    bool is_own_name(std::uint32_t file)
    {
        if (name_ != 0 && reference_of(file) == reference_of(name_)) {
            return true;
        }
        const uni::byte_view stored = database_.string_bytes(reference_of(file));
        if (stored.u16(0) == '*' && stored.u16(2) == 0) {
            return true;
        }
        constexpr std::size_t longest = 512;
        return name_ != 0 && uni::equal_ignoring_case(text_at(database_, file, longest),
                                                      text_at(database_, name_, longest));
    }

    bool is_maker(std::uint32_t vendor)
    {
        return makers_.of(reference_of(vendor), [&]() -> std::uint8_t {
            const std::string text = uni::lowered(text_at(database_, vendor));
            return known_.found_in(name_list::system_maker, text) != nullptr ? 1 : 0;
        }) != 0;
    }

    void judge_exe()
    {
        for (std::size_t i = 0; i < program_lists.size(); ++i) {
            if ((classes_ >> i & 1) != 0 && program_lists[i].second != signal::count) {
                add(program_lists[i].second, name_, finding_part(name_));
            }
        }
        for (const std::uint32_t name : {name_, child_of(database_, record_, tag::wildcard_name)}) {
            if (name != 0 && facts_of_name(name).has_wildcard) {
                add(signal::target_wildcard, name, finding_part(name));
                break;
            }
        }
        if (facts_ == 0 && name_ != 0) {
            add(signal::target_loose, name_, finding_part(name_));
        }
        if (!database_.indexes().empty() && !database_.is_indexed(*database_.ordinal_of(record_))) {
            add(signal::shape_no_index, record_, finding_part(record_), {}, 1);
        }
        if (std::ranges::binary_search(duplicate_names_, record_)) {
            add(signal::who_duplicate, name_, finding_part(name_));
        }
        if (std::ranges::binary_search(duplicate_ids_, record_)) {
            const std::uint32_t id = child_of(database_, record_, tag::exe_id);
            const std::string text = uni::guid_text(database_.payload_at(id).bytes());
            add(signal::who_duplicate, id, finding_part(text), {}, 1);
        }
    }

    void judge_message(std::uint32_t message)
    {
        const std::uint32_t severity = child_of(database_, message, tag::problemseverity);
        const std::uint32_t level = severity == 0 ? 0 : database_.word_behind(severity);
        if ((level & hard_block) != 0 && (classes_ & not_to_be_blocked) != 0) {
            add(signal::block_program, message, {}, {}, 1);
        }
        const std::uint32_t help = child_of(database_, message, tag::htmlhelpid);
        const bool has_words =
            help != 0 ? has_words_by_id_[database_.word_behind(help)] : has_words_itself(message);
        if (level != 0 && !has_words) {
            add(signal::shape_silent, message);
        }
    }

    bool has_words_itself(std::uint32_t message)
    {
        bool has = false;
        database_.for_each_child(message, [&](std::uint32_t, std::uint16_t child) {
            has = has || child == tag::apphelp_title || child == tag::apphelp_details ||
                  child == tag::apphelp_contact || child == tag::link || child == tag::link_text ||
                  child == tag::link_url || child == tag::url;
        });
        return has;
    }

    void note_messages()
    {
        for (const sdb::tag_table::list_row& list : database_.children().lists()) {
            if (list.tag != tag::apphelp) {
                continue;
            }
            const std::uint32_t message = database_.offset_at(list.ordinal);
            if (const std::uint32_t help = child_of(database_, message, tag::htmlhelpid)) {
                has_words_by_id_[database_.word_behind(help)] |= has_words_itself(message);
            }
        }
    }

    // What an APP or EXE is told apart by.
    struct named_record {
        std::uint64_t name; // hash
        std::uint32_t record;
        auto operator<=>(const named_record&) const = default;
    };
    struct numbered_record {
        std::array<std::uint8_t, uni::guid_size> id;
        std::uint32_t record;
        auto operator<=>(const numbered_record&) const = default;
    };

    // The fixes of a record, whatever their order.
    std::uint64_t hash_of_fixes(std::uint32_t record)
    {
        std::uint64_t sum = 0;
        database_.for_each_child(record, [&](std::uint32_t offset, std::uint16_t child) {
            if (!is_fix_reference(child) && child != tag::apphelp) {
                return;
            }
            std::uint64_t names[3] = {};
            database_.for_each_child(offset, [&](std::uint32_t inner, std::uint16_t own) {
                if (own == tag::name) {
                    names[0] = hash_of_text(inner);
                } else if (own == tag::command_line) {
                    names[1] = hash_of_text(inner);
                } else if (sdb::is_expanded_dword_tag(own)) {
                    names[2] = database_.word_behind(inner);
                }
            });
            std::uint8_t bytes[sizeof(names)];
            std::memcpy(bytes, names, sizeof(names));
            sum += keyed_digest(key_, child, uni::byte_view(bytes)).low;
        });
        return sum;
    }

    bool have_other_fixes(std::span<named_record> same)
    {
        const std::uint64_t fixes = hash_of_fixes(same.front().record);
        return std::ranges::any_of(same.subspan(1), [&](const named_record& one) {
            return hash_of_fixes(one.record) != fixes;
        });
    }

    void note_duplicates()
    {
        std::vector<named_record> named;
        std::vector<numbered_record> numbered;
        for (const sdb::tag_table::list_row& list : database_.children().lists()) {
            if (list.tag != tag::exe) {
                continue;
            }
            const std::uint32_t record = database_.offset_at(list.ordinal);
            if (const std::uint32_t name = child_of(database_, record, tag::name)) {
                named.push_back({hash_of_text(name), record});
            }
            const std::uint32_t id = child_of(database_, record, tag::exe_id);
            if (id != 0 && database_.payload_at(id).size() == uni::guid_size) {
                numbered_record& one = numbered.emplace_back();
                std::ranges::copy(database_.payload_at(id).bytes(), one.id.begin());
                one.record = record;
            }
        }
        std::ranges::sort(named);
        for (std::size_t first = 0, i = 0; i < named.size(); first = i) {
            while (i < named.size() && named[i].name == named[first].name) {
                ++i;
            }
            const std::span same = std::span(named).subspan(first, i - first);
            if (same.size() > 1 && have_other_fixes(same)) {
                std::ranges::transform(same, std::back_inserter(duplicate_names_),
                                       &named_record::record);
            }
        }
        std::ranges::sort(numbered);
        for (std::size_t i = 1; i < numbered.size(); ++i) {
            if (numbered[i].id == numbered[i - 1].id) {
                duplicate_ids_.push_back(numbered[i].record);
            }
        }
        std::ranges::sort(duplicate_names_);
        std::ranges::sort(duplicate_ids_);
    }

    void judge_use(const fix_use& use)
    {
        const std::uint64_t before = to_->count();
        const fix_name name = name_of(use.reference);
        const std::uint16_t own = database_.tag_from(use.reference);
        if (own == tag::patch_ref && use.definition != 0) {
            judge_patch(use.definition, use.reference);
        } else if (own == tag::shim_ref) {
            judge_lines(use.reference, use.definition, name.is);
        }
        if (name.is == special::block && (classes_ & not_to_be_blocked) != 0) {
            add(signal::block_program, use.reference, finding_part(use.reference));
        }
        if (name.fix != nullptr) {
            judge_family(use, *name.fix, to_->count() != before);
        }
    }

    void judge_family(const fix_use& use, const known_fix& fix, bool is_covered)
    {
        const auto tell = [&](const finding_kind& kind, weight weighs) {
            finding made;
            made.kind = &kind;
            made.weighs = examined_.is_vendors_own ? weight::none : weighs;
            made.offset = use.reference;
            made.first = finding_part(use.reference);
            made.second = finding_part(fix.words);
            made.of_fix = &fix;
            to_->add(std::move(made));
        };
        const auto tell_signal = [&](signal what) {
            tell(known_.of(what), known_.of(what).weighs);
        };
        if (fix.family == "hide" && (classes_ & guards) != 0) {
            tell_signal(signal::hide_ui);
            is_covered = true;
        }
        if (fix.weighs < weight::medium) {
            return;
        }
        const finding_kind* const kind = known_.kind_called("fix." + fix.family);
        if (fix.family == "weaken") {
            tell_signal(signal::weaken_fix);
        } else if (fix.family == "elevate") {
            tell_signal(signal::elevate_run);
        } else if (!is_covered && kind != nullptr) {
            tell(*kind, fix.weighs);
        }
    }

    // What the command lines of a shim, those of the reference and of the definition, do.
    void judge_lines(std::uint32_t reference, std::uint32_t definition, special is)
    {
        const std::uint32_t own_line = child_of(database_, reference, tag::command_line);
        const std::uint32_t line =
            own_line != 0 || definition == 0 ? own_line : facts_of(definition).command_line;
        const std::uint32_t at = own_line != 0 ? reference : definition;
        const finding_part name(reference);
        const auto tell = [&](signal what) {
            add(what, reference, name, line == 0 ? finding_part() : finding_part(line),
                line == 0 ? 1 : 0);
        };
        if (is == special::inject) {
            tell(signal::inject_module);
        } else if (is == special::redirect_program) {
            tell(signal::redirect_exe);
        }
        if (line == 0) {
            return;
        }
        const line_facts& facts = facts_of_line(line);
        if (facts.has_suspect_module || (is == special::inject && facts.has_item_without_dll)) {
            add(signal::inject_path, at, name, finding_part(line));
        }
        if (is == special::redirect_paths && facts.redirects) {
            add(signal::redirect_path, at, name, finding_part(line));
        }
    }

    // The facts of a patch that nothing refers to are not kept: it is looked at once.
    void judge_patch(std::uint32_t patch, std::uint32_t reference)
    {
        const definition_facts facts =
            patch == reference ? read_definition(patch) : facts_of(patch);
        const finding_part name(reference);
        add(signal::patch_custom, patch, name);
        if (!facts.is_suspect_code && !facts.names_core_module) {
            return;
        }
        const finding_part module(patched_module(database_.payload_at(facts.bits)));
        if (facts.is_suspect_code) {
            add(signal::patch_code, patch, name, module, facts.changes == 1 ? 0 : 1, facts.changes);
        }
        if (facts.names_core_module) {
            add(signal::patch_core, patch, name, module);
        }
    }

    const examined_database& examined_;
    const sdb::sdb_database& database_;
    const knowledge& known_;
    const use_allowance first_allowance_;
    use_allowance allowance_;

    // The subject in work.
    finding_list* to_ = nullptr;
    std::uint32_t record_ = 0;
    std::uint32_t name_ = 0;  // tag
    std::uint64_t facts_ = 0; // that tell its file apart
    unsigned classes_ = 0;

    const content_key key_ = random_content_key();
    std::unordered_map<std::string, unsigned> classes_by_stem_;
    text_memo<name_facts> names_;
    text_memo<std::uint64_t> hashes_;
    text_memo<fix_names> fixes_;
    text_memo<line_facts> lines_;
    text_memo<std::uint8_t> makers_;

    std::unordered_map<std::uint32_t, definition_facts> definitions_; // by offset
    std::unordered_map<std::uint32_t, bool> has_words_by_id_;         // of messages
    std::vector<std::uint32_t> duplicate_names_;                      // records, ascending
    std::vector<std::uint32_t> duplicate_ids_;
};

namespace {

// What references lead to, ascending.
std::vector<std::uint32_t> used_definitions(const sdb::sdb_database& database)
{
    std::vector<std::uint32_t> used;
    for (const sdb::tag_table::reference& reference : database.children().references()) {
        used.push_back(reference.target);
    }
    std::ranges::sort(used);
    return used;
}

bool has_reference(const sdb::sdb_database& database, std::uint32_t list)
{
    bool has = false;
    database.for_each_child(list, [&](std::uint32_t, std::uint16_t child) {
        has = has || is_fix_reference(child) || is_matching_list(child);
    });
    return has;
}

// The records that a database is about, as they stand: programs, packages and drivers, whatever else has
// fixes or tests files, and definitions to which nothing refers.
std::vector<std::uint32_t> subjects_of(const sdb::sdb_database& database)
{
    const std::vector<std::uint32_t> used = used_definitions(database);
    const auto is_unused = [&](std::uint32_t record) {
        return !std::ranges::binary_search(used, record);
    };
    std::vector<std::uint32_t> subjects;
    for (const sdb::tag_table::list_row& list : database.children().lists()) {
        const std::uint32_t record = database.offset_at(list.ordinal);
        switch (list.tag) {
        case tag::exe:
        case tag::msi_package:
        case tag::kdriver:
            subjects.push_back(record);
            break;
        case tag::shim:
        case tag::patch:
            if (is_unused(record)) {
                subjects.push_back(record);
            }
            break;
        default:
            break;
        }
    }
    const auto database_list = database.ordinal_of(database.database_offset());
    if (database_list) {
        database.for_each_child(
            database.database_offset(), [&](std::uint32_t offset, std::uint16_t own) {
                const bool is_told = own == tag::exe || own == tag::msi_package ||
                                     own == tag::kdriver || own == tag::shim || own == tag::patch ||
                                     own == tag::library || own == tag::apphelp ||
                                     sdb::tag_type(own) != sdb::type::list;
                if (!is_told && has_reference(database, offset) &&
                    (own != tag::layer || is_unused(offset))) {
                    subjects.push_back(offset);
                }
            });
    }
    std::ranges::sort(subjects);
    return subjects;
}

} // namespace

examination::examination(const examined_database& examined, const request::bounds& bounds)
    : judge_(std::make_unique<subject_judge>(examined, bounds)),
      order_(subjects_of(examined.database))
{
    if (examined.known_ones != nullptr) {
        known_ = std::erase_if(
            order_, [&](std::uint32_t record) { return examined.known_ones->holds(record); });
    }
    struct rank {
        std::uint64_t sum;
        std::uint32_t record;
        bool is_high;
    };
    io::roomy_vector<rank> ranks;
    subject seen;
    for (const std::uint32_t record : order_) {
        judge_->look_at(seen, record);
        rank one{0, record, false};
        for (const finding& each : seen.findings.all()) {
            one.sum += worth[static_cast<std::size_t>(each.weighs)];
            one.is_high = one.is_high || each.weighs == weight::high;
        }
        with_high_ += one.is_high ? 1 : 0;
        ranks.push_back(one);
    }
    std::ranges::stable_sort(ranks, [](const rank& a, const rank& b) {
        return a.is_high != b.is_high ? a.is_high : a.sum > b.sum;
    });
    std::ranges::transform(ranks, order_.begin(), &rank::record);
    judge_->begin_anew();
    judge_database(of_database_, examined);
    of_database_.settle();
}

examination::~examination() = default;

void examination::look_at(subject& seen, std::uint32_t record)
{
    judge_->look_at(seen, record);
}

const known_fix* examination::fix_of(std::uint32_t reference)
{
    return judge_->fix_of(reference);
}

} // namespace model
