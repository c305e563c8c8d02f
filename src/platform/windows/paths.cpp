#include "platform/windows/paths.h"

#include <windows.h>

#include "platform/windows/wide.h"
#include "uni/windows_paths.h"

namespace platform {

namespace {

// What the system makes of a path, at any length; empty on failure.
std::wstring full_path(const std::wstring& path)
{
    std::wstring full(::GetFullPathNameW(path.c_str(), 0, nullptr, nullptr), L'\0');
    const DWORD length =
        ::GetFullPathNameW(path.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr);
    full.resize(length < full.size() ? length : 0);
    return full;
}

// The current folder, or that of the drive which a path names.
std::wstring folder_for(const std::wstring& path)
{
    const bool has_drive = path.size() >= 2 && path[1] == L':';
    return full_path(has_drive ? path.substr(0, 2) : L".");
}

} // namespace

std::string long_path_form(const std::string& path)
{
    return uni::long_windows_path(path, utf8_from_wide(folder_for(wide_from_utf8(path))));
}

std::wstring callable_path(const std::string& path)
{
    constexpr std::size_t too_long = MAX_PATH - 12; // a folder has room for a file in it
    const std::wstring wide = wide_from_utf8(path);
    return wide.size() < too_long && full_path(wide).size() < too_long
               ? wide
               : wide_from_utf8(long_path_form(path));
}

bool names_device(const std::string& path)
{
    return uni::names_windows_device(utf8_from_wide(full_path(wide_from_utf8(path))));
}

} // namespace platform
