#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "io/byte_source.h"

namespace model {

// What a PE file says of itself, each fact filed under the tag with which a database would match
// it. A fact that a database may hold in several forms is filed under each of their tags.
struct pe_property {
    std::string name;
    std::string text;         // empty for plain numbers
    std::uint64_t number = 0; // 0 for what is text alone
    std::uint16_t tag = 0;
    std::uint16_t sub_tag = 0; // language of a string, else 0
    std::uint32_t extra = 0;   // 0
};

// Ascending by tag, equal tags as they were found.
using pe_list = std::vector<pe_property>;

// The first property under a tag; null if there is none.
const pe_property* find_property(const pe_list& list, std::uint16_t tag);

enum class pe_outcome {
    gathered,
    changed, // gathered, but the file became another under the read
    no_program,
    unreadable, // a read failed; what was read before that is not told
};

// Gathers the properties of a file, of which only its headers, its tree of resources and its version
// resource are read; `path` gives its name. The list is empty unless they were gathered. The source goes
// to `read_from`, where that is wanted.
pe_outcome read_pe_stats(pe_list& list, std::unique_ptr<io::byte_source> source,
                         const std::string& path,
                         std::unique_ptr<io::byte_source>* read_from = nullptr);

} // namespace model
