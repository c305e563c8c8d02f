#include "form/forms.h"

#include <algorithm>

namespace form {

#define QUILT_FORM(name, option, make, separator, separator_blanks, carries, header)               \
    std::unique_ptr<writer> make(uni::text_buffer&, const request::cmd_params&, stream_state);
#include "form/forms.inc"
#undef QUILT_FORM

namespace {

constexpr form_row form_rows[] = {
#define QUILT_FORM(name, option, make, separator, separator_blanks, carries, header)               \
    {#name, option, make, separator, blanks::separator_blanks, contents::carries, banner::header},
#include "form/forms.inc"
#undef QUILT_FORM
};

} // namespace

std::span<const form_row> all_forms()
{
    return form_rows;
}

const form_row& form_of(std::string_view name)
{
    return *std::ranges::find(form_rows, name, &form_row::name);
}

} // namespace form
