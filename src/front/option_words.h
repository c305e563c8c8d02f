#pragma once

#include <span>
#include <string_view>

namespace front {

// What is told of an option; how it is looked up and what it does stands in its row (option_rows.h).
// The help text, the manual, the option page and the completions of shells are made from these.
struct option_words {
    std::string_view name; // with one dash
    std::string_view group;
    // Of the value that follows it: file, folder and volume are paths, "a|b" is one of these.
    std::string_view argument = {};
    std::string_view effect; // a few words, for one line
    std::string_view detail = {};
    std::string_view otherwise = {}; // what holds without it
    std::string_view conflicts = {};
    std::string_view example; // a command line
};

// Of every option, in the order in which they are told.
std::span<const option_words> all_option_words();

// Of the option of that name, with one dash, two or none, in any case; null if there is none.
const option_words* words_of(std::string_view name);

} // namespace front
