#include "platform/windows/paths.h"

#include <algorithm>
#include <vector>

#include <direct.h>
#include <windows.h>

#include "platform/windows/wide.h"

namespace platform {

namespace {

constexpr std::wstring_view long_prefix = L"\\\\?\\";

bool is_separator(wchar_t c)
{
    return c == L'\\' || c == L'/';
}

std::wstring unquoted(std::wstring_view path)
{
    std::wstring out(path);
    for (std::size_t i = 0; i < out.size(); ++i) {
        if (out[i] == L'"' || (out[i] == L'\'' && i > 0)) {
            out[i] = L' ';
        }
    }
    const auto first = out.find_first_not_of(L" \t");
    const auto last = out.find_last_not_of(L" \t");
    return first == std::wstring::npos ? std::wstring() : out.substr(first, last - first + 1);
}

// Takes out every "." segment, and with every ".." segment one folder; separators become
// backslashes, as the long form takes nothing else.
std::wstring without_dot_segments(const std::wstring& path)
{
    std::vector<std::wstring> kept;
    std::size_t start = 0;
    while (start <= path.size()) {
        std::size_t end = start;
        while (end < path.size() && !is_separator(path[end])) {
            ++end;
        }
        std::wstring segment = path.substr(start, end - start);
        if (segment == L"..") {
            if (kept.size() > 1) {
                kept.pop_back();
            }
        } else if (segment != L"." && (!segment.empty() || kept.empty())) {
            kept.push_back(std::move(segment));
        }
        start = end + 1;
    }
    std::wstring out;
    for (const std::wstring& segment : kept) {
        out += (out.empty() && &segment == &kept.front()) ? segment : L"\\" + segment;
    }
    return out;
}

std::wstring absolute_form(std::wstring_view path)
{
    const std::wstring clean = unquoted(path);
    if (clean.size() >= 2 && is_separator(clean[0]) && is_separator(clean[1])) {
        return clean;
    }
    wchar_t current[512];
    if (_wgetcwd(current, 512) == nullptr) {
        return {};
    }
    if (!clean.empty() && is_separator(clean[0])) {
        return without_dot_segments(std::wstring(current, 2) + clean);
    }
    return without_dot_segments(std::wstring(current) + L"\\" + clean);
}

} // namespace

std::wstring long_path_form(std::wstring_view path)
{
    constexpr std::wstring_view share_prefix = L"\\\\";
    if (path.starts_with(long_prefix)) {
        return std::wstring(path);
    }
    if (path.starts_with(share_prefix)) {
        return std::wstring(long_prefix) + L"UNC\\" + std::wstring(path.substr(2));
    }
    if (path.size() > 2 && path[1] != L':') {
        const std::wstring absolute = absolute_form(path);
        return absolute.empty() || absolute.starts_with(long_prefix)
                   ? absolute
                   : std::wstring(long_prefix) + absolute;
    }
    std::wstring out = std::wstring(long_prefix) + std::wstring(path);
    std::replace(out.begin(), out.end(), L'/', L'\\');
    return out;
}

std::wstring callable_path(const std::string& path)
{
    const std::wstring wide = wide_from_utf8(path);
    return wide.size() < MAX_PATH - 12 ? wide : long_path_form(wide);
}

} // namespace platform
