#include <gtest/gtest.h>

#include <string>

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

} // namespace
