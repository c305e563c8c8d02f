#include "model/stored_path.h"

#include <utility>

#include "uni/paths.h"
#include "uni/text.h"

namespace model {

namespace {

constexpr std::string_view long_form = "\\\\?\\";
constexpr std::size_t drive_letter_and_colon = 2;

// What stands between the separators, which are backslashes.
std::vector<std::string> take_drive(std::string path, std::string& drive, bool& is_rooted)
{
    if (has_drive(path)) {
        drive = path.substr(0, drive_letter_and_colon);
        path.erase(0, drive_letter_and_colon);
    }
    is_rooted = path.starts_with('\\');
    return uni::split(path, '\\', false);
}

std::string with_backslashes(std::string_view path)
{
    std::string text(path);
    uni::replace_char(text, '/', '\\');
    return text;
}

} // namespace

bool has_drive(std::string_view path)
{
    const char letter = path.empty() ? '\0' : uni::lower_ascii(path.front());
    return path.size() >= drive_letter_and_colon && letter >= 'a' && letter <= 'z' &&
           path[1] == ':';
}

path_parts parts_of(std::string_view path)
{
    std::string text = with_backslashes(path);
    if (text.starts_with(long_form)) {
        text.erase(0, long_form.size());
    }
    path_parts parts;
    parts.names = take_drive(std::move(text), parts.drive, parts.is_rooted);
    std::erase(parts.names, ".");
    return parts;
}

stored_path read_stored_path(std::string_view stored)
{
    stored_path path;
    if (stored.empty()) {
        return path;
    }
    bool is_rooted = false;
    std::string text = with_backslashes(stored);
    path.ends_in_separator = text.ends_with('\\');
    std::vector<std::string> parts = take_drive(std::move(text), path.drive, is_rooted);
    if (parts.empty() || parts.back() == "." || parts.back() == "..") {
        path.kind = stored_kind::names_no_file;
        return path;
    }
    path.kind = path.drive.empty() ? stored_kind::leaves_volume : stored_kind::on_volume;
    for (std::string& part : parts) {
        if (part == "..") {
            if (path.names.empty()) {
                path.kind = stored_kind::leaves_volume;
                break;
            }
            path.names.pop_back();
        } else if (part != ".") {
            path.names.push_back(std::move(part));
        }
    }
    return path;
}

std::string folded(const std::vector<std::string>& names)
{
    std::string text;
    for (const std::string& name : names) {
        text += '\\';
        text += uni::lowered(name);
    }
    return text;
}

std::string folded(const path_parts& path)
{
    return uni::lowered(path.drive) + (path.is_rooted ? "\\" : "") + folded(path.names);
}

std::optional<std::string> place_below(const path_parts& file, const std::string& volume)
{
    const path_parts root = parts_of(volume);
    const bool is_whole_drive = root.names.empty();
    const std::size_t depth = root.names.size();
    if (file.names.size() <= depth || !uni::equal_ignoring_case(file.drive, root.drive) ||
        (!is_whole_drive && file.is_rooted != root.is_rooted) ||
        folded({file.names.begin(), file.names.begin() + static_cast<std::ptrdiff_t>(depth)}) !=
            folded(root.names)) {
        return std::nullopt;
    }
    return folded({file.names.begin() + static_cast<std::ptrdiff_t>(depth), file.names.end()});
}

std::optional<std::string> place_below_root(const path_parts& file)
{
    return file.is_rooted ? std::optional(folded(file.names)) : std::nullopt;
}

std::string lower_file_name(const std::string& path)
{
    const std::string lower = uni::lowered(path);
    std::string folder;
    std::string name;
    return uni::split_path(lower, folder, name) ? name : lower;
}

} // namespace model
