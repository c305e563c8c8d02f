#include "front/diag_log.h"

namespace front {

uni::text_buffer& diag_log::out()
{
    return file_.is_open() ? static_cast<uni::text_buffer&>(file_) : waiting_;
}

void diag_log::write(std::string_view text)
{
    out().text("->");
    out().text(text);
}

void diag_log::take(diag_log& other)
{
    out().text(other.waiting_.view());
    other.clear();
}

bool diag_log::open(const io::output_file::place& where, io::output_mode mode, std::string& reason)
{
    if (!file_.open(where, mode, reason)) {
        return false;
    }
    file_.text(waiting_.view());
    waiting_.clear();
    return true;
}

bool diag_log::finish(std::string_view last)
{
    file_.text(last);
    return file_.finish();
}

} // namespace front
