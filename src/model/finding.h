#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "model/knowledge.h"

namespace model {

// What a finding is about: what a tag of the database shows (a list its name, a text itself, any other tag
// what it is called), a text, or a moment.
struct finding_part {
    finding_part() = default;
    explicit finding_part(std::uint32_t at) : tag_at(at) {}
    finding_part(std::string words) : text(std::move(words)) {}
    finding_part(std::string_view words) : text(words) {}
    static finding_part moment(std::uint64_t time)
    {
        finding_part made;
        made.filetime = time;
        return made;
    }

    std::uint32_t tag_at = 0; // 0 for another thing
    std::string text;
    std::optional<std::uint64_t> filetime;
};

// Something unusual that is proven. It says what it may mean by its kind alone.
struct finding {
    const finding_kind* kind = nullptr;
    weight weighs = weight::none; // here, which may be less than its kind weighs
    std::uint32_t offset = 0;     // of the tag that proves it; 0 for none
    finding_part first = {};
    finding_part second = {};
    std::uint64_t number = 0;
    std::size_t variant = 0;           // of what its kind says
    const known_fix* of_fix = nullptr; // whose technique is the finding's
};

// A finding about what no database holds, with its place.
struct placed_finding {
    std::string database; // its path
    std::string program;
    finding found;
};

} // namespace model
