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
                 use_allowance& allowance)
        : uses_(uses), database_(database), allowance_(allowance)
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
            const std::size_t price = database_.children().end(reference) - reference;
            if (allowance_.left < price || uses_.size() >= allowance_.of_one) {
                is_whole = false;
                return;
            }
            allowance_.left -= price;
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
    use_allowance& allowance_;
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
                     std::uint32_t record, use_allowance& allowance)
{
    return use_gatherer(uses, database, allowance).gather(record);
}

} // namespace model
