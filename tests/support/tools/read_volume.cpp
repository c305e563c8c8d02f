// Reads a volume image as quilt does when a file is locked:
//
//     read_volume cat <image> <path> <output>    writes the file's content
//     read_volume ls <image> <path> <output>     writes the names in the directory, a line each
//
// A single letter for the image is that volume's device.

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "io/fileio.h"
#include "ntfs/attributes.h"
#include "ntfs/directory.h"
#include "ntfs/locked_file.h"
#include "platform/arguments.h"

namespace {

bool list_names(ntfs::ntfs_volume& volume, const std::string& path, io::byte_vector& list)
{
    std::uint64_t inode = 0;
    std::uint64_t parent = 0;
    std::vector<std::uint64_t> children;
    ntfs::mft_entries_ctx context(volume);
    if (!ntfs::resolve_file(context, path, inode, parent) ||
        !ntfs::enum_directory(context, inode, children, ntfs::index_parsing::strict)) {
        return false;
    }
    for (const std::uint64_t child : children) {
        std::vector<std::uint8_t> record;
        std::vector<ntfs::file_name> names;
        if (child != inode && ntfs::read_file_record(context, child, record)) {
            ntfs::collect_file_names(context, child, ntfs::file_record(record), names, &inode);
        }
        for (const ntfs::file_name& found : names) {
            list.insert(list.end(), found.name.begin(), found.name.end());
            list.push_back('\n');
        }
    }
    return true;
}

bool read_content(std::unique_ptr<ntfs::ntfs_volume> volume, const std::string& path,
                  io::byte_vector& bytes)
{
    const auto file = ntfs::open_locked_file(std::move(volume), path);
    return file && io::read_source(bytes, *file, file->size());
}

} // namespace

int main(int count, char** arguments)
{
    const std::vector<std::string> words = platform::program_arguments(count, arguments);
    if (words.size() != 5) {
        std::fputs("usage: read_volume cat|ls <image> <path> <output>\n", stderr);
        return 2;
    }
    auto volume = ntfs::open_ntfs_volume(
        words[2], words[2].size() == 1 ? ntfs::volume_source::letter : ntfs::volume_source::device);
    io::byte_vector bytes;
    const bool done =
        volume && (words[1] == "ls" ? list_names(*volume, words[3], bytes)
                                    : read_content(std::move(volume), words[3], bytes));
    io::fileio output;
    return done && output.open_write(words[4], true, true, true) && output.append(bytes) ? 0 : 1;
}
