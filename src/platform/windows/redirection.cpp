#include "platform/redirection.h"

#include <string>

#include <windows.h>

namespace platform {

namespace {

using disable_function = BOOL(WINAPI*)(PVOID*);
using revert_function = BOOL(WINAPI*)(PVOID);

struct redirection_functions {
    disable_function disable = nullptr;
    revert_function revert = nullptr;
};

redirection_functions look_up()
{
    redirection_functions found;
    const HMODULE kernel = ::LoadLibraryW(L"kernel32.dll");
    if (kernel == nullptr) {
        return found;
    }
    const auto address = [kernel](const char* verb) {
        const std::string name = std::string("Wow64") + verb + "Wow64FsRedirection";
        return reinterpret_cast<void*>(::GetProcAddress(kernel, name.c_str()));
    };
    found.disable = reinterpret_cast<disable_function>(address("Disable"));
    found.revert = reinterpret_cast<revert_function>(address("Revert"));
    return found;
}

// Looked up once; without both of them nothing is done.
const redirection_functions& functions()
{
    static const redirection_functions found = look_up();
    return found;
}

bool available()
{
    return functions().disable != nullptr && functions().revert != nullptr;
}

} // namespace

wow64_redirect_adt::wow64_redirect_adt()
{
    if (available()) {
        functions().disable(&saved_);
    }
}

wow64_redirect_adt::~wow64_redirect_adt()
{
    if (available()) {
        functions().revert(saved_);
    }
}

} // namespace platform
