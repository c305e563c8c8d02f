#include "model/fix_uses.h"

#include <algorithm>

#include "model/record_facts.h"
#include "sdb/tags.h"

namespace model {

namespace {

namespace tag = sdb::tag;

constexpr std::size_t most_layers_deep = 32;

class use_gatherer {
public:
    use_gatherer(std::vector<fix_use>& uses, const sdb::sdb_database& database,
                 std::uint64_t most_uses, std::uint64_t most_tags)
        : uses_(uses), database_(database), most_uses_(most_uses), tags_left_(most_tags)
    {}

    // NOLINTNEXTLINE(misc-no-recursion) ; as deep as layers may be
    bool gather(std::uint32_t record)
    {
        bool is_whole = true;
        database_.for_each_child(record, [&](std::uint32_t offset, std::uint16_t tag) {
            if (!is_fix_reference(tag)) {
                return;
            }
            // A reference is read once for each record that opens the layer up.
            const sdb::tag_ordinal reference = *database_.ordinal_of(offset);
            const std::uint64_t price = database_.children().end(reference) - reference;
            if (tags_left_ < price || uses_.size() >= most_uses_) {
                is_whole = false;
                return;
            }
            tags_left_ -= price;
            is_whole &= take(offset, tag);
        });
        return is_whole;
    }

private:
    // NOLINTNEXTLINE(misc-no-recursion)
    bool take(std::uint32_t reference, std::uint16_t tag)
    {
        const led_to target = definition_of(database_, reference);
        uses_.push_back({reference, target.definition, static_cast<std::uint16_t>(open_.size()),
                         target.is_broken});
        const bool is_layer = tag == tag::layer && target.definition != 0;
        if (!is_layer || std::ranges::find(open_, target.definition) != open_.end()) {
            return true;
        }
        if (open_.size() == most_layers_deep) {
            return false;
        }
        open_.push_back(target.definition);
        const bool is_whole = gather(target.definition);
        open_.pop_back();
        return is_whole;
    }

    std::vector<fix_use>& uses_;
    const sdb::sdb_database& database_;
    const std::uint64_t most_uses_;
    std::uint64_t tags_left_;
    std::vector<std::uint32_t> open_; // layers
};

} // namespace

bool is_fix_reference(std::uint16_t tag)
{
    switch (tag) {
    case tag::shim_ref:
    case tag::patch_ref:
    case tag::layer:
    case tag::flag_ref:
    case tag::msi_transform_ref:
    case tag::context_ref:
    case tag::kshim_ref:
    case tag::kflag_ref:
    case tag::quirk_ref:
    case tag::migration_data_ref:
    case tag::migration_shim_ref:
        return true;
    default:
        return false;
    }
}

bool gather_fix_uses(std::vector<fix_use>& uses, const sdb::sdb_database& database,
                     std::uint32_t record, const request::bounds& bounds)
{
    constexpr std::uint64_t least = 16; // of its tags that count
    const auto ordinal = database.ordinal_of(record);
    const std::uint64_t own = ordinal ? database.children().end(*ordinal) - *ordinal : 0;
    return use_gatherer(uses, database, bounds.record_items,
                        bounds.listing_items_of_a_tag * (own + least))
        .gather(record);
}

} // namespace model
