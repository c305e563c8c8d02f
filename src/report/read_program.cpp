#include "report/read_program.h"

#include <utility>

namespace report {

program_state read_program(model::pe_list& properties, std::unique_ptr<io::byte_source>& source,
                           const std::string& path, io::notices& notices, std::string& reason)
{
    source = io::open_source(path, reason);
    if (!source) {
        return program_state::unreadable;
    }
    switch (model::read_pe_stats(properties, std::move(source), path, &source)) {
    case model::pe_outcome::no_program:
        reason = "is no program";
        return program_state::no_program;
    case model::pe_outcome::unreadable:
        reason = "reading failed";
        return program_state::unreadable;
    case model::pe_outcome::changed:
        notices.fail("%s changed while it was read\n", path.c_str());
        break;
    case model::pe_outcome::gathered:
        break;
    }
    return program_state::read;
}

} // namespace report
