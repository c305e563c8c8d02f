#include "model/subject_judge.h"

#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "model/judged_texts.h"
#include "model/patch_changes.h"
#include "model/record_facts.h"
#include "sdb/tags.h"
#include "uni/guid.h"
#include "uni/text.h"
#include "uni/utf.h"

namespace model {

namespace {

namespace tag = sdb::tag;

constexpr std::uint32_t hard_block = 2; // of PROBLEMSEVERITY

// What is told of programs that are named in these lists.
constexpr std::pair<name_list, signal> targets[] = {
    {name_list::core_process, signal::target_core},
    {name_list::security_product, signal::target_security},
    {name_list::elevating_program, signal::target_elevating},
    {name_list::script_host, signal::target_host},
    {name_list::keeper_of_secrets, signal::target_secrets},
};
constexpr unsigned guards = bit_of(name_list::core_process) | bit_of(name_list::security_product);
constexpr unsigned not_to_be_blocked = bit_of(name_list::security_product) |
                                       bit_of(name_list::updater) |
                                       bit_of(name_list::administration_tool);

// The reference by which a name is known, of itself or of what it leads to; 0 for what is known by no name. (A
// patch is told by what it does, whatever it is called.)
std::uint16_t naming_reference(std::uint16_t tag)
{
    switch (tag) {
    case tag::shim:
        return tag::shim_ref;
    case tag::flag:
        return tag::flag_ref;
    case tag::kshim:
        return tag::kshim_ref;
    case tag::kflag:
        return tag::kflag_ref;
    case tag::migration_shim:
        return tag::migration_shim_ref;
    case tag::shim_ref:
    case tag::layer:
    case tag::flag_ref:
    case tag::kshim_ref:
    case tag::kflag_ref:
    case tag::migration_shim_ref:
        return tag;
    default:
        return 0;
    }
}

bool is_fact_of_file(std::uint16_t tag)
{
    const bool is_negation = tag == tag::match_logic_not; // none of its files may be meant
    return is_negation || (tag != tag::name && sdb::tag_type(tag) != sdb::type::null_);
}

} // namespace

class subject_judge::state {
public:
    state(const examined_database& examined, const record_groupings& groupings,
          const request::bounds& bounds)
        : examined_(examined), database_(examined.database), known_(examined.known),
          groupings_(groupings), gatherer_(database_, bounds), texts_(database_, known_)
    {}

    void look_at_plain(subject& seen, std::uint32_t record)
    {
        seen.record = record;
        seen.uses.clear();
        seen.findings.clear();
        seen.is_whole = gatherer_.gather(seen.uses, record);
    }

    void look_at(subject& seen, std::uint32_t record)
    {
        look_at_plain(seen, record);
        to_ = &seen.findings;
        record_ = record;
        const std::uint16_t own = database_.tag_from(record);
        look_at_own_tags(own);
        if ((own == tag::exe || own == tag::app) && groupings_.has_namesake(record)) {
            add(signal::who_duplicate, name_, finding_part(name_));
        }
        if (own == tag::exe) {
            judge_exe();
        } else if (own == tag::patch) {
            judge_patch(record, record);
        } else if (own == tag::shim) {
            judge_lines(record, record, special_fix::none,
                        child_of(database_, record, tag::command_line));
        } else if (own == tag::kdriver) {
            add(signal::driver_entries, record, finding_part(record));
        }
        for (const fix_use& use : seen.uses) {
            judge_use(use);
        }
        seen.findings.settle();
    }

    const known_fix* fix_of(const fix_use& use) { return name_of(use).fix; }

private:
    struct definition_facts {
        std::uint32_t command_line = 0; // tag
        std::uint32_t changes = 0;
        bool is_suspect_code = false;
        std::string modules;     // that a suspect patch changes, as a sentence names them
        std::string core_module; // one that the system rests on
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

    // By the name of the definition, which is what takes effect, and by that of the reference: of two the
    // heavier.
    fix_name name_of(const fix_use& use)
    {
        const std::uint16_t tag = naming_reference(database_.tag_from(use.reference));
        if (tag == 0) {
            return {};
        }
        fix_name found = use.name == 0 ? fix_name() : texts_.fix_called(use.name, tag);
        const std::uint32_t other = use.definition == 0 || begins_with_name_of(use.definition, use)
                                        ? 0
                                        : name_of_definition(use.definition);
        if (other != 0 && (use.name == 0 || reference_of(other) != reference_of(use.name))) {
            const fix_name defined = texts_.fix_called(other, tag);
            const bool is_heavier =
                defined.fix != nullptr &&
                (found.fix == nullptr || defined.fix->weighs >= found.fix->weighs);
            found.fix = is_heavier ? defined.fix : found.fix;
            found.is = defined.is != special_fix::none ? defined.is : found.is;
        }
        return found;
    }

    // Whether a definition begins with the very name of a reference, as nearly all do.
    bool begins_with_name_of(std::uint32_t definition, const fix_use& use) const
    {
        const std::uint32_t first = definition + sdb::tag_header;
        return use.name != 0 && database_.tag_from(first) == tag::name &&
               reference_of(first) == reference_of(use.name);
    }

    std::uint32_t name_of_definition(std::uint32_t definition)
    {
        const auto [place, is_new] = definition_names_.try_emplace(definition);
        if (is_new) {
            place->second = child_of(database_, definition, tag::name);
        }
        return place->second;
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
                facts.changes += static_cast<std::uint32_t>(patch.changes);
                facts.is_suspect_code |=
                    patch.writes_branch || patch.writes_long_run || patch.writes_blindly;
                if (facts.is_suspect_code && facts.modules.empty()) {
                    facts.modules = patched_modules(value);
                }
                if (facts.core_module.empty()) {
                    facts.core_module = core_module_of(value);
                }
            }
        });
        return facts;
    }

    // The first module of a patch that the system itself rests on; empty for none.
    std::string core_module_of(uni::byte_view value) const
    {
        std::string found;
        sdb::for_each_patch_op(value, [&](const sdb::patch_op& op, std::uint64_t) {
            std::string module;
            uni::utf16_to_text(op.module_name, module);
            const std::string stem = stem_of(module);
            if (known_.holds(name_list::core_process, stem) ||
                known_.holds(name_list::core_module, stem)) {
                found = std::move(module);
            }
            return found.empty();
        });
        return found;
    }

    // The tags of the record itself.
    void look_at_own_tags(std::uint16_t own)
    {
        name_ = child_of(database_, record_, tag::name);
        const program_name called =
            own == tag::exe && name_ != 0 ? texts_.program_called(name_) : program_name();
        classes_ = called.classes;
        has_wildcard_ = called.has_wildcard;
        facts_ = 0;
        wildcard_ = 0;
        const bool is_record = own == tag::exe || own == tag::msi_package || own == tag::kdriver;
        database_.for_each_child(record_, [&](std::uint32_t offset, std::uint16_t child) {
            if (child == tag::name && own == tag::exe && offset != name_) {
                classes_ |=
                    texts_.program_called(offset).classes; // one may be meant as well as the other
            } else if (child == tag::wildcard_name && wildcard_ == 0) {
                wildcard_ = offset;
            } else if (child == tag::vendor && texts_.is_maker(offset)) {
                add(signal::who_vendor, offset, finding_part(offset), {}, 1);
            } else if (child == tag::apphelp) {
                judge_message(offset);
            } else if (is_test(child)) {
                database_.for_each_child(offset, [&](std::uint32_t, std::uint16_t fact) {
                    facts_ += is_fact_of_file(fact) ? 1 : 0;
                });
                const std::uint32_t file = child_of(database_, offset, tag::name);
                facts_ += means_the_program(database_, file, name_) ? 0 : 1;
            } else if (sdb::tag_type(child) == sdb::type::null_ && is_record &&
                       known_.holds(name_list::engine_switch, sdb::known_tag_name(child))) {
                add(signal::engine_off, offset, finding_part(offset));
            }
        });
    }

    void judge_exe()
    {
        for (const auto& [list, what] : targets) {
            if ((classes_ & bit_of(list)) != 0) {
                add(what, name_, finding_part(name_));
            }
        }
        if (has_wildcard_) {
            add(signal::target_wildcard, name_, finding_part(name_));
        } else if (wildcard_ != 0 && texts_.program_called(wildcard_).has_wildcard) {
            add(signal::target_wildcard, wildcard_, finding_part(wildcard_));
        }
        if (facts_ == 0 && name_ != 0) {
            add(signal::target_loose, name_, finding_part(name_));
        }
        if (!database_.indexes().empty() && !database_.is_indexed(*database_.ordinal_of(record_))) {
            add(signal::shape_no_index, record_, finding_part(record_), {}, 1);
        }
        if (groupings_.repeats_id(record_)) {
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
        if (level != 0 && !groupings_.has_words(message)) {
            add(signal::shape_silent, message);
        }
    }

    void judge_use(const fix_use& use)
    {
        const std::uint64_t before = to_->count();
        const fix_name name = name_of(use);
        const std::uint16_t own = database_.tag_from(use.reference);
        if (own == tag::patch_ref && use.definition != 0) {
            judge_patch(use.definition, use.reference);
        } else if (own == tag::shim_ref) {
            judge_lines(use.reference, use.definition, name.is, use.command_line);
        }
        if (name.is == special_fix::block && (classes_ & not_to_be_blocked) != 0) {
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
        const finding_kind* kind = known_.kind_called("fix." + fix.family);
        kind = kind != nullptr ? kind : known_.kind_called("fix.other");
        if (fix.family == "weaken") {
            tell_signal(signal::weaken_fix);
        } else if (fix.family == "elevate") {
            tell_signal(signal::elevate_run);
        } else if (!is_covered && kind != nullptr) {
            tell(*kind, fix.weighs);
        }
    }

    // What the command lines of a shim, those of the reference and of the definition, do.
    void judge_lines(std::uint32_t reference, std::uint32_t definition, special_fix is,
                     std::uint32_t own_line)
    {
        const std::uint32_t line =
            own_line != 0 || definition == 0 ? own_line : facts_of(definition).command_line;
        const std::uint32_t at = own_line != 0 ? reference : definition;
        const finding_part name(reference);
        const auto tell = [&](signal what) {
            add(what, reference, name, line == 0 ? finding_part() : finding_part(line),
                line == 0 ? 1 : 0);
        };
        if (is == special_fix::inject) {
            tell(signal::inject_module);
        } else if (is == special_fix::redirect_program) {
            tell(signal::redirect_exe);
        }
        if (line == 0) {
            return;
        }
        const line_facts& facts = texts_.line(line);
        if (!facts.suspect_module.empty()) {
            add(signal::inject_path, at, name, finding_part(facts.suspect_module));
        } else if (is == special_fix::inject && facts.has_item_without_dll) {
            add(signal::inject_path, at, name, finding_part(line));
        }
        if (is == special_fix::redirect_paths && facts.redirects) {
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
        if (!facts.is_suspect_code && facts.core_module.empty()) {
            return;
        }
        if (facts.is_suspect_code) {
            const finding_part module(facts.modules);
            add(signal::patch_code, patch, name, module, facts.changes == 1 ? 0 : 1, facts.changes);
        }
        if (!facts.core_module.empty()) {
            const finding_part module(facts.core_module);
            add(signal::patch_core, patch, name, module);
        }
    }

    const examined_database& examined_;
    const sdb::sdb_database& database_;
    const knowledge& known_;
    const record_groupings& groupings_;
    use_gatherer gatherer_;

    // The subject in work.
    finding_list* to_ = nullptr;
    std::uint32_t record_ = 0;
    std::uint32_t name_ = 0;     // tag
    bool has_wildcard_ = false;  // it
    std::uint32_t wildcard_ = 0; // tag
    std::uint64_t facts_ = 0;    // that tell its file apart
    unsigned classes_ = 0;

    judged_texts texts_;
    std::unordered_map<std::uint32_t, definition_facts> definitions_;   // by offset
    std::unordered_map<std::uint32_t, std::uint32_t> definition_names_; // tags, the same
};

subject_judge::subject_judge(const examined_database& examined, const record_groupings& groupings,
                             const request::bounds& bounds)
    : state_(std::make_unique<state>(examined, groupings, bounds))
{}

subject_judge::~subject_judge() = default;

void subject_judge::look_at(subject& seen, std::uint32_t record)
{
    state_->look_at(seen, record);
}

void subject_judge::look_at_plain(subject& seen, std::uint32_t record)
{
    state_->look_at_plain(seen, record);
}

const known_fix* subject_judge::fix_of(const fix_use& use)
{
    return state_->fix_of(use);
}

} // namespace model
