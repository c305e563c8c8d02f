#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "io/large_vector.h"
#include "sdb/tag_ordinal.h"
#include "sdb/tags.h"
#include "sdb/vocabulary.h"

namespace sdb {

// All recorded tags in file order, by ordinal, and which of them stand in which list.
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
    struct row {
        std::uint32_t offset;
        tag_ordinal end;
        std::uint16_t tag;
        std::uint16_t depth;
    };

    // A list, of which there are far fewer than tags: passes over these rows read little memory.
    struct list_row {
        tag_ordinal ordinal;
        tag_ordinal end;    // as in its row
        std::uint32_t size; // its size word
        std::uint16_t tag;
        bool is_exact; // it holds what its size claims, to the byte
    };

    // A dword that refers to another tag, as listings follow it.
    struct reference {
        tag_ordinal ordinal;
        std::uint32_t target; // the offset that it names, whatever stands there
    };

    // To be filled by the scan: reset(), then add() for each tag in file order with the u32 behind
    // its tag word and the position behind the tag, then finish().
    void reset(std::size_t expected_tags);
    void add(std::uint32_t offset, std::uint16_t tag, std::uint32_t word, std::uint64_t behind)
    {
        const tag_ordinal ordinal(size());
        rows_.push_back({offset, ordinal.next(), tag, depth_});
        top_.remaining -= charge_of(tag, word);
        if (tag_type(tag) == type::list) {
            lists_.push_back({ordinal, ordinal.next(), word, tag, word == 0});
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
        if (top_.remaining < 2) [[unlikely]] {
            close_finished(behind);
        }
    }
    void finish();

    // All rows, by ordinal: for passes over the whole database.
    std::span<const row> rows() const noexcept { return rows_; }
    std::uint32_t size() const noexcept { return static_cast<std::uint32_t>(rows_.size()); }
    std::uint32_t offset(tag_ordinal one) const noexcept { return rows_[one.number()].offset; }
    std::uint16_t tag(tag_ordinal one) const noexcept { return rows_[one.number()].tag; }
    // Nesting depth: the children of a root list have depth 2. Wraps in 16 bits.
    std::uint16_t depth(tag_ordinal one) const noexcept { return rows_[one.number()].depth; }
    // The first ordinal behind a tag and all that stands in it.
    tag_ordinal end(tag_ordinal one) const noexcept { return rows_[one.number()].end; }
    bool has_children(tag_ordinal one) const noexcept { return end(one) > one.next(); }
    // All lists, ascending.
    std::span<const list_row> lists() const noexcept { return lists_; }
    // All references, ascending.
    std::span<const reference> references() const noexcept { return references_; }

    template <typename action>
    void for_each_child(tag_ordinal list, action&& act) const
    {
        for (tag_ordinal child = list.next(); child < end(list); child = end(child)) {
            act(child);
        }
    }

    // The children of a list that are lists.
    template <typename action>
    void for_each_list_in(tag_ordinal list, action&& act) const
    {
        tag_ordinal behind = list.next();
        for (auto child = std::ranges::lower_bound(lists_, behind, {}, &list_row::ordinal);
             child != lists_.end() && child->ordinal < end(list); ++child) {
            if (child->ordinal >= behind) {
                act(*child);
                behind = child->end;
            }
        }
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
    std::vector<open_list> around_;
    std::uint16_t depth_ = 1;

    io::large_vector<row> rows_;
    io::large_vector<list_row> lists_;
    io::large_vector<reference> references_;
    mutable std::optional<std::vector<tag_ordinal>> lists_with_children_;
    mutable std::optional<std::vector<std::vector<tag_ordinal>>> lists_by_depth_;
};

} // namespace sdb
