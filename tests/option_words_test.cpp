#include "front/option_words.h"

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "form/forms.h"
#include "front/sdb_options.h"

namespace front {
namespace {

TEST(option_words, tell_of_each_option_and_of_no_other)
{
    std::set<std::string_view> told;
    for (const option_words& words : all_option_words()) {
        EXPECT_TRUE(told.insert(words.name).second) << words.name;
        EXPECT_FALSE(words.group.empty() || words.effect.empty() || words.example.empty())
            << words.name;
        EXPECT_NE(words.example.find(words.name), std::string_view::npos) << words.name;
    }
    std::set<std::string_view> options;
    for (const option_row& row : all_options()) {
        options.insert(row.name);
        const option_words* const words = words_of(row.name);
        ASSERT_NE(words, nullptr) << row.name;
        // One option of lists takes no value where elsewhere it does.
        EXPECT_TRUE(words->argument.empty() != row.takes_value ||
                    row.how == look_up::alone_in_lists)
            << row.name;
    }
    EXPECT_EQ(told, options);
}

// Of several forms the last of their table wins, and so it is told.
TEST(option_words, tell_of_forms_in_the_order_of_their_table)
{
    const option_words* before = nullptr;
    for (const form::form_row& row : form::all_forms()) {
        if (!row.option.empty()) {
            const option_words* const words = words_of(row.option);
            EXPECT_LT(before, words) << row.option;
            before = words;
        }
    }
}

} // namespace
} // namespace front
