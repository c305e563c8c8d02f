// What subjects get, in words.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "model/fix_uses.h"
#include "model/knowledge.h"
#include "model/patch_changes.h"
#include "model/record_groupings.h"
#include "model/subject_judge.h"
#include "request/cmd_params.h"
#include "sdb/database.h"

namespace report {

// What a record has of its own, such as messages and switches, each with its tag.
struct own_effect {
    std::uint32_t offset;
    std::string words;
};

// What fixes do, with their arguments. What it takes to tell of a long definition is kept, as many may refer
// to it.
class effect_words {
public:
    effect_words(const sdb::sdb_database& database, const request::cmd_params& style)
        : database_(database), style_(style)
    {}

    // Good until the next call.
    const std::string& of(const model::fix_use& use, model::subject_judge& judge);

    // What a record shows, blocks or holds by itself; of a definition, what it does first.
    std::vector<own_effect> own(std::uint32_t record, const model::record_groupings& groupings,
                                model::subject_judge& judge);

private:
    // What stands in a list, as far as it is told.
    struct list_words {
        std::uint32_t name = 0; // tags
        std::uint32_t command_line = 0;
        std::uint32_t dllfile = 0;
        std::uint32_t module = 0;
        std::uint32_t description = 0;
        std::uint32_t patch_bits = 0;
        std::string patch;  // what one does
        std::string more;   // modules and data
        std::string others; // what else it holds
    };
    list_words read(std::uint32_t list) const;
    const list_words& words_of(std::uint32_t definition);
    std::string make(const model::fix_use& use, const list_words& reference,
                     const model::known_fix* known);
    std::string said_by(std::uint32_t message);
    std::string words_of_message(std::uint32_t message, std::uint32_t words_at);
    std::string words_of_unknown(const model::fix_use& use, const list_words& definition) const;

    const sdb::sdb_database& database_;
    const request::cmd_params& style_;
    std::string made_;
    std::unordered_map<std::uint32_t, list_words> kept_;
    list_words last_;                                     // of a short one
    std::unordered_map<std::uint32_t, std::string> said_; // by long messages
    // Whole words, by the definition and the name in the reference, where that has nothing else to tell.
    std::unordered_map<std::uint64_t, std::string> whole_;
    std::size_t whole_bytes_ = 0;
};

// A change that a patch makes: "+0x00012f42  74 -> eb   (after a match at 0x00012f40)".
std::string change_line(const model::patch_change& change);

} // namespace report
