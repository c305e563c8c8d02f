#pragma once

#include <string>
#include <string_view>

#include "io/fileio.h"

namespace front {

// The log of -diags; closed, it takes lines and drops them.
class diag_log {
public:
    // False if the file cannot be written.
    bool open(const std::string& path);
    bool is_open() const noexcept { return file_.is_open(); }
    // Writes "->" and the text.
    void write(std::string_view text);

private:
    io::fileio file_;
};

} // namespace front
