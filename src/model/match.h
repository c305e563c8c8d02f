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

// Whether a fact agrees. Of one that the file does not tell nobody knows.
enum class agreement { no, yes, unknown };

// A property that a matching-file list asks for, held against the file.
struct compared_property {
    std::uint32_t offset = 0; // of its tag
    std::uint16_t tag = 0;
    const pe_property* found = nullptr; // what the file tells; null where it tells nothing
    agreement agrees = agreement::unknown;
    // The tag whose text was compared in place of its own, as that says or has none: 0 where it was its own.
    std::uint32_t text_from = 0;
};

// A matching-file list that was looked at, as its file name was the file's.
struct looked_at_list {
    std::uint32_t record = 0;
    std::uint32_t list = 0; // offset of the matching-file list
    // NOLINTNEXTLINE(modernize-use-nullptr): the zero that a comparison is held against
    friend auto operator<=>(const looked_at_list&, const looked_at_list&) = default;
};

// All of them, by record and list, each once.
struct looked_at_lists {
    std::vector<looked_at_list> lists;
    bool by_path = false; // the whole path was their file name
    bool are_all = true;  // otherwise there were too many to keep
};

// Which records of the database would catch a program, by its properties and its path. A
// matching-file list is looked at when its file name is that of the file, or, if no list's is, the
// file's whole path with %windir% for c:\windows, ASCII case aside. It catches the file unless one
// of its properties speaks against it; a property of which the file tells nothing ends the
// comparison, so that those behind it, which have higher tags, are not looked at. False if records
// that hold others were left out, since there is no end of them.
bool match_program(match_results& results, const sdb::sdb_database& database, const pe_list& file,
                   const std::string& path, const tag_texts& texts,
                   const request::bounds& bounds = {}, looked_at_lists* looked_at = nullptr);

// Is given the file name of a matching-file list, and whether nothing stands in it, so that it makes its name
// known, and catches nothing.
using list_name_taker =
    std::function<void(std::string name, const looked_at_list& list, bool is_empty)>;

// Names all matching-file lists of a database. False if records that hold others were left out, since there
// is no end of them.
bool name_matching_lists(const sdb::sdb_database& database, const tag_texts& texts,
                         const request::bounds& bounds, const list_name_taker& take);

// Is told of each list, and of all that it asks for by ascending tag: also of what match_program() does not
// come to.
class comparison_listener {
public:
    virtual ~comparison_listener() = default;

    // The first two answer whether to go on.
    virtual bool begin_list(const looked_at_list& list) = 0;
    virtual bool property(const compared_property& one) = 0;
    // `is_caught` is what match_program() found; `verdict` is `no` where anything speaks against it, and
    // `unknown` where nothing does but not everything is known.
    virtual void end_list(bool is_caught, agreement verdict) = 0;
};

// Holds lists that were looked at against the file once more. A record in place of a list stands for the
// facts that stand in it directly.
void compare_lists(const looked_at_lists& lists, const sdb::sdb_database& database,
                   const pe_list& file, const std::string& path, const tag_texts& texts,
                   const request::bounds& bounds, comparison_listener& listener);

} // namespace model
