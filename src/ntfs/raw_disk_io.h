// The one place where a volume is opened as a device and its sectors are read.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "platform/devices.h"
#include "io/fileio.h"

namespace ntfs {

// How a device is named.
enum class disk_mode : std::uint32_t {
    image_file = 0,     // a plain file by path
    volume = 1,         // a volume by its letter or its full device path
    device = 2,         // a device path as it stands, such as a snapshot's
    physical_drive = 3, // a drive by its number
    stream = 4,         // a stream held by another object
    bare_volume = 6, // "\\.\" is first taken off the name, then as `volume`; no partition queries
};

// A volume as bytes at positions. Open from construction to destruction, or closed for good.
// Failures are a false result without words.
class RAW_DISK_IO {
public:
    // Opens the device of that name (UTF-8); is_open() tells the result.
    RAW_DISK_IO(std::string_view name, disk_mode mode,
                const platform::device_opener& open_device = platform::open_device);
    // Mode 4: reads come from `stream`, which must outlive this object.
    explicit RAW_DISK_IO(io::fileio& stream);
    virtual ~RAW_DISK_IO();
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

    // Reads `size` bytes at `offset`, neither of which need be whole sectors. True when all came;
    // from a plain file, `size` first becomes what is left of the file. Refused for a null buffer,
    // a size of 0 and an offset at or past the end.
    bool read(std::uint8_t* buffer, std::uint64_t& size, std::uint64_t offset);
    // The same for a buffer that is to be filled; gives how many of its first bytes could be read.
    std::uint64_t read_start(std::span<std::uint8_t> buffer, std::uint64_t offset);

private:
    void open_path(const platform::device_opener& open_device);
    void open_letter(const platform::device_opener& open_device);
    void open_file();
    bool query_geometry();
    void query_partition();
    std::uint64_t read_sectors(std::span<std::uint8_t> buffer, std::uint64_t offset);

    std::string device_name_;
    disk_mode mode_;
    bool is_open_ = false;
    bool write_access_ = false; // never asked for
    std::unique_ptr<platform::device> handle_;
    int file_descriptor_ = -1;
    io::fileio* stream_ = nullptr;
    platform::drive_geometry geometry_;
    std::uint32_t drive_number_ = 0;
    std::uint32_t partition_number_ = ~std::uint32_t{0}; // unknown
    std::int64_t starting_offset_ = 0;                   // bytes
    std::int64_t total_size_ = 0;                        // bytes
};

} // namespace ntfs
