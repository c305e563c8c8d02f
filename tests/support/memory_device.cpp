#include "support/memory_device.h"

#include <new>

namespace test_support {

namespace {

class memory_device final : public platform::device {
public:
    explicit memory_device(memory_disk& disk) : disk_(disk) {}

    std::optional<platform::drive_geometry> extended_geometry(std::int64_t& disk_size) override
    {
        if (!disk_.knows_extended_geometry) {
            return std::nullopt;
        }
        disk_size = disk_.size >= 0 ? disk_.size : static_cast<std::int64_t>(disk_.bytes.size());
        return disk_.geometry;
    }
    std::optional<platform::drive_geometry> geometry() override
    {
        return disk_.knows_geometry ? std::optional(disk_.geometry) : std::nullopt;
    }
    std::optional<platform::partition_facts> partition() override
    {
        return disk_.knows_partition ? std::optional(disk_.partition) : std::nullopt;
    }
    std::optional<platform::partition_facts> extended_partition() override
    {
        return disk_.knows_extended_partition ? std::optional(disk_.partition) : std::nullopt;
    }
    std::optional<std::uint32_t> drive_number() override { return 7; }

    std::size_t read(std::span<std::uint8_t> out, std::int64_t offset) override
    {
        if (disk_.reads.size() == disk_.reads_that_fit) {
            throw std::bad_alloc();
        }
        disk_.reads.emplace_back(offset, out.size());
        const auto end = offset + static_cast<std::int64_t>(out.size());
        if (offset >= static_cast<std::int64_t>(disk_.bytes.size()) ||
            (offset <= disk_.unreadable && disk_.unreadable < end)) {
            return 0;
        }
        const std::size_t count =
            std::min(out.size(), disk_.bytes.size() - static_cast<std::size_t>(offset));
        std::copy_n(disk_.bytes.begin() + offset, count, out.begin());
        return count;
    }

private:
    memory_disk& disk_;
};

} // namespace

platform::device_opener opener_of(memory_disk& disk)
{
    return [&disk](const std::string& name,
                   platform::device_access access) -> std::unique_ptr<platform::device> {
        disk.opened.emplace_back(name, access);
        if (!disk.name.empty() && name != disk.name) {
            return nullptr;
        }
        return std::make_unique<memory_device>(disk);
    };
}

} // namespace test_support
