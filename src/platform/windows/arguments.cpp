#include "platform/arguments.h"

#include <windows.h>

#include <shellapi.h>

#include "platform/windows/wide.h"

namespace platform {

// The narrow arguments have lost what the code page cannot hold, so they are not looked at.
std::vector<std::string> program_arguments(int, char**)
{
    int count = 0;
    wchar_t** const wide = ::CommandLineToArgvW(::GetCommandLineW(), &count);
    std::vector<std::string> arguments;
    for (int i = 0; wide != nullptr && i < count; ++i) {
        arguments.push_back(wide[i] == nullptr ? std::string() : utf8_from_wide(wide[i]));
    }
    ::LocalFree(wide);
    return arguments;
}

} // namespace platform
