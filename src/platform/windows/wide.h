#pragma once

#include <string>
#include <string_view>

#include "uni/utf.h"

namespace platform {

// The system is spoken to in UTF-16. A text that cannot be converted becomes empty.
inline std::wstring wide_from_utf8(std::string_view text)
{
    const std::u16string units = uni::utf16_from_utf8(text);
    return {units.begin(), units.end()};
}

inline std::string utf8_from_wide(std::wstring_view text)
{
    return uni::utf8_from_utf16(std::u16string(text.begin(), text.end()));
}

} // namespace platform
