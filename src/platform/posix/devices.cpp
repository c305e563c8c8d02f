#include "platform/devices.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

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
        return read_file(descriptor_, out, offset);
    }

private:
    int descriptor_;
    std::int64_t size_;
};

bool holds_a_volume(int descriptor)
{
    struct stat status {};
    return ::fstat(descriptor, &status) == 0 &&
           (S_ISREG(status.st_mode) || S_ISBLK(status.st_mode));
}

} // namespace

std::unique_ptr<device> open_device(const std::string& name, device_access access)
{
    const int flags = (access.write ? O_RDWR : O_RDONLY) | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
    const int descriptor = ::open(name.c_str(), flags);
    if (descriptor < 0) {
        return nullptr;
    }
    if (!holds_a_volume(descriptor)) {
        close_file(descriptor);
        return nullptr;
    }
    return std::make_unique<image_device>(descriptor, file_length(descriptor));
}

} // namespace platform
