#pragma once

#include <cstddef>
#include <string>

#include "uni/text.h"

namespace model {

// No name of a file is longer.
inline constexpr std::size_t longest_name_of_file = 0x8000; // bytes

// The names under which a database may know a file, lower-case.
struct file_keys {
    explicit file_keys(std::string path)
    {
        uni::lower_text(path);
        uni::replace_char(path, '/', '\\');
        constexpr std::string_view folder = "c:\\windows";
        if (const std::size_t at = path.find(folder); at != std::string::npos) {
            path.replace(at, folder.size(), "%windir%");
        }
        full = path;
        name = path.substr(path.find_last_of('\\') + 1); // from the start if there is none
    }
    std::string full;
    std::string name;
};

} // namespace model
