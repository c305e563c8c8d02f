#include "model/record.h"

#include <algorithm>

namespace model {

bool has_substance(std::span<const record_item> first_group, bool has_one_group)
{
    if (std::ranges::any_of(first_group, [](const record_item& item) {
            return sdb::is_expanded_dword_tag(item.tag);
        })) {
        return false;
    }
    return first_group.size() > 2 || first_group.front().tag == sdb::tag::inexclude ||
           !has_one_group;
}

} // namespace model
