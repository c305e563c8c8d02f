// What the texts of a database mean, as far as that is a matter of the texts alone: as names of programs, of
// fixes and of makers, and as command lines.
#pragma once

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "model/knowledge.h"
#include "model/text_memo.h"
#include "sdb/database.h"

namespace model {

// What a program is, by its name: a bit for each of these lists.
inline constexpr auto program_lists = std::to_array<name_list>({
    name_list::core_process,
    name_list::security_product,
    name_list::elevating_program,
    name_list::script_host,
    name_list::keeper_of_secrets,
    name_list::updater,
    name_list::administration_tool,
});
constexpr unsigned bit_of(name_list list)
{
    for (std::size_t i = 0; i < program_lists.size(); ++i) {
        if (program_lists[i] == list) {
            return 1u << i;
        }
    }
    return 0;
}
struct program_name {
    unsigned classes = 0; // bits of the lists
    bool has_wildcard = false;
};

// Fixes for which there is more to look at than their family.
enum class special_fix : std::uint8_t { none, inject, redirect_program, redirect_paths, block };
struct fix_name {
    const known_fix* fix = nullptr; // null for one that is not known
    special_fix is = special_fix::none;
};

// What a command line does.
struct line_facts {
    std::string suspect_module; // the first that is one
    bool has_item_without_dll = false;
    bool redirects = false;
};

// Looks at each text once, however many tags refer to it, on one thread. What it is made of must outlive
// it. All texts are told by the offset of a tag that refers to one.
class judged_texts {
public:
    judged_texts(const sdb::sdb_database& database, const knowledge& known);

    program_name program_called(std::uint32_t name);
    // What a reference of this tag leads to by that name.
    fix_name fix_called(std::uint32_t name, std::uint16_t reference);
    const line_facts& line(std::uint32_t line);
    // Whether it names a maker of the system.
    bool is_maker(std::uint32_t vendor);

private:
    // What was found out about a text, as far as it was looked at as each of these.
    enum looked_at : std::uint8_t { as_name = 1, as_line = 2, as_vendor = 4, as_fix = 8 };
    struct text_facts {
        std::uint8_t looked = 0; // as_fix and the bits above it for the kinds of fixes
        std::uint8_t classes = 0;
        bool has_wildcard = false;
        bool is_maker = false;
        line_facts line;
        special_fix is = special_fix::none;
        std::array<std::uint32_t, 4> fixes{}; // in fixes_, from 1 on; 0 for none
    };

    void note_beginning(std::string_view listed);
    text_facts& facts_of(std::uint32_t text, std::uint8_t bit, bool& is_new);
    bool may_be_listed(std::uint32_t name, bool& has_wildcard) const;
    void find_fix(text_facts& facts, const std::string& text, std::size_t kind);

    const sdb::sdb_database& database_;
    const knowledge& known_;
    std::unordered_map<std::string, std::uint8_t> classes_by_stem_;
    std::bitset<0x10000> begins_name_; // by the hash of how a listed name begins
    text_memo<text_facts> texts_;
    std::vector<const known_fix*> fixes_; // that were found
};

} // namespace model
