#include "platform/devices.h"

#include <algorithm>

#include "platform/files.h"

namespace platform {

namespace {

// A regular file or a block device.
class image_device final : public device {
public:
    image_device(int descriptor, std::int64_t size) : descriptor_(descriptor), size_(size) {}
    ~image_device() override { close_file(descriptor_); }

    std::optional<drive_geometry> extended_geometry(std::int64_t& disk_size) override
    {
        disk_size = size_;
        drive_geometry geometry;
        geometry.bytes_per_sector = 512;
        return geometry;
    }
    std::optional<drive_geometry> geometry() override { return std::nullopt; }
    std::optional<partition_facts> partition() override { return std::nullopt; }
    std::optional<partition_facts> extended_partition() override { return std::nullopt; }
    std::optional<std::uint32_t> drive_number() override { return std::nullopt; }

    std::size_t read(std::span<std::uint8_t> out, std::int64_t offset) override
    {
        return read_file(descriptor_, out, offset).count;
    }

private:
    int descriptor_;
    std::int64_t size_;
};

} // namespace

// Images and block devices alone; nothing is ever written to them.
std::unique_ptr<device> open_device(const std::string& name, device_access)
{
    const opened_file opened = open_for_reading(name);
    if (opened.descriptor < 0) {
        return nullptr;
    }
    const std::int64_t length = std::max<std::int64_t>(file_length(opened.descriptor), 0);
    return std::make_unique<image_device>(opened.descriptor, length);
}

} // namespace platform
