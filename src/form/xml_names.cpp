#include "form/xml_names.h"

#include <algorithm>
#include <string>

namespace form {

const xml_names& xml_names::known()
{
    static const xml_names names;
    return names;
}

xml_names::xml_names() : openings_(sdb::tag_slots)
{
    for (std::size_t slot = 0; slot + 1 < sdb::tag_slots; ++slot) {
        const std::uint16_t tag = sdb::tag_of_slot(slot);
        const std::string_view name = sdb::known_tag_name(tag);
        const std::string text = " " + std::string(name) + "=\"";
        if (!name.empty() && text.size() <= copied) {
            opening& made = openings_[sdb::tag_slot(tag)];
            std::ranges::copy(text, made.text.begin());
            made.length = text.size();
        }
    }
}

} // namespace form
