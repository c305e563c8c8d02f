#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace platform {

// Volumes and disks opened as devices, below any file system. Where volumes are no devices with
// names of their own, the image of a volume in a regular file, or a block device, serves as one,
// with sectors of 512 bytes.

struct drive_geometry {
    std::uint64_t cylinders = 0;
    std::uint32_t media_type = 0;
    std::uint32_t tracks_per_cylinder = 0;
    std::uint32_t sectors_per_track = 0;
    std::uint32_t bytes_per_sector = 0;
};

struct partition_facts {
    std::int64_t starting_offset = 0; // bytes
    std::int64_t length = 0;          // bytes
    std::uint32_t number = 0;
};

// An open device. A query that the device does not answer gives nothing; what to take instead is
// for the caller to decide.
class device {
public:
    device() = default;
    virtual ~device() = default;
    device(const device&) = delete;
    device& operator=(const device&) = delete;

    // The geometry, and the disk's size in bytes into `disk_size`.
    virtual std::optional<drive_geometry> extended_geometry(std::int64_t& disk_size) = 0;
    // The older query, which knows no size.
    virtual std::optional<drive_geometry> geometry() = 0;
    virtual std::optional<partition_facts> partition() = 0;
    virtual std::optional<partition_facts> extended_partition() = 0;
    virtual std::optional<std::uint32_t> drive_number() = 0;

    // Reads at `offset` until `out` is full, the device ends or reading fails; gives the bytes
    // read. Offset and length are whole sectors.
    virtual std::size_t read(std::span<std::uint8_t> out, std::int64_t offset) = 0;
};

struct device_access {
    bool random = false; // hint that reads jump about
    bool write = false;
};

// Opens the device of that name (UTF-8, as it stands), shared with readers and writers; null on
// failure.
std::unique_ptr<device> open_device(const std::string& name, device_access access);

// What takes the place of open_device where devices come from elsewhere.
using device_opener =
    std::function<std::unique_ptr<device>(const std::string& name, device_access access)>;

} // namespace platform
