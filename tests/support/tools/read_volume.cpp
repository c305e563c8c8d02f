// Reads a volume image as quilt does when a file is locked:
//
//     read_volume cat <image> <path> <output>    writes the file's content
//     read_volume ls <image> <path> <output>     writes the names in the directory, a line each
//
//     read_volume raw <image> "<offset> <size>" <output>    writes bytes of the volume
//
// A single letter for the image is that volume's device. A size in bytes behind the output stands in
// for what the device says of its geometry, as a device does not that is only linked to a file; for
// "raw" any size would do, and there need not be one.

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "ntfs/attributes.h"
#include "ntfs/directory.h"
#include "ntfs/locked_file.h"
#include "platform/arguments.h"
#include "support/tools/write_file.h"
#include "uni/text.h"

namespace {

bool list_names(ntfs::ntfs_volume& volume, const std::string& path, io::byte_vector& list)
{
    std::uint64_t inode = 0, parent = 0;
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

// A device that answers for its geometry, with sectors of 512 bytes, and is another for all else.
class known_device final : public platform::device {
public:
    known_device(std::unique_ptr<platform::device> of, std::int64_t size)
        : of_(std::move(of)), size_(size)
    {}
    std::optional<platform::drive_geometry> extended_geometry(std::int64_t& disk_size) override
    {
        disk_size = size_;
        return platform::drive_geometry{.bytes_per_sector = 512};
    }
    std::optional<platform::drive_geometry> geometry() override { return of_->geometry(); }
    std::optional<platform::partition_facts> partition() override { return of_->partition(); }
    std::optional<platform::partition_facts> extended_partition() override
    {
        return of_->extended_partition();
    }
    std::optional<std::uint32_t> drive_number() override { return of_->drive_number(); }
    std::size_t read(std::span<std::uint8_t> out, std::int64_t offset) override
    {
        return of_->read(out, offset);
    }

private:
    std::unique_ptr<platform::device> of_;
    std::int64_t size_;
};

platform::device_opener opener_for(std::int64_t size)
{
    return [size](const std::string& name, platform::device_access access) {
        auto opened = platform::open_device(name, access);
        return opened ? std::make_unique<known_device>(std::move(opened), size) : nullptr;
    };
}

bool read_raw(const std::string& volume, const std::string& place, io::byte_vector& bytes)
{
    const std::vector<std::string> numbers = uni::split(place, ' ', true);
    ntfs::RAW_DISK_IO disk(volume, ntfs::disk_mode::volume, opener_for(INT64_MAX));
    bytes.resize(static_cast<std::size_t>(std::stoull(numbers.at(1))));
    return disk.read(bytes, std::stoull(numbers.at(0))) == bytes.size();
}

} // namespace

int main(int count, char** arguments)
{
    const std::vector<std::string> words = platform::program_arguments(count, arguments);
    if (words.size() != 5 && words.size() != 6) {
        std::fputs("usage: read_volume cat|ls|raw <image> <path> <output> [<size>]\n", stderr);
        return 2;
    }
    const std::string& name = words[2];
    const auto source =
        name.size() == 1 ? ntfs::volume_source::letter : ntfs::volume_source::device;
    io::byte_vector bytes;
    bool done = false;
    if (words[1] == "raw") {
        done = read_raw(name, words[3], bytes);
    } else if (auto volume = ntfs::open_ntfs_volume(
                   name, source,
                   words.size() == 6 ? opener_for(std::stoll(words[5])) : platform::open_device)) {
        if (words[1] == "ls") {
            done = list_names(*volume, words[3], bytes);
        } else {
            const auto file = ntfs::open_locked_file(std::move(volume), words[3]);
            done = file && io::read_source(bytes, *file, file->size());
        }
    }
    return done && test_support::write_file(words[4], {bytes.begin(), bytes.end()}) ? 0 : 1;
}
