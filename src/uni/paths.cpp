#include "uni/paths.h"

#include "uni/text.h"

namespace uni {

namespace {

constexpr std::size_t longest_expandable = 512;
constexpr int most_replacements = 64;

std::optional<std::string> value_of(const std::string& name, bool allow_snapshot,
                                    const variable_lookup& variable)
{
    if (auto value = variable(name)) {
        return value;
    }
    if (allow_snapshot && equal_ignoring_case(name, "vss")) {
        return snapshot_prefix(false);
    }
    return std::nullopt;
}

} // namespace

bool split_path(std::string_view path, std::string& directory, std::string& name)
{
    directory.clear();
    name.clear();
    if (path.empty()) {
        return false;
    }
    const std::size_t cut = path.find_last_of("\\/");
    if (cut == std::string_view::npos) {
        directory = path == ".." ? ".." : ".";
        name = path == ".." ? "." : path;
        return true;
    }
    directory = path.substr(0, cut);
    name = path.substr(cut + 1);
    if (name == "..") {
        name = ".";
        // scripts know the two slashes, and they name the same folder
        directory += path[cut] == '\\' ? "\\.." : "//..";
    }
    return true;
}

std::string expand_path(std::string_view text, bool allow_snapshot, const variable_lookup& variable)
{
    std::string out(text);
    if (out.size() > longest_expandable) {
        return out;
    }
    int replaced = 0;
    std::size_t open = out.find('%');
    while (open != std::string::npos && replaced < most_replacements) {
        const std::size_t close = out.find('%', open + 1);
        if (close == std::string::npos) {
            break;
        }
        const auto value =
            value_of(out.substr(open + 1, close - open - 1), allow_snapshot, variable);
        if (value) {
            out.replace(open, close - open + 1, *value);
            ++replaced;
        }
        open = out.find('%', value ? open : close + 1);
    }
    return out;
}

std::string snapshot_prefix(bool lower_case)
{
    const std::string prefix = "\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy";
    return lower_case ? lowered(prefix) : prefix;
}

} // namespace uni
