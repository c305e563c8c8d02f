#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "sdb/vocabulary.h"

namespace form {

// How the attributes of the known tags begin, as in ` name="`, made once: a long listing has
// millions of them.
class xml_names {
public:
    static const xml_names& known();

    // Empty for a tag without a name of its own.
    std::string_view attribute(std::uint16_t tag) const { return openings_[sdb::tag_slot(tag)]; }
    std::string_view element(std::uint16_t tag) const
    {
        const std::string_view opening = attribute(tag);
        // Without the blank in front and the sign and quote behind.
        return opening.empty() ? opening : opening.substr(1, opening.size() - 3);
    }

private:
    xml_names();

    std::string texts_;
    std::vector<std::string_view> openings_;
};

} // namespace form
