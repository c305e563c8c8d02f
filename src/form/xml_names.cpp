#include "form/xml_names.h"

namespace form {

const xml_names& xml_names::known()
{
    static const xml_names names;
    return names;
}

xml_names::xml_names() : openings_(sdb::tag_slots)
{
    std::vector<std::size_t> ends;
    for (std::size_t slot = 0; slot + 1 < sdb::tag_slots; ++slot) {
        const std::string_view name = sdb::known_tag_name(sdb::tag_of_slot(slot));
        if (!name.empty()) {
            texts_.append(" ").append(name).append("=\"");
        }
        ends.push_back(texts_.size());
    }
    std::size_t begin = 0;
    for (std::size_t slot = 0; slot < ends.size(); ++slot) {
        openings_[sdb::tag_slot(sdb::tag_of_slot(slot))] =
            std::string_view(texts_).substr(begin, ends[slot] - begin);
        begin = ends[slot];
    }
}

} // namespace form
