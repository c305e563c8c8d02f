#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace uni {

// Several texts that are looked for at once: an automaton after Aho and Corasick, which takes each byte
// of what is searched once, however many texts there are. About ten bytes for each byte of theirs.
class text_set {
public:
    using state = std::uint32_t;
    static constexpr state start = 0;

    // An empty text stands in every text.
    explicit text_set(std::vector<std::string> texts);

    // The state behind one more byte of what is searched.
    state next(state from, char byte) const noexcept
    {
        const auto label = static_cast<std::uint8_t>(byte);
        while (from != start) {
            if (const state found = child(from, label); found != start) {
                return found;
            }
            from = shorter_[from];
        }
        return from_start_[label];
    }
    // Whether one of the texts ends where the state was reached.
    bool is_found(state at) const noexcept { return ends_[at]; }
    bool stands_in(std::string_view searched) const noexcept;

private:
    // The state behind that byte, without a look at what begins later; `start` for none.
    state child(state from, std::uint8_t label) const noexcept
    {
        for (state one = first_child_[from]; one < first_child_[from + 1]; ++one) {
            if (label_[one] == label) {
                return one;
            }
        }
        return start;
    }
    state add_state(std::uint8_t label, state shorter);

    // States are numbered by their length, so that the children of one stand side by side.
    std::vector<state> first_child_;  // and behind the last state the end of them all
    std::vector<state> shorter_;      // the longest state that the end of this one is
    std::vector<std::uint8_t> label_; // the byte that leads here
    std::vector<bool> ends_;
    std::vector<state> from_start_;
};

} // namespace uni
