#pragma once

#include <string>
#include <string_view>

#include "io/output_file.h"

namespace front {

// The log of -diags. Lines wait until it is opened, as it must not be before it is known which files
// the run reads; where no log is asked for they are dropped.
class diag_log {
public:
    // Writes "->" and the text.
    void write(std::string_view text);
    // Takes over the lines that wait in another log.
    void take(diag_log& other);
    // Drops the lines that wait.
    void clear() noexcept { waiting_.clear(); }
    // False, with the reason, if the file cannot be written.
    bool open(const io::output_file::place& where, io::output_mode mode, std::string& reason);
    bool is_open() const noexcept { return file_.is_open(); }
    // Puts the log in its place, behind a last text; false if it could not be written whole.
    bool finish(std::string_view last);
    // Leaves it where it is.
    void give_up() { file_.give_up(); }

private:
    uni::text_buffer& out();

    uni::text_buffer waiting_;
    io::output_file file_;
};

} // namespace front
