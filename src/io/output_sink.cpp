#include "io/output_sink.h"

#include <algorithm>
#include <cerrno>

namespace io {

void output_sink::flush()
{
    const std::string_view block = view();
    if (good_ && !block.empty()) {
        good_ = write_block(block);
    }
    clear();
}

void output_sink::long_text(std::string_view whole)
{
    flush();
    if (good_ && !whole.empty()) {
        good_ = write_block(whole);
    }
}

void output_sink::make_room(std::size_t count)
{
    flush();
    if (capacity() < count) {
        grow(std::max(count, buffer_bytes));
    }
}

standard_output::standard_output()
{
    // Blocks are large already; a second buffer would only copy them.
    std::setvbuf(stdout, nullptr, _IONBF, 0);
}

standard_output::~standard_output()
{
    flush();
}

bool standard_output::write_block(std::string_view block)
{
    errno = 0;
    if (std::fwrite(block.data(), 1, block.size(), stdout) == block.size()) {
        return true;
    }
    reader_is_gone_ = errno == EPIPE;
    return false;
}

} // namespace io
