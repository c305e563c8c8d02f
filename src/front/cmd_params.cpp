#include "front/cmd_params.h"

#include "uni/text.h"

namespace front {

void cmd_log_write(cmd_params& params, std::string_view text)
{
    if (!params.log_on || !params.cmd_log) {
        return;
    }
    if (io::fileio_output* const log = params.cmd_log->output_stream()) {
        log->text("->");
        log->text(text);
        log->flush();
    }
}

void set_csv_separator(cmd_params& params, std::string_view text)
{
    params.csv_separator = text;
    const std::string lower = uni::lowered(text);
    params.field_char_from = '\0';
    if (params.quoted_csv_fields) {
        return;
    }
    if (lower.find('|') != std::string::npos) {
        params.field_char_from = '|';
        params.field_char_to = ';';
    } else if (lower.find(',') != std::string::npos) {
        params.field_char_from = ',';
        params.field_char_to = ' ';
    } else if (lower == "tab" || lower == "\\t") {
        params.csv_separator = "\t";
    }
}

} // namespace front
