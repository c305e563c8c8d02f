#include "io/stdin_stream.h"

#include <utility>

#include "uni/utf.h"

namespace io {

namespace {

constexpr std::size_t longest_entry = 4095;

void take_quotes(std::string& line)
{
    if (line.size() > 1 && line.front() == '"' && line.back() == '"') {
        line = line.substr(1, line.size() - 2);
    }
}

} // namespace

bool stdin_stream::stdin_list_next(std::string& out)
{
    out.clear();
    if (input_ == nullptr) {
        return false;
    }
    if (encoding_ == encoding::unknown) {
        find_encoding();
    }
    int byte = 0;
    std::size_t count = 0;
    while (count < longest_entry && byte != '\n' && (byte = next_byte()) != EOF) {
        ++count;
        if (byte == '\0') {
            skip_behind_nul();
            byte = '\n';
        }
        out.push_back(static_cast<char>(byte));
    }
    if (count == 0) {
        if (std::ferror(input_) != 0) {
            notices_.fail("prob reading standard input\n");
        }
        return false;
    }
    out.erase(out.find_last_not_of("\r\n") + 1);
    if (continues_line_ && !out.empty() && !is_long_line_told_) {
        notices_.fail("line %llu of the list has more than %zu bytes, taken as several entries\n",
                      static_cast<unsigned long long>(line_), longest_entry);
        is_long_line_told_ = true;
    }
    const bool is_line_end = byte == '\n' || byte == EOF;
    if (is_line_end && !continues_line_) {
        take_quotes(out);
    }
    continues_line_ = !is_line_end;
    if (is_line_end) {
        ++line_;
        is_long_line_told_ = false;
    }
    return true;
}

// Goes to the end of the line, and says so if that leaves anything out.
void stdin_stream::skip_behind_nul()
{
    bool is_text_lost = false;
    for (int byte = 0; byte != EOF && byte != '\n'; byte = next_byte()) {
        is_text_lost |= byte != '\0' && byte != '\r';
    }
    if (is_text_lost) {
        notices_.fail("line %llu of the list holds a NUL, what stands behind it is left out\n",
                      static_cast<unsigned long long>(line_));
    }
}

// Looks at no more bytes than it must: whoever writes the list may wait for an answer.
void stdin_stream::find_encoding()
{
    encoding_ = encoding::utf8;
    const auto next_is = [this](int wanted) {
        const int byte = std::getc(input_);
        if (byte != EOF) {
            waiting_.push_back(static_cast<char>(byte));
        }
        return byte == wanted;
    };
    const int first = std::getc(input_);
    if (first == EOF) {
        return;
    }
    waiting_.assign(1, static_cast<char>(first));
    if (first == 0xff && next_is(0xfe)) {
        encoding_ = encoding::utf16_little;
    } else if (first == 0xfe && next_is(0xff)) {
        encoding_ = encoding::utf16_big;
    } else if (first != 0xef || !next_is(0xbb) || !next_is(0xbf)) {
        return;
    }
    waiting_.clear();
}

int stdin_stream::next_byte()
{
    if (taken_ == waiting_.size() && !read_character()) {
        return EOF;
    }
    return static_cast<unsigned char>(waiting_[taken_++]);
}

// Waits for one character more of the input, or of UTF-8 for one byte.
bool stdin_stream::read_character()
{
    waiting_.clear();
    taken_ = 0;
    if (encoding_ == encoding::utf8) {
        const int byte = std::getc(input_);
        if (byte != EOF) {
            waiting_.push_back(static_cast<char>(byte));
        }
        return byte != EOF;
    }
    const auto unit = read_unit();
    if (!unit) {
        return false;
    }
    std::u16string character(1, *unit);
    if (*unit >= 0xd800 && *unit <= 0xdbff) {
        unit_ = read_unit();
        if (unit_ && *unit_ >= 0xdc00 && *unit_ <= 0xdfff) {
            character.push_back(*unit_);
            unit_.reset();
        } else {
            character.assign(1, u'\xfffd'); // no name that could be opened
        }
    }
    waiting_ = uni::utf8_from_utf16(character);
    return true;
}

std::optional<char16_t> stdin_stream::read_unit()
{
    if (unit_) {
        return std::exchange(unit_, std::nullopt);
    }
    const int first = std::getc(input_);
    const int second = first == EOF ? EOF : std::getc(input_);
    if (second == EOF) {
        if (first != EOF) {
            notices_.fail("the list ends in the middle of a character\n");
        }
        return std::nullopt;
    }
    return static_cast<char16_t>(encoding_ == encoding::utf16_big ? first << 8 | second
                                                                  : second << 8 | first);
}

} // namespace io
