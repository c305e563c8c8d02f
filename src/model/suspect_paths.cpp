#include "model/suspect_paths.h"

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

#include "model/stored_path.h"
#include "uni/text.h"

namespace model {

namespace {

constexpr std::string_view separators = ";|,\"'\r\n\t";

constexpr auto system_folders = std::to_array<std::pair<std::string_view, std::string_view>>({
    {"%systemdrive%", "c:"},
    {"%systemroot%", "c:\\windows"},
    {"%windir%", "c:\\windows"},
});

// Whether a name ends before a character: what follows may be the name of a stream, a number of an entry
// point or the end of a call, but no more of the name.
bool ends_name(char behind)
{
    constexpr std::string_view goes_on = "_-.\\/";
    return !uni::is_letter_or_digit(behind) && static_cast<unsigned char>(behind) < 0x80 &&
           goes_on.find(behind) == std::string_view::npos;
}

// Lower-case, with the variables of the system's folders told, and without what leads up or nowhere.
std::string plain_lowered(std::string_view path)
{
    std::string text = uni::lowered(path);
    uni::replace_char(text, '/', '\\');
    constexpr std::string_view long_prefix = "\\\\?\\";
    constexpr std::string_view long_share = "\\\\?\\unc\\";
    if (text.starts_with(long_share)) {
        text.erase(2, long_share.size() - 2);
    } else if (text.starts_with(long_prefix) || text.starts_with("\\??\\")) {
        text.erase(0, long_prefix.size());
    }
    for (const auto& [variable, meaning] : system_folders) {
        if (text.starts_with(variable) && text.size() > variable.size()) {
            text.replace(0, variable.size(), meaning);
        }
    }
    if (text.find("..") == std::string::npos && text.find("\\\\", 1) == std::string::npos) {
        return text;
    }
    const bool is_share = text.starts_with("\\\\");
    const bool is_rooted = text.starts_with('\\');
    std::vector<std::string> kept;
    for (std::string& part : uni::split(text, '\\', false)) {
        if (part == ".." && !kept.empty() && kept.back() != ".." && !has_drive(kept.back())) {
            kept.pop_back();
        } else if (part != ".") {
            kept.push_back(std::move(part));
        }
    }
    std::string made = is_share ? "\\\\" : is_rooted ? "\\" : "";
    for (const std::string& part : kept) {
        made += (made.empty() || made.ends_with('\\') ? "" : "\\") + part;
    }
    return made;
}

// Where a path begins in words that stand before a module's name, blanks among them: at the last drive,
// share or variable, or else behind the last blank.
std::size_t path_start(std::string_view words)
{
    for (std::size_t i = words.size(); i-- > 0;) {
        constexpr std::string_view before_word = " =([{<@&";
        const bool begins_word = i == 0 || before_word.find(words[i - 1]) != std::string_view::npos;
        const std::string_view rest = words.substr(i);
        if (begins_word && (has_drive(rest) || rest.starts_with("\\\\") || rest.starts_with("%"))) {
            return i;
        }
    }
    return words.find_last_of(" =") + 1; // 0 where there is none
}

} // namespace

bool is_writable_place(const knowledge& known, std::string_view path)
{
    std::string text = plain_lowered(path);
    if (text.starts_with("\\\\")) {
        return true;
    }
    // A name in the root of a drive, which may be left out.
    const std::size_t root = has_drive(text) ? 2 : 0;
    const bool is_in_root = text.size() > root + 1 && text[root] == '\\' &&
                            text.find('\\', root + 1) == std::string::npos;
    return is_in_root || known.found_in(name_list::writable_folder, text) != nullptr;
}

bool is_suspect_module(const knowledge& known, std::string_view module)
{
    const std::string text = plain_lowered(module);
    if (text.find('\\') == std::string::npos) {
        return has_drive(text); // the current folder of a drive
    }
    const bool is_absolute =
        text.starts_with("\\\\") || (has_drive(text) && text[2] == '\\') || text.starts_with("%");
    return !is_absolute || is_writable_place(known, text);
}

std::string first_suspect_module(const knowledge& known, std::string_view command_line)
{
    constexpr auto extensions =
        std::to_array<std::string_view>({".dll", ".ocx", ".cpl", ".ax", ".drv"});
    const std::string lower = uni::lowered(command_line);
    std::size_t begin = 0;
    for (std::size_t dot = lower.find('.'); dot != std::string::npos;
         dot = lower.find('.', dot + 1)) {
        const std::string_view rest = std::string_view(lower).substr(dot);
        const auto extension = std::ranges::find_if(extensions, [&](std::string_view one) {
            return rest.starts_with(one) &&
                   (rest.size() == one.size() || ends_name(rest[one.size()]));
        });
        if (extension == extensions.end()) {
            continue;
        }
        const std::size_t end = dot + extension->size();
        std::string_view words = command_line.substr(begin, end - begin);
        words.remove_prefix(words.find_last_of(separators) + 1); // 0 for none
        words = uni::trimmed(words);
        words.remove_prefix(path_start(words));
        if (is_suspect_module(known, words)) {
            return std::string(words);
        }
        begin = end;
    }
    return {};
}

bool has_item_without_dll(std::string_view command_line)
{
    std::string items(command_line);
    uni::replace_char(items, ',', ';');
    const std::vector<std::string> parts = uni::split(items, ';', true);
    return std::ranges::any_of(parts, [](const std::string& part) {
        const std::string lower = uni::lowered(part);
        const std::size_t last = lower.find_last_not_of("\"' ");
        return !std::string_view(lower).substr(0, last + 1).ends_with(".dll");
    });
}

bool redirects_to_writable(const knowledge& known, std::string_view command_line)
{
    std::string lower = uni::lowered(command_line);
    uni::replace_char(lower, '/', '\\');
    uni::replace_char(lower, '|', ';');
    uni::remove_char(lower, '"');
    // A blank parts paths where another begins behind it.
    for (std::size_t at = lower.find(' '); at != std::string::npos; at = lower.find(' ', at + 1)) {
        const std::string_view behind = std::string_view(lower).substr(at + 1);
        if (behind.starts_with('%') || behind.starts_with("\\\\") ||
            (behind.size() > 2 && behind.substr(1, 2) == ":\\")) {
            lower[at] = ';';
        }
    }
    bool has_system_place = false;
    for (const std::string& item : uni::split(lower, ';', true)) {
        const std::size_t equals = item.find('=');
        const std::string_view value = equals == std::string::npos
                                           ? std::string_view(item)
                                           : std::string_view(item).substr(equals + 1);
        const bool is_writable = is_writable_place(known, uni::trimmed(value));
        // A variable stands before "=", or as an item of its own, or its value follows behind a blank.
        const std::string_view variable =
            std::string_view(item).substr(0, std::min(equals, item.find(' ')));
        has_system_place =
            has_system_place || known.holds(name_list::system_variable, uni::trimmed(variable));
        if (is_writable && has_system_place) {
            return true;
        }
        has_system_place =
            has_system_place ||
            (!is_writable && known.found_in(name_list::system_path, item) != nullptr);
    }
    return false;
}

} // namespace model
