#include "front/progress.h"

#include <gtest/gtest.h>

namespace front {
namespace {

TEST(progress, tells_count_rate_and_time_left_in_the_width_of_a_line)
{
    struct row {
        std::size_t done, total;
        double seconds;
        std::size_t columns;
        const char* expected;
    };
    for (const row& now :
         {row{1, 0, 0, 0, "1 file: a/計[x1b]"},
          row{3, 0, 2, 80, "3 files, 1.5 a second: a/計[x1b]"},
          row{4, 40, 2, 80, "4 of 40 files, 2.0 a second, 18 s left: a/計[x1b]"},
          row{1, 91, 1, 80, "1 of 91 files, 1.0 a second, 1 min 30 s left: a/計[x1b]"},
          row{1, 7261, 1, 80, "1 of 7261 files, 1.0 a second, 2 h 1 min left: a/計[x1b]"},
          row{9, 9, 9, 80, "9 of 9 files, 1.0 a second: a/計[x1b]"},
          row{3, 0, 2, 29, "3 files, 1.5 a second: a/計["},
          row{3, 0, 2, 28, "3 files, 1.5 a second: a/計"},
          row{3, 0, 2, 27, "3 files, 1.5 a second: a/"}, row{3, 0, 2, 1, ""}}) {
        EXPECT_EQ(progress_text(now.done, now.total, now.seconds, "a/計\x1b", now.columns),
                  now.expected);
    }
}

} // namespace
} // namespace front
