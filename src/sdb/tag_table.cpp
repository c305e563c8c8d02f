#include "sdb/tag_table.h"

#include <algorithm>

namespace sdb {

namespace {

constexpr std::uint64_t list_head = 6; // tag word and size word
// As databases usually have them.
constexpr std::size_t tags_of_a_list = 8;
constexpr std::size_t tags_of_a_reference = 16;

} // namespace

void tag_table::reset(std::size_t expected_tags)
{
    *this = {};
    rows_.reserve(expected_tags);
    lists_.reserve(expected_tags / tags_of_a_list);
    references_.reserve(expected_tags / tags_of_a_reference);
}

// Closes the lists that the last tag, which ends at `behind`, has filled.
void tag_table::close_finished(std::uint64_t behind)
{
    while (top_.remaining < 2 && top_.number != no_list) {
        close(top_, behind);
        --depth_;
        around_.back().remaining -= top_.total;
        top_ = around_.back();
        around_.pop_back();
    }
}

void tag_table::close(const open_list& closed, std::uint64_t behind)
{
    list_row& list = lists_[closed.number];
    row& first = rows_[list.ordinal];
    first.end = list.end = size();
    list.is_exact = std::uint64_t{first.offset} + list_head + list.size == behind;
}

// What is still open lacks some of what it claims.
void tag_table::finish()
{
    around_.push_back(top_);
    for (const open_list& unfinished : around_) {
        if (unfinished.number != no_list) {
            close(unfinished, 0);
        }
    }
    around_.clear();
}

const std::vector<std::uint32_t>& tag_table::lists_with_children() const
{
    if (!lists_with_children_) {
        lists_with_children_.emplace();
        for (const list_row& list : lists_) {
            if (list.end > list.ordinal + 1) {
                lists_with_children_->push_back(list.ordinal);
            }
        }
    }
    return *lists_with_children_;
}

const std::vector<tag_table::keyed_list>& tag_table::lists_by_depth() const
{
    if (!lists_by_depth_) {
        lists_by_depth_.emplace();
        for (const std::uint32_t list : lists_with_children()) {
            lists_by_depth_->push_back({depth(list + 1), list});
        }
        std::ranges::sort(*lists_by_depth_);
    }
    return *lists_by_depth_;
}

std::optional<std::uint32_t> tag_table::list_before(std::uint32_t ordinal) const
{
    const auto behind = std::ranges::lower_bound(lists_with_children(), ordinal);
    return behind == lists_with_children().begin() ? std::nullopt : std::optional(*(behind - 1));
}

std::optional<std::uint32_t> tag_table::list_around(std::uint32_t list) const
{
    if (list == lists_with_children().front()) {
        return std::nullopt;
    }
    const auto wanted = static_cast<std::uint16_t>(depth(list + 1) - 1);
    const std::vector<keyed_list>& keyed = lists_by_depth();
    const auto behind = std::ranges::lower_bound(keyed, keyed_list{wanted, list});
    if (behind == keyed.begin() || (behind - 1)->child_depth != wanted) {
        return std::nullopt;
    }
    const std::uint32_t found = (behind - 1)->ordinal;
    const bool has_one_row = end(found + 1) >= end(found);
    if (found == lists_with_children().front() && has_one_row) {
        return std::nullopt;
    }
    return found;
}

} // namespace sdb
