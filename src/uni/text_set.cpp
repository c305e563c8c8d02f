#include "uni/text_set.h"

#include <algorithm>
#include <utility>

namespace uni {

namespace {

// The texts that begin with what leads to a state.
struct text_range {
    std::size_t first;
    std::size_t end;
};

} // namespace

text_set::state text_set::add_state(std::uint8_t label, state shorter)
{
    label_.push_back(label);
    shorter_.push_back(shorter);
    ends_.push_back(false);
    return static_cast<state>(label_.size() - 1);
}

text_set::text_set(std::vector<std::string> texts) : from_start_(256, start)
{
    std::ranges::sort(texts);
    add_state(0, start);
    std::vector<text_range> ranges{{0, texts.size()}};
    std::size_t length = 0;
    std::size_t behind_length = 1; // the first state that is longer
    for (state at = start; at < ranges.size(); ++at) {
        if (at == behind_length) {
            ++length;
            behind_length = ranges.size();
        }
        first_child_.push_back(static_cast<state>(ranges.size()));
        auto [first, end] = std::as_const(ranges)[at];
        // Where one ends, nothing longer is of interest.
        ends_[at] = ends_[shorter_[at]] || (first < end && texts[first].size() == length);
        while (!ends_[at] && first < end) {
            const char byte = texts[first][length];
            const std::size_t begin = first;
            while (first < end && texts[first][length] == byte) {
                ++first;
            }
            const auto label = static_cast<std::uint8_t>(byte);
            const state shorter = at == start ? start : next(shorter_[at], byte);
            const state made = add_state(label, shorter);
            ranges.push_back({begin, first});
            if (at == start) {
                from_start_[label] = made;
            }
        }
    }
    first_child_.push_back(static_cast<state>(ranges.size()));
}

bool text_set::stands_in(std::string_view searched) const noexcept
{
    state at = start;
    for (const char byte : searched) {
        at = next(at, byte);
        if (is_found(at)) {
            return true;
        }
    }
    return is_found(at);
}

} // namespace uni
