#include "form/fields.h"

#include "uni/text.h"

namespace form {

std::string field_text(std::string text, const request::cmd_params& style)
{
    if (style.field_char_from != '\0' && style.field_char_to != '\0') {
        uni::replace_char(text, style.field_char_from, style.field_char_to);
    }
    uni::keep_on_one_line(text);
    return text;
}

} // namespace form
