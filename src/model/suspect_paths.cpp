#include "model/suspect_paths.h"

#include <algorithm>
#include <array>

#include "model/stored_path.h"
#include "uni/text.h"

namespace model {

namespace {

constexpr std::string_view separators = ";|,\"'\r\n\t";

// Whether a name ends before a character: what follows may be the name of a stream, a number of an entry
// point or the end of a call, but no more of the name.
bool ends_name(char behind)
{
    constexpr std::string_view goes_on = "_-.\\/";
    return !uni::is_letter_or_digit(behind) && static_cast<unsigned char>(behind) < 0x80 &&
           goes_on.find(behind) == std::string_view::npos;
}

std::string plain_lowered(std::string_view path)
{
    std::string text = uni::lowered(path);
    uni::replace_char(text, '/', '\\');
    constexpr std::string_view long_prefix = "\\\\?\\";
    constexpr std::string_view long_share = "\\\\?\\unc\\";
    if (text.starts_with(long_share)) {
        text.erase(2, long_share.size() - 2);
    } else if (text.starts_with(long_prefix)) {
        text.erase(0, long_prefix.size());
    }
    return text;
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

std::vector<std::string> modules_named(std::string_view command_line)
{
    constexpr auto extensions =
        std::to_array<std::string_view>({".dll", ".ocx", ".cpl", ".ax", ".drv"});
    const std::string lower = uni::lowered(command_line);
    std::vector<std::string> found;
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
        found.emplace_back(words.substr(path_start(words)));
        begin = end;
    }
    return found;
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

bool has_item_without_dll(std::string_view command_line)
{
    std::string items(command_line);
    uni::replace_char(items, ',', ';');
    const std::vector<std::string> parts = uni::split(items, ';', true);
    return std::ranges::any_of(parts, [](const std::string& part) {
        return uni::lowered(part).find(".dll") == std::string::npos;
    });
}

bool redirects_to_writable(const knowledge& known, std::string_view command_line)
{
    std::string lower = plain_lowered(command_line);
    uni::replace_char(lower, '|', ';');
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
