#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "model/pe_properties.h"
#include "request/bounds.h"
#include "sdb/database.h"

namespace model {

// Offsets of records with those of their matching-file lists that catch the file, ascending.
using match_results = std::map<std::uint32_t, std::vector<std::uint32_t>>;

// The text that the tag at an offset is shown as, to be compared with one of `longest` bytes at most: one
// that is longer may be cut, but not to that. Nothing for a tag that has none; of stored texts, those
// that stand nowhere, of patch values, those that do not begin with an operation.
using tag_texts =
    std::function<std::optional<std::string>(std::uint32_t offset, std::size_t longest)>;

// Which records of the database would catch a program, by its properties and its path. A
// matching-file list is looked at when its file name is that of the file, or, if no list's is, the
// file's whole path with %windir% for c:\windows, ASCII case aside. It catches the file unless one
// of its properties speaks against it; a property of which the file tells nothing ends the
// comparison, so that those behind it, which have higher tags, are not looked at. False if records
// that hold others were left out, since there is no end of them.
bool match_program(match_results& results, const sdb::sdb_database& database, const pe_list& file,
                   const std::string& path, const tag_texts& texts,
                   const request::bounds& bounds = {});

} // namespace model
