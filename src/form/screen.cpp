#include "form/screen.h"

#include "uni/text.h"

namespace form {

void write_in(uni::text_buffer& out, std::string_view begin, std::string_view text, bool has_colors)
{
    out.text(has_colors ? begin : "");
    out.text(text);
    out.text(has_colors ? shade::end : "");
}

void write_wrapped(uni::text_buffer& out, std::string_view text, std::size_t indent,
                   std::size_t columns)
{
    constexpr std::size_t fewest = 20;
    if (columns < indent + fewest) {
        out.text(text);
        return;
    }
    for (;;) {
        const std::string_view fits = uni::first_characters(text, columns - indent);
        if (fits.size() == text.size()) {
            out.text(text);
            return;
        }
        const std::size_t blank = fits.find_last_of(' ');
        const std::size_t length = blank == std::string_view::npos ? fits.size() : blank + 1;
        out.text(text.substr(0, length));
        out.line_end();
        out.blanks(indent);
        text.remove_prefix(length);
    }
}

} // namespace form
