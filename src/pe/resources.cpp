#include "pe/resources.h"

#include <string_view>
#include <utility>

#include "uni/text_buffer.h"
#include "uni/utf.h"

namespace pe {

namespace {

constexpr std::uint32_t high_bit = 0x80000000;
constexpr unsigned level_count = 3;
constexpr std::uint64_t directory_header = 16;
constexpr std::uint64_t entry_size = 8;
constexpr std::uint32_t longest_name = 512; // characters
constexpr std::uint32_t longest_language = 79;
constexpr std::uint32_t most_leaves = 100'000;
constexpr std::uint32_t most_directories = 100'000;

std::string_view type_name(std::uint32_t id)
{
    static constexpr std::string_view names[] = {
        "",       "CURSOR",       "BITMAP",      "ICON", "MENU",
        "DIALOG", "STRING",       "FONTDIR",     "FONT", "ACCELERATOR",
        "RCDATA", "MESSAGETABLE", "GROUPCURSOR", "",     "GROUPICON",
        "",       "VERSION",      "DLGINCLUDE",  "",     "PLUGPLAY",
        "VXD",    "ANICURSOR",    "ANIICON",     "HTML", "MANIFEST",
    };
    const bool is_known = id < std::size(names) && !names[id].empty();
    return is_known ? names[id] : "<unk>";
}

// The place of a name's string; its characters stand behind two bytes of length.
std::uint64_t string_place(const resource_place& place, std::uint32_t name)
{
    return std::uint64_t{place.file_offset} + (name & ~high_bit);
}

class tree_walk {
public:
    tree_walk(FILE_STATS& file, const resource_place& place) : file_(file), place_(place) {}

    void run() { walk_directory(0, 0); }

    std::vector<pe_resource> leaves;

private:
    enum class name_state { good, passed_over, unreadable };

    uni::byte_view bytes_at(std::uint64_t position, std::uint64_t length)
    {
        return file_.peek(place_.file_offset + position, length);
    }

    name_state look_at_name(std::uint32_t name, unsigned level)
    {
        if ((name & high_bit) == 0) {
            return name_state::good;
        }
        const std::uint64_t string = string_place(place_, name);
        const uni::byte_view length = file_.peek(string, 2);
        if (length.empty()) {
            return name_state::unreadable;
        }
        const std::uint32_t longest = level + 1 == level_count ? longest_language : longest_name;
        if (length.u16(0) > longest) {
            return name_state::passed_over;
        }
        const std::uint64_t text_bytes = std::uint64_t{2} * length.u16(0);
        return file_.contains(string + 2, text_bytes) ? name_state::good : name_state::unreadable;
    }

    // Each of these answers false when the walk is at its end.
    bool walk_directory(std::uint32_t directory, unsigned level)
    {
        open_[level] = directory;
        const uni::byte_view header = bytes_at(directory, directory_header);
        if (header.empty() || !count_directory()) {
            return false;
        }
        const std::uint32_t count = std::uint32_t{header.u16(12)} + header.u16(14);
        for (std::uint32_t i = 0; i < count; ++i) {
            const uni::byte_view entry =
                bytes_at(directory + directory_header + i * entry_size, entry_size);
            if (entry.empty()) {
                return false;
            }
            const std::uint32_t name = entry.u32(0);
            const std::uint32_t place = entry.u32(4);
            const name_state state = look_at_name(name, level);
            if (state == name_state::unreadable) {
                return false;
            }
            if (state == name_state::passed_over) {
                if (level + 1 < level_count) {
                    // The position does not move on from such an entry, so those behind it are
                    // never reached. Which version resource is found first depends on it.
                    return true;
                }
                if (!count_directory()) {
                    return false;
                }
                continue;
            }
            names_[level] = name;
            if (!follow(place, level)) {
                return false;
            }
        }
        return true;
    }

    bool follow(std::uint32_t place, unsigned level)
    {
        const std::uint32_t target = place & ~high_bit;
        if ((place & high_bit) == 0) {
            return add_leaf(target, level + 1);
        }
        if (level + 1 == level_count) {
            // There is no fourth level: this is a leaf whose name ends before its language.
            return add_leaf(target, level);
        }
        for (unsigned open = 0; open <= level; ++open) {
            if (open_[open] == target) {
                return count_directory();
            }
        }
        return walk_directory(target, level + 1);
    }

    bool add_leaf(std::uint32_t position, unsigned levels)
    {
        const uni::byte_view data = bytes_at(position, entry_size);
        if (data.empty() || leaves.size() == most_leaves) {
            return false;
        }
        const std::uint32_t offset = data.u32(0) - place_.virtual_address + place_.file_offset;
        if (offset > file_.size()) {
            return false;
        }
        leaves.push_back({names_, levels, offset, data.u32(4)});
        return true;
    }

    // What is looked at in vain counts too, so that no tree takes long.
    bool count_directory() { return ++directories_ <= most_directories; }

    FILE_STATS& file_;
    resource_place place_;
    std::array<std::uint32_t, level_count> names_{};
    std::array<std::uint32_t, level_count> open_{};
    std::uint32_t directories_ = 0;
};

void write_name(uni::text_buffer& out, FILE_STATS& file, const resource_place& place,
                std::uint32_t name, bool is_type)
{
    if ((name & high_bit) != 0) {
        const std::uint64_t string = string_place(place, name);
        const std::uint64_t length = file.peek(string, 2).u16(0);
        std::string text;
        uni::utf16_to_text(file.peek(string + 2, length * 2), text);
        out.text(text);
    } else if (is_type) {
        out.text(type_name(name));
    } else {
        out.literal("0x");
        out.hex_min(name, 4);
    }
}

} // namespace

std::vector<pe_resource> read_resources(FILE_STATS& file, const resource_place& place)
{
    tree_walk walk(file, place);
    walk.run();
    return std::move(walk.leaves);
}

std::string resource_name(FILE_STATS& file, const resource_place& place,
                          const pe_resource& resource)
{
    uni::text_buffer name;
    for (unsigned level = 0; level < resource.levels; ++level) {
        if (level != 0) {
            name.literal(" : ");
        }
        write_name(name, file, place, resource.names[level], level == 0);
    }
    return std::string(name.view());
}

} // namespace pe
