#include "front/option_rows.h"

#include <algorithm>
#include <numeric>
#include <utility>
#include <vector>

#include "uni/text.h"

namespace front {

namespace {

enum class taking { absent, taken, ended };

taking take_row(const option_row& row, parsing& now)
{
    std::string value;
    const bool found = row.takes_value ? find_option_value(row.name, value, now.args)
                                       : find_option_flag(row.name, now.args);
    if (!found) {
        return taking::absent;
    }
    now.taken.push_back(row.name);
    return row.effect(now, row, value) ? taking::taken : taking::ended;
}

// How many characters are to be put in, taken out, replaced or swapped with their neighbour to make
// one text the other.
std::size_t edits_between(std::string_view from, std::string_view to)
{
    // Of the beginnings of `from` that end here, one character and two characters earlier, to each
    // beginning of `to`.
    std::vector<std::size_t> edits(to.size() + 1);
    std::iota(edits.begin(), edits.end(), std::size_t{0});
    std::vector<std::size_t> before;
    std::vector<std::size_t> long_before;
    for (std::size_t k = 0; k < from.size(); ++k) {
        long_before = std::exchange(before, edits);
        ++edits[0];
        for (std::size_t i = 0; i < to.size(); ++i) {
            edits[i + 1] =
                std::min({before[i] + (from[k] == to[i] ? 0 : 1), before[i + 1] + 1, edits[i] + 1});
            if (k > 0 && i > 0 && from[k] == to[i - 1] && from[k - 1] == to[i]) {
                edits[i + 1] = std::min(edits[i + 1], long_before[i - 1] + 1);
            }
        }
    }
    return edits.back();
}

// The option that is most like a text, at most two edits away and with something in common; empty if
// there is none.
std::string_view nearest_name(std::span<const option_row> rows, std::string_view text)
{
    constexpr std::size_t most_edits = 2;
    const std::string lower = uni::lowered(text);
    std::size_t fewest = most_edits + 1;
    std::string_view nearest;
    for (const option_row& row : rows) {
        const auto [shorter, longer] = std::minmax({lower.size(), row.name.size()});
        if (longer - shorter > most_edits) {
            continue;
        }
        const std::size_t edits = edits_between(lower, row.name);
        if (edits < fewest && edits + 1 < shorter) { // beside the dash
            fewest = edits;
            nearest = row.name;
        }
    }
    return fewest == 0 ? std::string_view() : nearest;
}

// The option that may have been wanted by an argument that is none; empty if there is nothing to say.
std::string_view wanted_name(std::span<const option_row> rows, std::string_view argument)
{
    if (!argument.starts_with('-')) {
        return uni::lowered(argument).ends_with(".sdb") ? "-sdb" : nearest_name(rows, argument);
    }
    const std::string_view name = argument.substr(0, argument.find('=')); // no option takes one
    const auto same = std::ranges::find_if(
        rows, [name](const option_row& row) { return uni::equal_ignoring_case(row.name, name); });
    return name.size() != argument.size() && same != rows.end() ? same->name
                                                                : nearest_name(rows, argument);
}

bool wants_value(std::span<const option_row> rows, std::string_view name)
{
    return std::ranges::any_of(rows, [name](const option_row& row) {
        return row.takes_value && uni::equal_ignoring_case(row.name, name);
    });
}

} // namespace

bool take_rows(std::span<const option_row> rows, parsing& now)
{
    bool is_taken = false; // a row of those that rule each other out
    for (const option_row& row : rows) {
        const bool is_alternative =
            row.how == look_up::if_none_yet || row.how == look_up::alone_in_lists;
        if (row.how == look_up::by_another_effect || (is_alternative && is_taken) ||
            (row.how == look_up::alone_in_lists && !now.options.is_list_form()) ||
            (row.how == look_up::more_for_match && !now.options.match_mode) ||
            (row.how == look_up::more_for_explain && !now.options.explain)) {
            continue;
        }
        taking outcome = take_row(row, now);
        is_taken = outcome == taking::taken;
        const bool is_repeated = row.how == look_up::each || row.how == look_up::more_for_match ||
                                 row.how == look_up::more_for_explain;
        while (is_repeated && outcome == taking::taken) {
            outcome = take_row(row, now);
        }
        if (outcome == taking::ended) {
            return false;
        }
    }
    return true;
}

void tell_ignored(std::span<const option_row> rows, const argument_list& args, io::notices& notices)
{
    for (std::size_t i = 1; i < args.size(); ++i) {
        const std::string_view name = as_option_name(args[i]);
        const std::string nearest(wanted_name(rows, name));
        if (i + 1 == args.size() && wants_value(rows, name)) {
            notices.say("%s wants a value\n", args[i].c_str());
        } else if (!nearest.empty()) {
            notices.say("ignored: %s (%s?)\n", args[i].c_str(), nearest.c_str());
        } else {
            notices.say("ignored: %s\n", args[i].c_str());
        }
    }
}

} // namespace front
