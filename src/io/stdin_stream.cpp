#include "io/stdin_stream.h"

namespace io {

namespace {

constexpr int line_buffer_bytes = 4096;

} // namespace

bool stdin_stream::stdin_list_next(std::string& out)
{
    out.clear();
    char line[line_buffer_bytes];
    if (input_ == nullptr || std::fgets(line, line_buffer_bytes, input_) == nullptr) {
        return false;
    }
    out = line;
    out.erase(out.find_last_not_of("\r\n") + 1);
    return true;
}

} // namespace io
