#include "form/xml_names.h"

#include <string_view>

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
        if (const std::string_view name = sdb::known_tag_name(tag); !name.empty()) {
            openings_[sdb::tag_slot(tag)] = " " + std::string(name) + "=\"";
        }
    }
}

} // namespace form
