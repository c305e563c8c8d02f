// Short ways to what stands directly in a list of a database.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "sdb/database.h"
#include "sdb/tags.h"
#include "sdb/vocabulary.h"

namespace model {

// The first tag of a kind that stands directly in the list at `list`; 0 for none.
std::uint32_t child_of(const sdb::sdb_database& database, std::uint32_t list, std::uint16_t tag);

// The text of a string reference or a string, as it is stored, or a beginning of it that has at least that
// many bytes; empty for any other tag.
inline constexpr std::size_t whole_text = static_cast<std::size_t>(-1) / 4;
std::string text_at(const sdb::sdb_database& database, std::uint32_t offset,
                    std::size_t longest = whole_text);

// The text under a tag in a list, the first of several; empty for none.
std::string text_in(const sdb::sdb_database& database, std::uint32_t list, std::uint16_t tag,
                    std::size_t longest = whole_text);

// What a list is called: its NAME, or else its kind and where it stands.
std::string name_of_list(const sdb::sdb_database& database, std::uint32_t list,
                         std::size_t longest = whole_text);

// Whether a matching file of that NAME, 0 for none, means the program itself, which is called by the NAME
// at `own`, 0 for none.
bool means_the_program(const sdb::sdb_database& database, std::uint32_t file, std::uint32_t own);

// Whether a list says what a fix is, to which records refer. (A layer may be such a reference itself.)
bool is_definition(const sdb::sdb_database& database, std::uint32_t list);

// Whether a list of a record tests a file, a registry value or the like.
bool is_matching_list(std::uint16_t tag);

// Whether a list of a record must hold for the record to take effect: one of the above, or one that holds a
// choice of them, or names a plug-in, files or devices.
bool is_test(std::uint16_t tag);

// Whether a tag that is no list tells on which systems a record takes effect.
bool is_test_of_system(std::uint16_t tag);

// Whether of lists of one tag in another it matters which comes first: calls of modules are let in or kept
// out by the first that names the module.
inline bool is_taken_in_order(std::uint16_t list)
{
    return list == sdb::tag::inexclude;
}

// Whether a tag is one of the facts by which a program is told from others of its name.
bool is_fact_of_program(std::uint16_t tag);

// The number that a tag of any numeric type holds.
inline std::uint64_t number_at(const sdb::sdb_database& database, std::uint32_t offset)
{
    return database.item_from(offset).value.u64(0);
}

// The last part of a path, lower-case, without ".exe", ".dll" and the like.
std::string stem_of(std::string_view path);

} // namespace model
