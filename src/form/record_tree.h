#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <utility>

#include "io/large_vector.h"
#include "model/record_expander.h"
#include "model/record_groups.h"
#include "model/record_outline.h"
#include "request/bounds.h"
#include "sdb/database.h"
#include "uni/text_buffer.h"

namespace form {

// Says records as trees, one after the other. What common readers take, lists in one another, is bounded:
// what stands deeper begins a tree of its own. Followed records that come again and again are said once,
// and their text copied. The `sayer` derives from it and has
//   begin_root(within, reference)      begins a tree; in the list at `within`, where that is not 0
//   begin_child(is_first, reference)   begins a list in the one around it, the first of these or not
//   write_list(items)                  what stands at a list's beginning, and its scalars
//   end_list(is_root, is_cut)
// where `reference` is the offset of the tag that led to a followed record, 0 for others; behind these two
// what is written of a followed record is the same wherever it stands.
template <typename sayer>
class record_tree {
public:
    // Writes one record. It ends early, with all its lists closed, and answers false where `most_text` bytes
    // were written to the buffer.
    bool write_record(const model::record_groups& groups, std::uint64_t most_text,
                      model::folded_records& folds)
    {
        most_text_ = most_text;
        folds_ = &folds;
        is_cut_ = false;
        folded_begin_ = 0;
        may_fold_ = false;
        open_.reserve(database_.children().lists().size() + 1);
        outline_.walk(groups, *this);
        return !is_cut_;
    }

    // Closes what a record left open that an exception ended.
    void abandon_record()
    {
        is_cut_ = true;
        out_.text(std::exchange(completion_, {}));
        while (!open_.empty()) {
            leave();
        }
    }

    record_tree(const record_tree&) = delete;
    record_tree& operator=(const record_tree&) = delete;

protected:
    using item_span = std::span<const model::record_item>;

    // A tree's beginning takes `most_at_root` beside its numbers.
    record_tree(uni::text_buffer& out, const sdb::sdb_database& database,
                const request::bounds& bounds, std::size_t most_at_root)
        : out_(out), database_(database), bounds_(bounds),
          most_in_front_(most_in_front + most_at_root)
    {}
    ~record_tree() = default;

    // Whether a record may go on, what closes its lists included. Once it may not, it stays so.
    bool has_room() noexcept
    {
        is_cut_ = is_cut_ || !out_.good() || out_.total() + usual_close * open_.size() > most_text_;
        return !is_cut_;
    }

    uni::text_buffer& out_;
    const sdb::sdb_database& database_;
    // What completes the list in work, up to the lists in it, where an exception ends it. To be set behind
    // its beginning, for which there is room.
    std::string_view completion_;

private:
    friend model::record_outline;

    // Two levels of a reader each, at least: common readers follow 256.
    static constexpr std::size_t deepest_lists = 64;
    static constexpr std::uint64_t usual_close = 32;
    // What a list's beginning takes, up to what of a followed record is the same everywhere.
    static constexpr std::size_t most_in_front = 256;

    struct open_list {
        std::uint32_t offset;
        bool has_children = false;
    };

    sayer& self() noexcept { return static_cast<sayer&>(*this); }

    // A record's lists, as its outline shows them.
    bool enter(item_span items, std::uint32_t reference)
    {
        if (!has_room()) {
            return false;
        }
        if (open_.size() - root_ == deepest_lists) {
            end_tree();
        }
        out_.room(most_in_front_); // which may fail, before the list begins
        open_.push_back({items.front().offset});
        begin_list(reference);
        self().write_list(items);
        completion_ = {};
        return true;
    }
    void leave()
    {
        if (open_.size() > root_) {
            self().end_list(open_.size() - 1 == root_, is_cut_);
        }
        open_.pop_back();
        root_ = std::min(root_, open_.size());
    }
    bool enter_folded(const model::folded_record& folded, std::uint32_t reference)
    {
        if (!has_room()) {
            return false;
        }
        const std::size_t depth = open_.size() - root_;
        const std::uint64_t end = out_.total() + most_in_front + folded.text.size() +
                                  usual_close * (open_.size() + folded.nested);
        if (depth == 0 || depth + folded.nested > deepest_lists || end > most_text_) {
            return enter_expanded(folded.record, reference);
        }
        note_nested(open_.size() + folded.nested);
        out_.room(most_in_front_ + folded.text.size());
        self().begin_child(!std::exchange(open_.back().has_children, true), reference);
        out_.text(folded.text);
        completion_ = {};
        return true;
    }
    void begin_foldable() { may_fold_ = true; }
    // Keeps a followed record that has just ended.
    void end_foldable(const model::folded_record& fold, item_span items)
    {
        const std::uint64_t begin = std::exchange(folded_begin_, 0);
        const std::string_view held = out_.view();
        const std::uint64_t handed_on = out_.total() - held.size();
        if (begin == 0 || begin < handed_on || is_cut_ || !out_.good()) {
            return;
        }
        model::folded_record kept = fold;
        kept.nested = static_cast<std::uint16_t>(folded_nested_);
        kept.text = held.substr(static_cast<std::size_t>(begin - handed_on));
        kept.items.assign(items.begin(), items.end());
        kept.group_sizes.push_back(static_cast<std::uint32_t>(items.size()));
        folds_->keep(std::move(kept));
    }

    // What gathers a followed record once more, and shows it to the tree.
    struct expanded_record {
        explicit expanded_record(const sdb::sdb_database& database) : expander(database) {}

        model::record_expander expander;
        model::record_groups groups;
        model::record_outline outline;

        struct visitor {
            record_tree& tree;
            std::uint32_t reference; // to the record
            bool goes_on = true;

            bool enter(item_span items, std::uint32_t inner)
            {
                const std::uint32_t own = std::exchange(reference, 0);
                goes_on = tree.enter(items, own != 0 ? own : inner);
                return goes_on;
            }
            void leave() { tree.leave(); }
            bool enter_folded(const model::folded_record&, std::uint32_t) { return goes_on; }
            void begin_foldable() {}
            void end_foldable(const model::folded_record&, item_span) {}
        };
    };

    // Says a followed record that cannot stand as its text. Elsewhere it was the same, so that no bound keeps
    // anything of it back here.
    bool enter_expanded(std::uint32_t record, std::uint32_t reference)
    {
        if (!expanded_) {
            expanded_ = std::make_unique<expanded_record>(database_);
        }
        model::listing_budget budget(database_, bounds_);
        model::record_groups& groups = expanded_->groups;
        const model::record_expander& expander = expanded_->expander;
        groups.clear();
        expanded_->expander.expand(record, true, budget);
        groups.add(expander.own_items());
        for (std::size_t index = 0; index < expander.subrecord_count(); ++index) {
            groups.add(expander.subrecord(index));
        }
        groups.finish(&expander);
        typename expanded_record::visitor seen{*this, reference};
        expanded_->outline.walk(groups, seen);
        return seen.goes_on;
    }

    void begin_list(std::uint32_t reference)
    {
        const std::size_t depth = open_.size() - root_;
        if (depth == 1) {
            self().begin_root(root_ != 0 ? open_[root_ - 1].offset : 0, reference);
        } else {
            open_list& outer = open_[open_.size() - 2];
            self().begin_child(!std::exchange(outer.has_children, true), reference);
        }
        if (std::exchange(may_fold_, false) && depth > 1) {
            folded_begin_ = out_.total();
            folded_depth_ = open_.size();
            folded_nested_ = 0;
        }
        note_nested(open_.size());
    }
    // So many lists are open, or would be.
    void note_nested(std::size_t open) noexcept
    {
        folded_nested_ = std::max(folded_nested_, open + 1 - std::min(folded_depth_, open + 1));
    }
    // Ends the tree in work inside of its lists.
    void end_tree()
    {
        for (std::size_t left = open_.size(); left > root_; --left) {
            self().end_list(left - 1 == root_, is_cut_);
        }
        root_ = open_.size();
        folded_begin_ = 0;
    }

    std::uint64_t most_text_ = 0;
    bool is_cut_ = false; // the record in work
    model::record_outline outline_;
    const request::bounds& bounds_;
    const std::size_t most_in_front_;
    model::folded_records* folds_ = nullptr; // of the record in work
    std::unique_ptr<expanded_record> expanded_;
    // The followed record in work that may be kept: the place where its text began, 0 for none, how many lists are
    // open with its own, and how many of those in it stand in one another.
    bool may_fold_ = false; // what is entered next
    std::uint64_t folded_begin_ = 0;
    std::size_t folded_depth_ = 0;
    std::size_t folded_nested_ = 0;
    io::large_vector<open_list> open_;
    std::size_t root_ = 0; // as many of them stand in trees that have ended
};

} // namespace form
