#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sdb/vocabulary.h"
#include "uni/text_buffer.h"

namespace form {

// How the attributes of the known tags begin, as in ` name="`, made once: a long listing has millions.
class xml_names {
public:
    static const xml_names& known();

    // Writes the beginning of an attribute; false, and nothing written, for a tag without a name of
    // its own.
    bool write_attribute(uni::text_buffer& out, std::uint16_t tag) const
    {
        const std::string& opening = openings_[sdb::tag_slot(tag)];
        out.text(opening);
        return !opening.empty();
    }

private:
    xml_names();

    std::vector<std::string> openings_;
};

} // namespace form
