#pragma once

#include <cstdint>
#include <string>

namespace pe {

// A named place in a file or a resource, with what is known of it.
struct pe_segment {
    std::string name;
    std::string text;
    std::string detail;
    std::uint64_t number = 0;
    std::uint64_t language = 0;
    std::uint64_t offset = 0;
    std::uint64_t size = 0; // bytes
};

} // namespace pe
