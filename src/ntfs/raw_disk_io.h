// The one place where a volume is opened and its sectors are read.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "io/byte_source.h"
#include "platform/devices.h"

namespace ntfs {

// How a device is named.
enum class disk_mode {
    volume, // a volume by its letter or its full device path
    device, // a device path as it stands, such as a snapshot's
};

// A volume as bytes at positions. Open from construction to destruction, or closed for good.
// Failures are a false result without words.
class RAW_DISK_IO {
public:
    // Opens the device of that name (UTF-8); is_open() tells the result.
    RAW_DISK_IO(std::string_view name, disk_mode mode,
                const platform::device_opener& open_device = platform::open_device);
    // Takes the bytes of a volume from elsewhere; null is closed.
    explicit RAW_DISK_IO(std::unique_ptr<io::byte_source> source);
    RAW_DISK_IO(const RAW_DISK_IO&) = delete;
    RAW_DISK_IO& operator=(const RAW_DISK_IO&) = delete;

    bool is_open() const noexcept { return is_open_; }
    const std::string& device_name() const noexcept { return device_name_; }
    const platform::drive_geometry& geometry() const noexcept { return geometry_; }
    std::uint32_t drive_number() const noexcept { return drive_number_; }
    std::uint32_t partition_number() const noexcept { return partition_number_; }
    std::int64_t starting_offset() const noexcept { return starting_offset_; }
    // Bytes of the volume; a read must begin below it.
    std::int64_t total_size() const noexcept { return total_size_; }

    // Fills a buffer with what stands at `offset`, neither of which need be whole sectors; gives how
    // many of its first bytes could be read.
    std::uint64_t read(std::span<std::uint8_t> buffer, std::uint64_t offset);

private:
    void open_path(const platform::device_opener& open_device);
    void open_letter(const platform::device_opener& open_device);
    bool query_geometry();
    void query_partition();
    std::uint64_t read_sectors(std::span<std::uint8_t> buffer, std::uint64_t offset);

    std::string device_name_;
    bool is_open_ = false;
    std::unique_ptr<platform::device> handle_; // what is read is either this
    std::unique_ptr<io::byte_source> source_;  // or this
    platform::drive_geometry geometry_;
    std::uint32_t drive_number_ = 0;
    std::uint32_t partition_number_ = ~std::uint32_t{0}; // unknown
    std::int64_t starting_offset_ = 0;                   // bytes
    std::int64_t total_size_ = 0;                        // bytes
};

} // namespace ntfs
