#include "ntfs/raw_disk_io.h"

#include <algorithm>
#include <utility>

namespace ntfs {

namespace {

constexpr std::string_view device_prefix = "\\\\.\\";
constexpr std::uint32_t default_sector = 512;
constexpr std::uint32_t largest_sector = 1 << 20;
// A name of a letter, a colon and a separator at most.
constexpr std::size_t longest_letter_name = 3;

bool is_letter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// The product that the older geometry query leaves to its caller; 0 if no volume is that large.
std::int64_t size_of(const platform::drive_geometry& geometry)
{
    std::int64_t size = 1;
    for (const std::uint64_t factor :
         {geometry.cylinders, std::uint64_t{geometry.tracks_per_cylinder},
          std::uint64_t{geometry.sectors_per_track}, std::uint64_t{geometry.bytes_per_sector}}) {
        constexpr std::uint64_t largest = INT64_MAX;
        if (factor != 0 && static_cast<std::uint64_t>(size) > largest / factor) {
            return 0;
        }
        size *= static_cast<std::int64_t>(factor);
    }
    return size;
}

} // namespace

RAW_DISK_IO::RAW_DISK_IO(std::string_view name, disk_mode mode,
                         const platform::device_opener& open_device)
    : device_name_(name)
{
    if (mode == disk_mode::volume && device_name_.size() > longest_letter_name) {
        open_path(open_device);
        return;
    }
    if (mode == disk_mode::volume && !device_name_.empty() && is_letter(device_name_.front())) {
        device_name_ = std::string(device_prefix) + device_name_.front() + ":";
    }
    open_letter(open_device);
}

RAW_DISK_IO::RAW_DISK_IO(std::unique_ptr<io::byte_source> source)
    : is_open_(source != nullptr), source_(std::move(source))
{
    geometry_.bytes_per_sector = default_sector;
    if (source_) {
        constexpr std::uint64_t largest = INT64_MAX;
        total_size_ = static_cast<std::int64_t>(std::min(source_->size(), largest));
    }
}

// A device path may do without a geometry.
void RAW_DISK_IO::open_path(const platform::device_opener& open_device)
{
    handle_ = open_device(device_name_, {.random = true});
    if (!handle_) {
        return;
    }
    if (!query_geometry()) {
        geometry_.bytes_per_sector = default_sector;
    }
    query_partition();
    is_open_ = true;
}

// A letter may not, nor a snapshot.
void RAW_DISK_IO::open_letter(const platform::device_opener& open_device)
{
    handle_ = open_device(device_name_, {});
    if (!handle_ || !query_geometry()) {
        handle_.reset();
        return;
    }
    query_partition();
    is_open_ = true;
}

bool RAW_DISK_IO::query_geometry()
{
    std::int64_t size = 0;
    std::optional<platform::drive_geometry> found = handle_->extended_geometry(size);
    if (!found) {
        found = handle_->geometry();
        size = found ? size_of(*found) : 0;
    }
    if (!found || found->bytes_per_sector > largest_sector) {
        return false;
    }
    geometry_ = *found;
    if (geometry_.bytes_per_sector == 0) {
        geometry_.bytes_per_sector = default_sector;
    }
    total_size_ = size;
    return true;
}

void RAW_DISK_IO::query_partition()
{
    std::optional<platform::partition_facts> found = handle_->partition();
    if (!found) {
        found = handle_->extended_partition();
    }
    if (found) {
        starting_offset_ = found->starting_offset;
        total_size_ = found->length;
        partition_number_ = found->number;
    }
    drive_number_ = handle_->drive_number().value_or(0);
}

std::uint64_t RAW_DISK_IO::read(std::span<std::uint8_t> buffer, std::uint64_t offset)
{
    if (buffer.empty() || !is_open_ || total_size_ < 0 ||
        offset >= static_cast<std::uint64_t>(total_size_)) {
        return 0;
    }
    return source_ ? source_->read(buffer, offset) : read_sectors(buffer, offset);
}

// Devices give whole sectors alone.
std::uint64_t RAW_DISK_IO::read_sectors(std::span<std::uint8_t> buffer, std::uint64_t offset)
{
    const std::uint64_t sector = geometry_.bytes_per_sector;
    const std::uint64_t before = offset % sector;
    const std::uint64_t whole = (buffer.size() + before + sector - 1) / sector * sector;
    const auto start = static_cast<std::int64_t>(offset - before);
    if (before == 0 && whole == buffer.size()) {
        return handle_->read(buffer, start);
    }
    const auto sectors =
        std::make_unique_for_overwrite<std::uint8_t[]>(static_cast<std::size_t>(whole));
    const std::uint64_t got =
        handle_->read({sectors.get(), static_cast<std::size_t>(whole)}, start);
    const std::uint64_t wanted =
        std::min<std::uint64_t>(got - std::min(got, before), buffer.size());
    std::copy_n(sectors.get() + before, wanted, buffer.begin());
    return wanted;
}

} // namespace ntfs
