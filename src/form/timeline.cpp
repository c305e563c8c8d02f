#include "form/timeline.h"

#include <algorithm>

namespace form {

namespace {

constexpr std::string_view letters = "MACB";

} // namespace

std::vector<timeline_row> expand_stamps(const std::array<timeline_stamp, 4>& stamps)
{
    std::vector<timeline_row> rows;
    for (std::size_t place = 0; place < stamps.size(); ++place) {
        const uni::time_value moment =
            uni::time_value_from(stamps[place].time, uni::time_kind::filetime);
        if (!moment.valid) {
            continue;
        }
        auto row = std::ranges::find(rows, moment.filetime,
                                     [](const timeline_row& made) { return made.moment.filetime; });
        if (row == rows.end()) {
            row = rows.insert(row, {"....", {}, moment});
        }
        row->macb[place] = letters[place];
        row->meaning.append(row->meaning.empty() ? "" : "; ").append(stamps[place].meaning);
    }
    std::ranges::stable_sort(rows, {}, [](const timeline_row& row) { return row.moment.filetime; });
    return rows;
}

} // namespace form
