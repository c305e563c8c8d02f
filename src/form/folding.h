#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <utility>

#include "model/record_groups.h"
#include "uni/text_buffer.h"

namespace form {

// Says the groups of a record one by one: followed records whose text was kept as that text, and keeps
// the text of those that are worth it. The `sayer` has
//   may_say_more()        whether there is room for more of the record
//   has_room_for(folded)  whether all of that text has room, wherever a group of it may end
//   say(items, nests)     a group, and whether the next one stands in it
//   close_down_to(depth)  ends all that stands as deep or deeper
template <typename sayer_type>
class folding {
public:
    folding(sayer_type& sayer, model::folded_records& folds, uni::text_buffer& out)
        : sayer_(sayer), folds_(folds), out_(out)
    {}

    void say(const model::record_groups& groups)
    {
        auto next_foldable = groups.foldable().begin();
        auto next_folded = groups.folded().begin();
        const auto say_one = [&](std::size_t group) {
            if (next_folded != groups.folded().end() && next_folded->group == group) {
                say_folded(*(next_folded++)->folded);
            } else {
                const bool nests = group + 1 < groups.size() &&
                                   groups[group + 1].front().depth > groups[group].front().depth;
                sayer_.say(groups[group], nests);
            }
        };
        for (std::size_t group = 0; group < groups.size() && sayer_.may_say_more();) {
            if (next_foldable == groups.foldable().end() || next_foldable->first != group) {
                say_one(group++);
                continue;
            }
            sayer_.close_down_to(next_foldable->fold.depth);
            const std::uint64_t begin = out_.total();
            for (; group < next_foldable->end && sayer_.may_say_more(); ++group) {
                say_one(group);
            }
            if (sayer_.may_say_more()) {
                sayer_.close_down_to(next_foldable->fold.depth);
                keep(*next_foldable, groups, begin);
            }
            ++next_foldable;
        }
    }

private:
    void say_folded(const model::folded_record& folded)
    {
        sayer_.close_down_to(folded.depth);
        if (sayer_.has_room_for(folded)) {
            out_.text(folded.text);
            return;
        }
        std::span<const model::record_item> rest = folded.items;
        for (std::size_t i = 0; i < folded.group_sizes.size() && sayer_.may_say_more(); ++i) {
            const auto items = rest.first(folded.group_sizes[i]);
            rest = rest.subspan(items.size());
            sayer_.say(items, !rest.empty() && rest.front().depth > items.front().depth);
        }
    }

    // Unless a part of the text was handed on already.
    void keep(const model::foldable_groups& made, const model::record_groups& groups,
              std::uint64_t begin)
    {
        const std::string_view held = out_.view();
        const std::uint64_t handed_on = out_.total() - held.size();
        if (handed_on > begin || !out_.good()) {
            return;
        }
        model::folded_record fold = made.fold;
        fold.text = held.substr(static_cast<std::size_t>(begin - handed_on));
        for (std::size_t group = made.first; group < made.end; ++group) {
            if (const model::folded_record* const inner = groups.folded(group)) {
                fold.items.insert(fold.items.end(), inner->items.begin(), inner->items.end());
                fold.group_sizes.insert(fold.group_sizes.end(), inner->group_sizes.begin(),
                                        inner->group_sizes.end());
            } else {
                const auto items = groups[group];
                fold.items.insert(fold.items.end(), items.begin(), items.end());
                fold.group_sizes.push_back(static_cast<std::uint32_t>(items.size()));
            }
        }
        folds_.keep(std::move(fold));
    }

    sayer_type& sayer_;
    model::folded_records& folds_;
    uni::text_buffer& out_;
};

} // namespace form
