#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

#include "sdb/vocabulary.h"
#include "uni/text_buffer.h"

namespace form {

// How the attributes of the known tags begin, as in ` name="`, made once. A long listing has millions
// of them, so they are copied in one size that the compiler knows, whatever the length of the text.
class xml_names {
public:
    static const xml_names& known();

    // Writes the beginning of an attribute; false, and nothing written, for a tag without a name of
    // its own.
    bool write_attribute(uni::text_buffer& out, std::uint16_t tag) const
    {
        const opening& found = openings_[sdb::tag_slot(tag)];
        char* const start = out.room(copied);
        std::memcpy(start, found.text.data(), copied);
        out.taken(start + found.length);
        return found.length != 0;
    }

private:
    static constexpr std::size_t copied = 48;
    struct opening {
        std::array<char, copied> text{};
        std::size_t length = 0;
    };

    xml_names();

    std::vector<opening> openings_;
};

} // namespace form
