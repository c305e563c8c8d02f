#include "model/fix_uses.h"

#include <algorithm>
#include <array>

#include "model/record_facts.h"
#include "sdb/tags.h"

namespace model {

namespace {

namespace tag = sdb::tag;

// What refers, by which tag, and to what.
struct reference_kind {
    std::uint16_t reference;
    std::uint16_t by;
    std::uint16_t definition;
};
constexpr auto reference_kinds = std::to_array<reference_kind>({
    {tag::shim_ref, tag::shim_tagid, tag::shim},
    {tag::patch_ref, tag::patch_tagid, tag::patch},
    {tag::layer, tag::layer_tagid, tag::layer},
    {tag::flag_ref, tag::flag_tagid, tag::flag},
    {tag::msi_transform_ref, tag::msi_transform_tagid, tag::msi_transform},
    {tag::context_ref, tag::context_tagid, tag::context},
    {tag::kshim_ref, tag::shim_tagid, tag::kshim},
    {tag::kflag_ref, tag::flag_tagid, tag::kflag},
    {tag::quirk_ref, tag::quirk_tagid, tag::quirk},
    {tag::migration_data_ref, tag::migration_data_tagid, tag::migration_data},
});

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
            is_whole &= take(reference, offset, tag);
        });
        return is_whole;
    }

private:
    // NOLINTNEXTLINE(misc-no-recursion)
    bool take(sdb::tag_ordinal ordinal, std::uint32_t reference, std::uint16_t tag)
    {
        uses_.push_back(read(ordinal, reference, tag));
        const std::uint32_t definition = uses_.back().definition;
        const bool is_layer = tag == tag::layer && definition != 0;
        if (!is_layer || std::ranges::find(open_, definition) != open_.end()) {
            return true;
        }
        if (open_.size() == most_layers_deep) {
            return false;
        }
        open_.push_back(definition);
        const bool is_whole = gather(definition);
        open_.pop_back();
        return is_whole;
    }

    // What a reference tells, in one pass, as there are more of them than of anything else.
    fix_use read(sdb::tag_ordinal ordinal, std::uint32_t reference, std::uint16_t tag) const
    {
        fix_use made{.reference = reference, .depth = static_cast<std::uint16_t>(open_.size())};
        const auto kind = std::ranges::find(reference_kinds, tag, &reference_kind::reference);
        std::uint32_t by = 0;
        const auto note = [&](std::uint32_t& place, sdb::tag_ordinal child) {
            place = place != 0 ? place : database_.offset_at(child);
        };
        database_.children().for_each_child(ordinal, [&](sdb::tag_ordinal child) {
            const std::uint16_t own = database_.tag_at(child);
            if (own == tag::name) {
                note(made.name, child);
            } else if (own == tag::command_line) {
                note(made.command_line, child);
            } else if (kind != reference_kinds.end() && own == kind->by) {
                note(by, child);
            }
            made.has_data = made.has_data || sdb::tag_type(own) == sdb::type::list;
        });
        if (by != 0) {
            const std::uint32_t definition = database_.word_behind(by);
            const bool is_sound = definition != reference && database_.is_recorded(definition) &&
                                  database_.tag_from(definition) == kind->definition;
            made.definition = is_sound ? definition : 0;
            made.is_broken = !is_sound;
        }
        return made;
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
