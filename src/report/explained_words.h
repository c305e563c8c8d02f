// The words of an explanation: careful ones, of what is proven and what it may mean.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "model/examination.h"
#include "model/finding.h"
#include "model/patch_changes.h"
#include "request/cmd_params.h"
#include "sdb/database.h"

namespace report {

// A text no longer than a reader takes in; what is left out shows as "...".
std::string shortened(std::string text);

// What the value of a scalar is shown as: a text in quotes, a binary in hexadecimal or by its length.
std::string value_words(const sdb::sdb_database& database, std::uint32_t offset,
                        const request::cmd_params& style);

// The reason of a finding. `database` is the one in which its tags stand; null for one of no database.
std::string reason_of(const model::finding& found, const sdb::sdb_database* database,
                      const request::cmd_params& style);

// "HIGH", or what stands where a finding has no weight.
std::string weight_column(model::weight one);

// What a subject is called, and what it is where it is no program.
std::string title_of(const sdb::sdb_database& database, std::uint32_t record);

// How a program is recognised, a line for each file, registry value and the like that is tested.
std::vector<std::string> recognition_of(const sdb::sdb_database& database, std::uint32_t record,
                                        const request::cmd_params& style);

// What fixes do, with their arguments. What it takes to tell of a long definition is kept, as many may refer
// to it.
class effect_words {
public:
    effect_words(const sdb::sdb_database& database, const request::cmd_params& style)
        : database_(database), style_(style)
    {}

    // `known` is null for a fix that is not known.
    std::string of(const model::fix_use& use, const model::known_fix* known);

private:
    // What stands in a list, as far as it is told.
    struct list_words {
        std::uint32_t command_line = 0; // tags
        std::uint32_t dllfile = 0;
        std::uint32_t module = 0;
        std::uint32_t description = 0;
        std::uint32_t patch_bits = 0;
        std::string patch; // what one does
        std::string more;  // modules and data
    };
    list_words read(std::uint32_t list) const;
    const list_words& words_of(std::uint32_t definition);
    std::string words_of_unknown(const model::fix_use& use, const list_words& definition) const;

    const sdb::sdb_database& database_;
    const request::cmd_params& style_;
    std::unordered_map<std::uint32_t, list_words> kept_;
    list_words last_; // of a short one
};

// What a record shows or blocks by itself: its messages and switches, each with its tag.
struct own_effect {
    std::uint32_t offset;
    std::string words;
};
std::vector<own_effect> own_effects_of(const sdb::sdb_database& database, std::uint32_t record,
                                       const request::cmd_params& style);

// A change that a patch makes: "+0x00012f42  74 -> eb   (after a match at 0x00012f40)".
std::string change_line(const model::patch_change& change);

} // namespace report
