#include "io/output_sink.h"

#include <algorithm>
#include <cerrno>

#include "platform/files.h"
#include "uni/byte_view.h"

namespace io {

void output_sink::flush()
{
    const std::string_view block = view();
    if (good_ && !block.empty()) {
        good_ = write_block(block);
    }
    note_handed_on(block.size());
    clear();
}

void output_sink::pass_text(std::string_view text)
{
    if (text.size() < worth_no_copy) {
        text_buffer::pass_text(text);
        return;
    }
    flush();
    if (good_) {
        good_ = write_block(text);
    }
    note_handed_on(text.size());
}

void output_sink::make_room(std::size_t count)
{
    flush();
    if (capacity() < count) {
        grow(std::max(count, buffer_bytes));
    }
}

standard_output::~standard_output()
{
    flush();
}

bool standard_output::write_block(std::string_view block)
{
    was_written_to_ = true;
    errno = 0;
    if (platform::write_file(platform::standard_output_descriptor, uni::bytes_of(block))) {
        return true;
    }
    reader_is_gone_ = errno == EPIPE;
    return false;
}

} // namespace io
