#include <gtest/gtest.h>

#include <string>

#include "report/effect_words.h"
#include "report/recognition_words.h"
#include "support/database_text.h"
#include "support/reports.h"
#include "support/sample_database.h"

namespace {

TEST(recognition, says_all_that_a_record_asks_for_and_nothing_else)
{
    const struct {
        const char* tags; // of the executable a.exe, an indented line each
        const char* words;
    } rows[] = {
        {"", "any file of that name"},
        {"matching_file/  name = *", "any file of that name"},
        {"matching_file/  name = */  match_logic_not", "no file of that name"},
        {"matching_file/  name = A.EXE/  match_logic_not/  size = 1", "no file that is: 1 byte"},
        {"matching_file/  size = 2", "any version; 2 bytes"},
        {"matching_file/  from_bin_file_version = 1.0.0.0/  upto_bin_file_version = 2.0.0.0",
         "from 1.0.0.0 up to 2.0.0.0"},
        {"matching_file/  from_bin_file_version = 1.0.0.0/  bin_file_version = 3.0.0.0",
         "only 3.0.0.0, from 1.0.0.0"},
        {"matching_file/  name = b.dll/  size = 2",
         "any file of that name|and beside b.dll, 2 bytes"},
        {"matching_file/  name = b.dll, only 9.9.9.9",
         "any file of that name|and beside \"b.dll, only 9.9.9.9\""},
        {"pick_one/  matching_file/    name = a.dll/    size = 2/  matching_file/    name = *",
         "any file of that name|and with one of: a.dll, 2 bytes; the file itself"},
        {"contains_file/  name = c/match_plugin/  name = p/os_service_pack = 1",
         "any file of that name|and with contains file: name \"c\"|"
         "and with match plugin: name \"p\"|os service pack 0x00000001"},
        {"os_platform = 1/wildcard_name = a*.exe",
         "any file of the pattern a*.exe|on 32-bit systems"},
    };
    const request::cmd_params style;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.tags);
        std::string text = "database\n  exe\n    name = a.exe\n    ";
        for (const char c : std::string(row.tags) + '\n') {
            text += c == '/' ? "\n    " : std::string(1, c);
        }
        const test_support::loaded_database loaded(test_support::database_from_text(text));
        report::recognition_words recognition(loaded.database, style);
        const std::uint32_t record =
            loaded.database.offset_at(loaded.database.ordinals_by_tag(sdb::tag::exe).front());
        std::string words;
        const report::word_lines& lines = recognition.of(record);
        for (std::size_t i = 0; i < lines.size(); ++i) {
            words += (i == 0 ? "" : "|") + std::string(lines[i]);
        }
        EXPECT_EQ(words, row.words);
    }
}

TEST(effects, of_a_patch_show_what_was_matched_in_each_place)
{
    const struct {
        const char* operations; // a line each
        const char* line;
    } rows[] = {
        {"match 16 a = 74 12/replace 16 a = eb 12", "+0x00000010  74 12 -> eb 12"},
        {"match 14 a = 90 90 74/replace 16 a = eb",
         "+0x00000010  74 -> eb   (after a match at 0x0000000e)"},
        {"match 16 a = 74 12/match 18 a = 33/replace 16 a = 90 90 90",
         "+0x00000010  74 12 33 -> 90 90 90"},
        {"match 18 a = 11/match 16 a = 10 12 13 14/replace 16 a = 90 90 90",
         "+0x00000010  10 12 11 -> 90 90 90"},
        {"match 10 a = 01 02 03 04 05 06 07 08/match 11 a = 02/replace 16 a = 90",
         "+0x00000010  07 -> 90   (after a match at 0x0000000a)"},
        {"match 18 a = 11 22/replace 16 a = 90 90 90 90 90 90",
         "+0x00000010  ?? ?? 11 22 ?? ?? -> 90 90 90 90 90 90   (not matched where it begins)"},
        {"match 32 a = 11/replace 16 a = 90 90",
         "+0x00000010  ?? ?? -> 90 90   (not matched there)"},
        {"match 16 b = 11/replace 16 a = 90",
         "+0x00000010  ?? -> 90   (nothing was matched before)"},
        {"match 16 a = 11/replace 16 a = \"\"", "+0x00000010  no bytes"},
        {"match 16 a = \"abcd\"/replace 16 a = \"efg4\"", "+0x00000010  \"abcd\" -> \"efg4\""},
        {"match 16 a = \"abcd\" 00/replace 16 a = \"abcde\"", "+0x00000010  \"abcd\" -> \"abcde\""},
        {"match 16 a = u\"abcd\"/replace 16 a = \"abcd\" 00 00 00 00",
         "+0x00000010  61 00 62 00 63 00 64 00 -> 61 62 63 64 00 00 00 00 \"abcd\""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.operations);
        std::string text =
            "database\n  library\n    patch\n      name = p\n      patch_bits\n        ";
        for (const char c : std::string(row.operations) + '\n') {
            text += c == '/' ? "\n        " : std::string(1, c);
        }
        const test_support::loaded_database loaded(test_support::database_from_text(text));
        const std::uint32_t bits = loaded.database.offset_at(
            loaded.database.ordinals_by_tag(sdb::tag::patch_bits).front());
        std::string line;
        model::for_each_change(loaded.database.payload_at(bits),
                               [&](const model::patch_change& change) {
                                   line += report::change_line(change);
                                   return true;
                               });
        EXPECT_EQ(line, row.line);
    }
}

} // namespace
