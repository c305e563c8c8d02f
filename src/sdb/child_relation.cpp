#include "sdb/child_relation.h"

#include <algorithm>

#include "sdb/database.h"
#include "sdb/tags.h"
#include "sdb/vocabulary.h"

namespace sdb {

namespace {

struct open_list {
    std::uint32_t ordinal;
    std::uint32_t remaining;
    std::uint32_t total;
};

// What a tag takes from the list around it. A list is charged its head; its contents are charged
// when it closes. (A value that the image's end cuts off is charged whole: nothing comes behind
// it.)
std::uint32_t charge_of(const sdb_database& database, std::uint32_t ordinal)
{
    const std::uint16_t type_bits = tag_type(database.tag_at(ordinal));
    const std::uint32_t head = bytes_to_next[type_bits >> 12];
    return type_bits == type::string || type_bits == type::binary_
               ? head + database.word_behind(database.offset_at(ordinal))
               : head;
}

} // namespace

child_relation::child_relation(const sdb_database& database)
    : depths_(database.tag_count()), ends_(database.tag_count())
{
    std::vector<open_list> open;
    std::uint16_t depth = 1;
    for (std::uint32_t ordinal = 0; ordinal < database.tag_count(); ++ordinal) {
        if (!open.empty()) {
            open.back().remaining -= charge_of(database, ordinal);
        }
        depths_[ordinal] = depth;
        ends_[ordinal] = ordinal + 1;
        if (tag_type(database.tag_at(ordinal)) == type::list) {
            const std::uint32_t size = database.word_behind(database.offset_at(ordinal));
            if (size != 0) {
                open.push_back({ordinal, size, size});
                ++depth;
                continue;
            }
        }
        while (!open.empty() && open.back().remaining < 2) {
            const open_list closed = open.back();
            open.pop_back();
            ends_[closed.ordinal] = ordinal + 1;
            --depth;
            if (!open.empty()) {
                open.back().remaining -= closed.total;
            }
        }
    }
    for (const open_list& unfinished : open) {
        ends_[unfinished.ordinal] = database.tag_count();
    }
}

const std::vector<std::uint32_t>& child_relation::lists() const
{
    if (!lists_) {
        lists_.emplace();
        for (std::uint32_t ordinal = 0; ordinal < ends_.size(); ++ordinal) {
            if (has_children(ordinal)) {
                lists_->push_back(ordinal);
            }
        }
    }
    return *lists_;
}

const std::vector<child_relation::keyed_list>& child_relation::lists_by_depth() const
{
    if (!lists_by_depth_) {
        lists_by_depth_.emplace();
        for (const std::uint32_t list : lists()) {
            lists_by_depth_->push_back({depths_[list + 1], list});
        }
        std::ranges::sort(*lists_by_depth_);
    }
    return *lists_by_depth_;
}

std::optional<std::uint32_t> child_relation::list_before(std::uint32_t ordinal) const
{
    const auto behind = std::ranges::lower_bound(lists(), ordinal);
    return behind == lists().begin() ? std::nullopt : std::optional(*(behind - 1));
}

std::optional<std::uint32_t> child_relation::list_around(std::uint32_t list) const
{
    if (list == lists().front()) {
        return std::nullopt;
    }
    const auto wanted = static_cast<std::uint16_t>(depths_[list + 1] - 1);
    const std::vector<keyed_list>& keyed = lists_by_depth();
    const auto behind = std::ranges::lower_bound(keyed, keyed_list{wanted, list});
    if (behind == keyed.begin() || (behind - 1)->child_depth != wanted) {
        return std::nullopt;
    }
    const std::uint32_t found = (behind - 1)->ordinal;
    const bool has_one_row = ends_[found + 1] >= ends_[found];
    if (found == lists().front() && has_one_row) {
        return std::nullopt;
    }
    return found;
}

} // namespace sdb
