#include "files/volume_words.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "ntfs/disk_layout.h"

namespace files {

namespace {

struct system_words {
    std::string_view name; // as the layout tells it
    const char* words;
};
constexpr auto other_systems = std::to_array<system_words>({
    {"bitlocker container", "is a BitLocker volume, which must be unlocked and mounted"},
    {"exfat", "is an exFAT volume, no NTFS volume"},
    {"fat32", "is a FAT32 volume, no NTFS volume"},
    {"fat16", "is a FAT16 volume, no NTFS volume"},
    {"fat12", "is a FAT12 volume, no NTFS volume"},
    {"refs", "is a ReFS volume, no NTFS volume"},
    {"ext", "is an ext volume, no NTFS volume"},
    {"ext2/3", "is an ext volume, no NTFS volume"},
    {"hfs+", "is an HFS+ volume, no NTFS volume"},
    {"hfsx", "is an HFS+ volume, no NTFS volume"},
});

std::string words_of_link(const ntfs::stored_file& file)
{
    return file.link_text.empty() ? "is a link, not followed"
                                  : "is a link to " + file.link_text + ", not followed";
}

} // namespace

const char* words_of_contents(io::byte_source& source)
{
    constexpr std::size_t looked_at = 4096;
    io::byte_vector head;
    io::read_source(head, source, looked_at);
    const std::string_view name = ntfs::identify_volume(uni::byte_view(head)).name;
    const auto* const found = std::ranges::find(other_systems, name, &system_words::name);
    return found == other_systems.end() ? no_ntfs_volume : found->words;
}

std::string words_of(const ntfs::stored_file& file, const ntfs::record_row& stream)
{
    switch (ntfs::state_of(file, stream)) {
    case ntfs::stream_state::encrypted:
        return "its file system encrypted it";
    case ntfs::stream_state::packed:
        return "its system packed it in a way of its own";
    case ntfs::stream_state::elsewhere:
        return "its content is on another machine";
    case ntfs::stream_state::link:
        return words_of_link(file);
    case ntfs::stream_state::damaged:
        return "its record is damaged";
    case ntfs::stream_state::readable:
        break;
    }
    return {};
}

const char* words_of(ntfs::record_state state)
{
    return state == ntfs::record_state::another ? "its record is that of another file"
                                                : "its record is damaged";
}

} // namespace files
