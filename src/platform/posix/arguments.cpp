#include "platform/arguments.h"

namespace platform {

// Arguments are bytes and are taken as they are.
std::vector<std::string> program_arguments(int count, char** arguments)
{
    return {arguments, arguments + count};
}

} // namespace platform
