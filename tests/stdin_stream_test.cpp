#include "io/stdin_stream.h"

#include <vector>

#include <gtest/gtest.h>

namespace {

using namespace std::string_literals;
using texts = std::vector<std::string>;

// What is said, line by line.
class said : public io::notices {
public:
    texts messages;

private:
    void take(std::string_view message) override { messages.emplace_back(message); }
};

std::string with_zeros(std::string_view text, bool big)
{
    std::string units;
    for (const char c : text) {
        units += big ? "\0"s + c : c + "\0"s;
    }
    return units;
}

TEST(stdin_stream, gives_lines_and_says_what_of_them_is_no_entry)
{
    const std::string whole(4095, 'x');
    const std::string nul = " of the list holds a NUL, what stands behind it is left out\n";
    const std::string many = " of the list has more than 4095 bytes, taken as several entries\n";
    struct row {
        std::string input;
        texts lines;
        texts messages;
    };
    const row rows[] = {
        {"", {}, {}},
        {"a\r\nb\n\n c \r\r\nd", {"a", "b", "", " c ", "d"}, {}},
        {whole + "\n" + whole + "\r\nb", {whole, "", whole, "", "b"}, {}},
        {"\n" + whole + "y\"\n" + whole + whole + "z",
         {"", whole, "y\"", whole, whole, "z"},
         {"line 2" + many, "line 3" + many}},
        {"a\0b\nc\0\r\n\0d"s, {"a", "c", ""}, {"line 1" + nul, "line 3" + nul}},
        {"\"a b\"\r\n\"\n\"\"\n'c'\n\"d\n\"\"e\"\"", {"a b", "\"", "", "'c'", "\"d", "\"e\""}, {}},
        {"\xef\xbb\xbf\xc3\xa9\n\xef\xbb\xbf\n", {"\xc3\xa9", "\xef\xbb\xbf"}, {}},
        {"\xef\xbb!\n", {"\xef\xbb!"}, {}},
        {"\xff", {"\xff"}, {}},
        {"\xff\xff\n", {"\xff\xff"}, {}},
        // e with an acute, a pair of surrogates, halves of a pair, text in CJK with 0x0a in it
        {"\xff\xfe\xe9\0\n\0\x34\xd8\x1e\xdd\r\0\n\0"s, {"\xc3\xa9", "\xf0\x9d\x84\x9e"}, {}},
        {"\xfe\xff\0\xe9\0\n\x4e\x0a\0\n\xd8\x34\0a\xd8\x34"s,
         {"\xc3\xa9", "\xe4\xb8\x8a",
          "\xef\xbf\xbd"
          "a\xef\xbf\xbd"},
         {}},
        {"\xff\xfe"
         "a\0\0\0b\0\n\0c\0d"s,
         {"a", "c"},
         {"line 1" + nul, "the list ends in the middle of a character\n"}},
        {"\xff\xfe" + with_zeros("\"a\"\r\n" + whole + "\n", false), {"a", whole, ""}, {}},
        {"\xfe\xff" + with_zeros(whole + "y\nb", true), {whole, "y", "b"}, {"line 1" + many}},
    };
    for (const auto& [input, lines, messages] : rows) {
        std::FILE* const file = std::tmpfile();
        std::fwrite(input.data(), 1, input.size(), file);
        std::rewind(file);
        said notices;
        io::stdin_stream stream(notices, file);
        texts found;
        for (std::string line; stream.stdin_list_next(line);) {
            found.push_back(line);
        }
        EXPECT_EQ(found, lines) << testing::PrintToString(input.substr(0, 40));
        EXPECT_EQ(notices.messages, messages) << testing::PrintToString(input.substr(0, 40));
        EXPECT_EQ(notices.failed(), !messages.empty());
        std::fclose(file);
    }
    said notices;
    std::string line;
    EXPECT_FALSE(io::stdin_stream(notices, nullptr).stdin_list_next(line));
}

} // namespace
