#include "model/fix_uses.h"

#include <algorithm>
#include <array>
#include <cstddef>

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

constexpr std::size_t most_layers_deep = 32; // that are told in place

// Whether a definition may refer to further ones.
bool opens_up(std::uint16_t reference)
{
    return reference == tag::layer || reference == tag::context_ref ||
           reference == tag::msi_transform_ref;
}

// Whether a list in a record may hold references of that record.
bool may_hold_references(std::uint16_t tag)
{
    return tag != tag::exe && tag != tag::app && tag != tag::msi_package && tag != tag::kdriver &&
           tag != tag::database && tag != tag::library && tag != tag::shim && tag != tag::patch &&
           !is_matching_list(tag);
}

} // namespace

use_gatherer::use_gatherer(const sdb::sdb_database& database, const request::bounds& bounds)
    : database_(database), bounds_(bounds)
{}

// The references of the record itself are all taken, before any layer is opened.
bool use_gatherer::gather(std::vector<fix_use>& uses, std::uint32_t record)
{
    constexpr std::uint64_t least = 16; // of its tags that count
    const auto ordinal = database_.ordinal_of(record);
    const std::uint64_t own = ordinal ? database_.children().end(*ordinal) - *ordinal : 0;
    tags_left_ = bounds_.listing_items_of_a_tag * (own + least);
    uses_ = &uses;
    record_ = record;
    if (!opened_.empty()) {
        opened_ = {}; // one that was emptied keeps its size, and what it takes to empty it
    }
    deep_.clear();
    bool is_whole = true;
    const std::size_t begin = references_.size();
    std::uint64_t own_tags = own;
    find_references(record, own_tags);
    const std::size_t end = references_.size();
    for (std::size_t i = begin; i < end; ++i) {
        is_whole &= take(references_[i]);
    }
    references_.resize(begin);
    // What lies too deep to be told in place.
    for (std::size_t i = 0; i < deep_.size(); ++i) {
        is_whole &= open(deep_[i]);
    }
    return is_whole;
}

void use_gatherer::gather_own(std::vector<fix_use>& uses, std::uint32_t record)
{
    std::uint64_t all_tags = database_.tag_count();
    references_.clear();
    find_references(record, all_tags);
    for (const sdb::tag_ordinal reference : references_) {
        uses.push_back(
            read(reference, database_.offset_at(reference), database_.tag_at(reference)));
    }
}

// Appends those that stand in a list, or in lists of it that refer to nothing themselves, which are taken from
// what is left. False if there is more than is left of either.
bool use_gatherer::find_references(std::uint32_t list, std::uint64_t& tags_left)
{
    const auto whole = database_.ordinal_of(list);
    if (!whole) {
        return true;
    }
    const std::size_t begin = references_.size();
    bool is_whole = true;
    const auto look_at = [&](sdb::tag_ordinal around) {
        is_whole =
            database_.children().find_list_in(around, [&](const sdb::tag_table::list_row& row) {
                if (references_.size() - begin >= tags_left) {
                    return true;
                }
                if (is_fix_reference(row.tag)) {
                    references_.push_back(row.ordinal);
                    return false;
                }
                --tags_left;
                if (row.has_children() && may_hold_references(row.tag)) {
                    left_.push_back(row.ordinal);
                }
                return false;
            }) == nullptr;
    };
    look_at(*whole);
    if (left_.empty()) {
        return is_whole;
    }
    while (is_whole && !left_.empty()) {
        const sdb::tag_ordinal around = left_.back();
        left_.pop_back();
        look_at(around);
    }
    left_.clear();
    std::sort(references_.begin() + static_cast<std::ptrdiff_t>(begin), references_.end());
    return is_whole;
}

// NOLINTNEXTLINE(misc-no-recursion) ; as deep as layers may be
bool use_gatherer::open(std::uint32_t list)
{
    const std::size_t begin = references_.size();
    bool is_whole = find_references(list, tags_left_);
    const std::size_t end = references_.size();
    for (std::size_t i = begin; i < end; ++i) {
        const sdb::tag_ordinal reference = references_[i];
        const std::uint64_t price = database_.children().end(reference) - reference;
        if (tags_left_ < price || uses_->size() >= bounds_.record_items) {
            is_whole = false;
            break;
        }
        tags_left_ -= price;
        is_whole &= take(reference);
    }
    references_.resize(begin);
    return is_whole;
}

// NOLINTNEXTLINE(misc-no-recursion)
bool use_gatherer::take(sdb::tag_ordinal reference)
{
    const std::uint16_t tag = database_.tag_at(reference);
    const fix_use made = read(reference, database_.offset_at(reference), tag);
    uses_->push_back(made);
    bool is_whole = true;
    if (tag == tag::layer && made.has_data) { // it may hold its references itself
        is_whole &= open_once(made.reference);
    }
    if (made.definition != 0 && opens_up(tag)) {
        is_whole &= open_once(made.definition);
    }
    return is_whole;
}

// NOLINTNEXTLINE(misc-no-recursion)
bool use_gatherer::open_once(std::uint32_t list)
{
    if (list == record_ || !opened_.insert(list).second) {
        return true; // told already
    }
    if (depth_ == most_layers_deep) {
        deep_.push_back(list);
        return true;
    }
    ++depth_;
    const bool is_whole = open(list);
    --depth_;
    return is_whole;
}

// What a reference tells, in one pass, as there are more of them than of anything else.
fix_use use_gatherer::read(sdb::tag_ordinal ordinal, std::uint32_t reference,
                           std::uint16_t tag) const
{
    fix_use made{.reference = reference, .depth = static_cast<std::uint16_t>(depth_)};
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

std::vector<bool> reached_definitions(const sdb::sdb_database& database,
                                      std::span<const std::uint32_t> records)
{
    const sdb::tag_table& relation = database.children();
    std::vector<bool> is_reached(database.tag_count());
    std::vector<sdb::tag_ordinal> left;
    for (const std::uint32_t record : records) {
        left.push_back(*database.ordinal_of(record));
    }
    const auto reach = [&](sdb::tag_ordinal list) {
        if (!is_reached[list.number()]) {
            is_reached[list.number()] = true;
            left.push_back(list);
        }
    };
    const auto follow = [&](const sdb::tag_table::list_row& reference) {
        const auto kind =
            std::ranges::find(reference_kinds, reference.tag, &reference_kind::reference);
        const auto by = kind == reference_kinds.end()
                            ? std::nullopt
                            : relation.find_child(reference.ordinal, [&](sdb::tag_ordinal child) {
                                  return database.tag_at(child) == kind->by;
                              });
        const auto target =
            by ? database.ordinal_of(database.word_behind(database.offset_at(*by))) : std::nullopt;
        if (target && database.tag_at(*target) == kind->definition) {
            is_reached[target->number()] = is_reached[target->number()] || !opens_up(reference.tag);
            reach(*target);
        }
    };
    while (!left.empty()) {
        const sdb::tag_ordinal around = left.back();
        left.pop_back();
        relation.for_each_list_in(around, [&](const sdb::tag_table::list_row& row) {
            if (is_fix_reference(row.tag)) {
                follow(row);
            }
            const bool may_hold =
                is_fix_reference(row.tag) ? row.tag == tag::layer : may_hold_references(row.tag);
            if (may_hold && row.has_children()) {
                reach(row.ordinal);
            }
        });
    }
    return is_reached;
}

} // namespace model
