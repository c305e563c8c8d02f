#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "io/large_vector.h"
#include "sdb/tag_index.h"
#include "sdb/tag_ordinal.h"
#include "sdb/tags.h"
#include "sdb/vocabulary.h"

namespace sdb {

// All recorded tags in file order, by ordinal, and which of them stand in which list. Of each tag its
// offset is kept, which leads to all else that the image says of it; of lists a little more.
//
// The relation comes from charging a list's size with its children, as readers of the format have
// always done it: a binary's pad byte is not charged, and a list ends when less than 2 bytes of it
// are left. A list with two odd-sized binaries thus stays open too long and takes its next sibling
// for a child, and a list whose remainder wraps stays open to the end of the file.
//
// Whatever the sizes say, lists close in the order of a stack, so that the tags in a list and in
// its lists are one run of ordinals, and a tag's children are found by stepping over their runs.
class tag_table {
public:
    // A list, of which there are far fewer than tags: passes over these rows read little memory.
    struct list_row {
        list_row(tag_ordinal own, std::uint16_t own_tag, std::uint16_t own_depth, bool exact)
            : ordinal(own), tag(own_tag), depth(own_depth)
        {
            close(own.next(), exact);
        }

        // The first ordinal behind all that stands in it.
        tag_ordinal end() const noexcept { return tag_ordinal(end_ / 2); }
        bool has_children() const noexcept { return end() > ordinal.next(); }
        // The depth of what stands in it.
        std::uint16_t depth_inside() const noexcept
        {
            return static_cast<std::uint16_t>(depth + 1);
        }
        // It holds what its size claims, to the byte.
        bool is_exact() const noexcept { return end_ % 2 != 0; }
        void close(tag_ordinal end, bool exact) noexcept
        {
            end_ = end.number() * 2 + (exact ? 1 : 0);
        }

        tag_ordinal ordinal;
        std::uint16_t tag;
        std::uint16_t depth; // of a root list 1; wraps in 16 bits

    private:
        std::uint32_t end_; // twice, and one more where it is exact: no image has that many tags
    };

    // A dword that refers to another tag, as listings follow it.
    struct reference {
        tag_ordinal ordinal;
        std::uint32_t target; // the offset that it names, whatever stands there
    };

    // To be filled by the scan: reset(), then add() for each tag in file order with the u32 behind
    // its tag word and the position behind the tag, then finish().
    void reset(std::size_t most_tags);
    void add(std::uint32_t offset, std::uint16_t tag, std::uint32_t word, std::uint64_t behind)
    {
        const tag_ordinal ordinal(size());
        if (ordinal.number() % tags_of_a_mark == 0) {
            marks_.push_back({0, static_cast<std::uint32_t>(lists_.size())});
        }
        offsets_.push_back(offset);
        top_.remaining -= charge_of(tag, word);
        if (tag_type(tag) == type::list) {
            marks_.back().lists |= std::uint64_t{1} << (ordinal.number() % tags_of_a_mark);
            lists_.push_back({ordinal, tag, depth_, word == 0});
            if (word != 0) {
                around_.push_back(top_);
                top_ = {static_cast<std::uint32_t>(lists_.size() - 1), word, word};
                ++depth_;
                return;
            }
        }
        if (tag_type(tag) == type::dword && is_expanded_dword_tag(tag)) [[unlikely]] {
            references_.push_back({ordinal, word});
        }
        if (tag == tag::patch_bits) [[unlikely]] {
            patches_.push_back(ordinal);
        }
        if (top_.remaining < 2) [[unlikely]] {
            close_finished(behind);
        }
    }
    void finish();

    // The offsets of all tags, by ordinal: for passes over the whole database.
    std::span<const std::uint32_t> offsets() const noexcept { return offsets_; }
    std::uint32_t size() const noexcept { return static_cast<std::uint32_t>(offsets_.size()); }
    std::uint32_t offset(tag_ordinal one) const noexcept { return offsets_[one.number()]; }
    // The row of a list; null for any other tag.
    const list_row* list(tag_ordinal one) const noexcept
    {
        const std::uint64_t bit = std::uint64_t{1} << (one.number() % tags_of_a_mark);
        const bool is_list = (marks_[one.number() / tags_of_a_mark].lists & bit) != 0;
        return is_list ? &lists_[lists_before(one)] : nullptr;
    }
    // The first ordinal behind a tag and all that stands in it.
    tag_ordinal end(tag_ordinal one) const noexcept
    {
        const list_row* const row = list(one);
        return row == nullptr ? one.next() : row->end();
    }
    bool has_children(tag_ordinal one) const noexcept { return end(one) > one.next(); }
    // All lists, ascending.
    std::span<const list_row> lists() const noexcept { return lists_; }
    // Those from one ordinal to the one before another.
    std::span<const list_row> lists_in(tag_ordinal first, tag_ordinal end) const
    {
        const std::size_t before = lists_before(first);
        return lists().subspan(before, lists_before(end) - before);
    }
    // All references, ascending.
    std::span<const reference> references() const noexcept { return references_; }
    // All patch values, ascending: a search in them then costs no pass over all tags.
    std::span<const tag_ordinal> patches() const noexcept { return patches_; }

    template <typename action>
    void for_each_child(tag_ordinal list, action&& act) const
    {
        find_child(list, [&](tag_ordinal child) {
            act(child);
            return false;
        });
    }

    // The first child that `is_it` answers true for; nothing if there is none.
    template <typename predicate>
    std::optional<tag_ordinal> find_child(tag_ordinal list, predicate&& is_it) const
    {
        const list_row* const around = this->list(list);
        if (around == nullptr) {
            return std::nullopt;
        }
        const tag_ordinal behind = around->end();
        const list_row* next = around + 1; // the first list that is not behind the child
        const list_row* const last = lists_.data() + lists_.size();
        for (tag_ordinal child = list.next(); child < behind;) {
            if (is_it(child)) {
                return child;
            }
            if (next == last || next->ordinal != child) {
                child = child.next();
                continue;
            }
            child = next->end();
            ++next;
            if (next != last && next->ordinal < child) { // lists in it
                next = lists_.data() + lists_before(child);
            }
        }
        return std::nullopt;
    }

    // The children of a list that are lists.
    template <typename action>
    void for_each_list_in(tag_ordinal list, action&& act) const
    {
        find_list_in(list, [&](const list_row& child) {
            act(child);
            return false;
        });
    }

    // The first of them that `is_it` answers true for; null if there is none.
    template <typename predicate>
    const list_row* find_list_in(tag_ordinal list, predicate&& is_it) const
    {
        const list_row* const around = this->list(list);
        if (around == nullptr) {
            return nullptr;
        }
        const list_row* const last = lists_.data() + lists_.size();
        const tag_ordinal behind = around->end();
        for (const list_row* child = around + 1; child != last && child->ordinal < behind;) {
            if (is_it(*child)) {
                return child;
            }
            const tag_ordinal end = child->end();
            ++child;
            if (child != last && child->ordinal < end) { // lists in it
                child = lists_.data() + lists_before(end);
            }
        }
        return nullptr;
    }

    // The last list with children whose ordinal lies below the given one.
    std::optional<tag_ordinal> list_before(tag_ordinal ordinal) const;

    // The list around a list with children, found backward over the rows of the relation, to the
    // first whose depth is one less; the relation's very first row never counts.
    std::optional<tag_ordinal> list_around(tag_ordinal list) const;

    // The same for all lists of one tag in one pass: those that stand around them, ascending, each
    // once.
    std::vector<tag_ordinal> lists_around(std::uint16_t tag) const;

private:
    static constexpr std::uint32_t no_list = 0xffffffff;
    // Which of some tags are lists, and how many lists stand before them.
    static constexpr std::uint32_t tags_of_a_mark = 64;
    struct mark {
        std::uint64_t lists;
        std::uint32_t lists_before;
    };
    std::size_t lists_before(tag_ordinal one) const noexcept
    {
        if (one.number() == size()) {
            return lists_.size();
        }
        const mark& around = marks_[one.number() / tags_of_a_mark];
        const std::uint64_t bit = std::uint64_t{1} << (one.number() % tags_of_a_mark);
        return around.lists_before + tag_index::count_bits(around.lists & (bit - 1));
    }
    struct open_list {
        std::uint32_t number; // its place in lists_
        std::uint32_t remaining;
        std::uint32_t total;
    };

    // What a tag takes from the list around it. A list is charged its head; its contents are
    // charged when it closes. (A value that the image's end cuts off is charged whole: nothing
    // comes behind it.)
    static std::uint32_t charge_of(std::uint16_t tag, std::uint32_t word)
    {
        const std::uint32_t head = bytes_to_next[tag >> 12];
        const bool has_payload = tag_type(tag) == type::string || tag_type(tag) == type::binary_;
        return has_payload ? head + word : head;
    }
    void close_finished(std::uint64_t behind);
    void close(const open_list& closed, std::uint64_t behind);

    const std::vector<tag_ordinal>& lists_with_children() const;
    // Whether a list holds the one row of the relation in front of all others.
    bool is_lone_first_row(tag_ordinal list, tag_ordinal first_list) const
    {
        return list == first_list && end(list.next()) >= end(list);
    }
    // The same by the depth of what stands in them.
    const std::vector<std::vector<tag_ordinal>>& lists_by_depth() const;

    // While the scan runs: the innermost open list, those around it, and the depth of what stands in
    // it. Outside of all lists the innermost is no list, which never closes.
    open_list top_{no_list, 0, 0};
    io::roomy_vector<open_list> around_;
    std::uint16_t depth_ = 1;

    io::large_vector<std::uint32_t> offsets_;
    io::large_vector<mark> marks_;
    io::roomy_vector<list_row> lists_;
    io::roomy_vector<reference> references_;
    io::roomy_vector<tag_ordinal> patches_;
    mutable std::optional<std::vector<tag_ordinal>> lists_with_children_;
    mutable std::optional<std::vector<std::vector<tag_ordinal>>> lists_by_depth_;
};

} // namespace sdb
