#include "form/screen.h"

#include <algorithm>

#include "uni/text.h"
#include "uni/utf.h"

namespace form {

void write_in(uni::text_buffer& out, std::string_view begin, std::string_view text, bool has_colors)
{
    out.text(has_colors ? begin : "");
    out.text(text);
    out.text(has_colors ? shade::end : "");
}

void write_wrapped(uni::text_buffer& out, std::string_view text, std::size_t begin,
                   std::size_t hanging, std::size_t columns)
{
    constexpr std::size_t fewest = 20; // in which a text can be read
    constexpr std::size_t narrow_hanging = 4;
    if (columns <= narrow_hanging * 2) {
        out.text(text);
        return;
    }
    // On a narrow screen what goes on does so further left.
    const std::size_t below = columns < hanging + fewest ? narrow_hanging : hanging;
    for (;; begin = below) {
        const std::string_view fits = uni::first_columns(text, columns - std::min(begin, columns));
        if (fits.size() == text.size()) {
            out.text(text);
            return;
        }
        const std::size_t blank = fits.find_last_of(' ');
        std::size_t length = blank == std::string_view::npos ? fits.size() : blank + 1;
        if (blank == std::string_view::npos && begin > below) {
            length = 0;
        } else if (length == 0) { // a character that is wider than the line
            length = uni::decode_utf8(text).length;
        }
        out.text(text.substr(0, length));
        text.remove_prefix(length);
        // A line that goes on shows no blanks of the text, which would let it begin where others do.
        text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
        if (text.empty()) {
            return;
        }
        out.line_end();
        out.blanks(below);
    }
}

} // namespace form
