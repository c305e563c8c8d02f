#include "front/diag_log.h"

namespace front {

bool diag_log::open(const std::string& path)
{
    return file_.open_write(path, true, false, true);
}

void diag_log::write(std::string_view text)
{
    if (io::fileio_output* const out = file_.output_stream()) {
        out->text("->");
        out->text(text);
        out->flush();
    }
}

} // namespace front
