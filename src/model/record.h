#pragma once

#include <cstdint>
#include <span>

#include "sdb/tags.h"
#include "sdb/vocabulary.h"

// A record is one list of the database with what belongs to it: its descendants, and the records
// that its reference lists lead to, folded in as sub-records. A report sees it as groups: each
// starts with a list tag and holds the scalars of that list.
namespace model {

// One tag of a record. `depth` is its place in the record, whose head has 1; a followed record
// stands at the depth of the tag that refers to it.
struct record_item {
    std::uint32_t offset;
    std::uint16_t tag;
    std::uint16_t depth;
};

constexpr bool is_list(const record_item& item) noexcept
{
    return sdb::tag_type(item.tag) == sdb::type::list;
}

// Whether a collected record has substance, which is what listings show and statistics count: no
// tag of its first group may be a reference, and unless it is an include or exclude list or has
// more groups than one, its first group needs three tags.
bool has_substance(std::span<const record_item> first_group, bool has_one_group);

} // namespace model
